// Asks a peer's HTTP server for the size of one file.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "Classes/Copy/FRXConcurrentOperation.h"
#include "Classes/Copy/TransferRequest.h"
#include "Platform/Base/Export.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

/// A `HEAD` request whose "Content-Length" is kept. Read `error` first, and the length only without one.
/// Cancelled before it is started it ends without an error and with a length of 0; cancelled while the
/// request is under way it ends with the HTTP client's error of a cancelled request, since no length was
/// learned.
/// Thread: any
class FRX_EXPORT FRXContentLengthOperation final : public FRXConcurrentOperation {
 public:
  using SuccessCallback = std::function<void(std::int64_t length)>;
  using FailureCallback = std::function<void(const FRXError& error)>;

  /// `timeout` in seconds without a byte of the answer; one that is not greater than 0 is none.
  FRXContentLengthOperation(std::string contentURL, double timeout,
                            const PlatformServices& platform = PlatformServices::shared());

  /// Begins the request. Ignored when it is not startable.
  void start() override;
  /// Ends a request under way.
  void cancel() override;

  /// The request alone. Exactly one of the callbacks is called, once, on a thread of the HTTP client. Any
  /// status but 200 is a failure, and so is an answer without the header; a value that is no number counts
  /// as 0, as does a negative one, and one beyond 64 bits as the largest. To be called at most once.
  void getContentLength(const std::string& url, SuccessCallback onSuccess, FailureCallback onFailure);

  const std::string& contentURL() const { return contentURL_; }
  /// The largest finite number when there is none.
  double timeout() const { return timeout_; }
  /// 0 until success.
  std::uint64_t contentLengthBytes() const { return contentLengthBytes_.load(); }

 private:
  const PlatformServices platform_;
  const std::string contentURL_;
  const double timeout_;
  std::atomic<std::uint64_t> contentLengthBytes_{0};
  TransferRequest request_;
};

}  // namespace ferrox
