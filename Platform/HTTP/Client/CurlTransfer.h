// One request of the HTTP client, from its first attempt to its completion.
#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/FRXError.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/HTTP/Client/HTTPClientTarget.h"
#include "Platform/HTTP/Client/OpenSockets.h"
#include "Platform/Net/FileDescriptor.h"

namespace ferrox {

struct CurlEasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct CurlListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

/// The first attempt may only use a connection that is kept from an earlier request: asked for a new socket
/// it refuses and `wantsConnection()` holds. Its owner then looks the host up, connects by its own rules and
/// hands the socket to the second attempt.
/// Thread: the transfer thread
class CurlTransfer {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  CurlTransfer(HTTPClientRequest request, HTTPClientTarget target, HTTPClientCallbacks callbacks);
  ~CurlTransfer();
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;

  /// Makes the handle; an error when the system is out of memory. `sockets` must outlive the connections.
  std::optional<FRXError> prepare(OpenSockets& sockets);
  CURL* easy() const { return easy_.get(); }
  const HTTPClientTarget& target() const { return target_; }
  std::optional<std::chrono::milliseconds> inactivityTimeout() const { return request_.inactivityTimeout; }

  /// Whether the attempt ended only because no kept connection could be used.
  bool wantsConnection() const { return wantsConnection_; }
  /// The next attempt uses this socket and no other connection.
  void useConnection(FileDescriptor socket);

  /// Notes that something happened.
  void touch() { lastActivity_ = std::chrono::steady_clock::now(); }
  /// When the request times out unless something happens; nothing without a time-out or while it is held up.
  std::optional<TimePoint> deadline() const;
  /// Counts bytes that reached the socket but made no complete line yet as activity as well.
  void touchIfSocketReceived();

  /// Goes on when the receiver has held the body up.
  CURLcode resume();

  /// The error that the ended attempt amounts to; nothing on success.
  std::optional<FRXError> errorFor(CURLcode code) const;

  HTTPClientResponse takeResponse() { return std::move(response_); }
  HTTPClientCallbacks takeCallbacks() { return std::move(callbacks_); }

 private:
  enum class Refusal { None, Cancelled, BodyTooLarge, HeaderTooLarge, Malformed };

  static curl_socket_t openSocket(void* self, curlsocktype purpose, curl_sockaddr* address);
  static int socketWasOpened(void* self, curl_socket_t socket, curlsocktype purpose);
  static int closeSocket(void* sockets, curl_socket_t socket);
  static std::size_t headerArrived(char* data, std::size_t size, std::size_t count, void* self);
  static std::size_t bodyArrived(char* data, std::size_t size, std::size_t count, void* self);

  void setConnectionOptions();
  void setRequestOptions();
  bool setHeaders();
  bool handleHeaderLine(std::string_view line);
  bool headersAreComplete();
  bool hasUsableLength() const;
  bool receiverIsReady();
  bool handleBody(std::string_view data);
  template <typename Callback>
  bool allows(const Callback& callback);

  HTTPClientRequest request_;
  const HTTPClientTarget target_;
  HTTPClientCallbacks callbacks_;
  HTTPClientResponse response_;

  std::unique_ptr<curl_slist, CurlListDeleter> connectTo_;
  std::unique_ptr<curl_slist, CurlListDeleter> headerList_;
  std::unique_ptr<CURL, CurlEasyDeleter> easy_;
  std::array<char, CURL_ERROR_SIZE> errorText_{};

  OpenSockets* sockets_ = nullptr;
  FileDescriptor connection_;
  bool wantsConnection_ = false;
  bool headersComplete_ = false;
  bool heldUp_ = false;
  std::size_t headerBytes_ = 0;
  Refusal refusal_ = Refusal::None;
  TimePoint lastActivity_ = std::chrono::steady_clock::now();
};

}  // namespace ferrox
