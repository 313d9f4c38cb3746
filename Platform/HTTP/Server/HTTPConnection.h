// What answers the requests of one accepted connection; subclassed by the routing layer.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/HTTP/Server/HTTPRequest.h"
#include "Platform/HTTP/Server/HTTPResponse.h"

namespace ferrox {

class WebSocket;
class WebSocketTransport;

/// The server makes one for each accepted TCP connection and asks it about every request, always on the
/// connection's own network thread.
/// Thread: network
class FRX_EXPORT HTTPConnection {
 public:
  virtual ~HTTPConnection() = default;

  /// False makes the server answer 405 with the `Allow` header that `allowedMethods` gives.
  virtual bool supportsMethod(std::string_view method, std::string_view path) = 0;
  /// For the `Allow` header of a 405, for example "GET, HEAD".
  virtual std::string allowedMethods(std::string_view path) { return (void)path, "GET, HEAD"; }
  /// An empty pointer makes the server answer 404.
  virtual std::unique_ptr<HTTPResponse> httpResponseForMethod(std::string_view method,
                                                              std::string_view path) = 0;
  /// The endpoint that takes an upgrade to a WebSocket over, or nothing, which refuses it with 404.
  /// `transport` is the connection as the endpoint will own it.
  // NOLINTBEGIN(performance-unnecessary-value-param): who overrides it keeps the transport.
  virtual std::shared_ptr<WebSocket> webSocketForURI(std::string_view /*path*/,
                                                     std::shared_ptr<WebSocketTransport> /*transport*/) {
    return nullptr;
  }
  // NOLINTEND(performance-unnecessary-value-param)
  /// A piece of the request's body, in order. By default it is appended to `body()`.
  virtual void processBodyData(std::string_view bytes) { body_.append(bytes); }

  /// The request being answered. Set by the server around each call above.
  const HTTPRequest* request() const { return request_; }
  const std::string& body() const { return body_; }

 private:
  friend class HTTPServerConnectionAccess;
  const HTTPRequest* request_ = nullptr;
  std::string body_;
};

}  // namespace ferrox
