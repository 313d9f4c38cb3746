// An HTTP client with reused connections, streaming bodies and inactivity time-outs.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"

namespace ferrox {

class BackgroundQueue;
class HostNameResolver;

/// What is asked for, and how long and how much the asker puts up with.
struct HTTPClientRequest {
  std::string url;
  std::string method = "GET";
  std::vector<std::pair<std::string, std::string>> headers = {};
  /// The request fails when this long passes without a byte in either direction, connecting included.
  /// Absent: no limit. A transfer that makes progress is never cut.
  std::optional<std::chrono::milliseconds> inactivityTimeout = std::chrono::seconds(60);
  /// A collected body (no `onData`) larger than this fails the request.
  std::size_t maxBodySize = std::size_t{64} << 20;
  /// How large the body will be, as far as is known; a short one that streams then costs less memory.
  std::optional<std::uint64_t> likelyBodySize = std::nullopt;
};

/// An answer that came whole. `body` stays empty where the body was streamed.
struct FRX_EXPORT HTTPClientResponse {
  int status = 0;
  /// In the order of arrival, names as sent. Of a redirect or an interim answer only the last answer's.
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;

  /// First header of that name, compared without regard to ASCII case; nullptr when absent.
  const std::string* header(std::string_view name) const;
};

/// A request under way. Dropping the handle does not cancel.
class FRX_EXPORT HTTPClientTask {
 public:
  virtual ~HTTPClientTask() = default;
  /// The completion follows with an error of code `HTTPClientErrorCancelled`, unless it was already under
  /// way. Thread: any
  virtual void cancel() = 0;
  /// Goes on with a body that `wantsData` has held up; without effect on any other. Thread: any
  virtual void resume() = 0;
};

/// Errors of requests that got no whole answer. An answer with status 404 is none.
inline constexpr const char* HTTPClientErrorDomain = "com.ferrox.http.ErrorDomain";
/// Codes of this domain; every other code is the transfer library's own.
inline constexpr int HTTPClientErrorCancelled = -999;
/// `HTTPClientRequest::inactivityTimeout` passed.
inline constexpr int HTTPClientErrorTimedOut = -1001;
/// The URL is no http URL, or carries credentials.
inline constexpr int HTTPClientErrorBadURL = -1000;
/// The collected body exceeds `HTTPClientRequest::maxBodySize`.
inline constexpr int HTTPClientErrorBodyTooLarge = -1103;
/// The answer's status lines and headers exceed `HTTPClientMaxHeaderSize`.
inline constexpr int HTTPClientErrorHeaderTooLarge = -1104;
/// A method or header that cannot be sent as it is, for example one with a line break.
inline constexpr int HTTPClientErrorInvalidRequest = -1105;

/// In bytes, all lines together.
inline constexpr std::size_t HTTPClientMaxHeaderSize = std::size_t{64} << 10;
/// Requests to one host and port beyond so many wait for their turn; their time-out starts with it.
inline constexpr std::size_t HTTPClientMaxTransfersPerHost = 32;

/// What a request tells of its way. All but `onCompletion` are called on the transfer thread.
struct HTTPClientCallbacks {
  /// Status and headers, before any byte of the body. Returning false cancels. Optional.
  std::function<bool(const HTTPClientResponse&)> onResponse = nullptr;
  /// A piece of the body, valid during the call; the body is then not collected. Called on the transfer
  /// thread and so must not block for long. Returning false cancels. Optional.
  std::function<bool(std::string_view)> onData = nullptr;
  /// Asked on the transfer thread before each piece that `onData` is to get. While it says no the body stands
  /// still, the sender is slowed down by its full socket and no time-out runs; `HTTPClientTask::resume()`
  /// has it asked again, also when that comes before this call has returned. Optional.
  std::function<bool()> wantsData = nullptr;
  /// Exactly once, never inside the call that began the request, on a callback thread that may be blocked
  /// without stalling any transfer. Either an error or a response.
  std::function<void(std::optional<FRXError>, HTTPClientResponse)> onCompletion = nullptr;
  /// The completion never blocks and is called on the transfer thread, which spares a change of threads.
  bool completesQuickly = false;
  /// Where the completion is called otherwise; borrowed until then. The client's own threads by default, of
  /// which there is always one more; the fewer threads, the fewer wake-ups for many short requests.
  BackgroundQueue* completionQueue = nullptr;
};

/// Thread: any
class FRX_EXPORT HTTPClient {
 public:
  virtual ~HTTPClient() = default;
  virtual std::shared_ptr<HTTPClientTask> send(HTTPClientRequest request, HTTPClientCallbacks callbacks) = 0;

  /// Host names are looked up through `resolver`, which must outlive the client; all addresses are tried.
  /// Only http URLs are accepted; redirects are not followed; proxies are not used. Destroying the client,
  /// which no callback of its own may do, cancels what is under way and waits for the completions; once
  /// they have all been called, a `send` of another thread that has not returned yet is no obstacle.
  static std::unique_ptr<HTTPClient> make(HostNameResolver& resolver);
};

}  // namespace ferrox
