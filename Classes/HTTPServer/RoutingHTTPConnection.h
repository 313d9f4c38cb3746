// Which resource a request asks for, and what answers it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Classes/HTTPServer/ConnectionRequestDelegate.h"
#include "Classes/HTTPServer/ListCapabilitiesDelegate.h"
#include "Classes/HTTPServer/ProjectStructureKeys.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/HTTP/Server/HTTPConnection.h"

namespace ferrox {

/// What a method and a path ask for.
enum class RouteName {
  RouteNameGetRoot,
  RouteNameHeadRoot,
  RouteNameGetCapabilities,
  RouteNameGetStreamForPath,
  RouteNameGetProjectForPath,
  RouteNameGetFileForPath,
  RouteNameHeadFileForPath,
  RouteNameWebSocket,
  RouteNameGetService,
  RouteNameNotFound,
};

/// The methods that have routes.
enum class HTTPMethod { Get = 0, Head = 4 };

/// The handler of one accepted connection. Answers that need the disk are deferred to the server's disk pool;
/// nothing here blocks.
/// Thread: network; the static operations: any
class FRX_EXPORT RoutingHTTPConnection : public HTTPConnection {
 public:
  /// Makes the endpoint of an accepted upgrade; `frxId` is the connecting peer's service id, upper-cased.
  /// The endpoint is its own delegate where it wants events. Nothing refuses the upgrade.
  using WebSocketFactory = std::function<std::shared_ptr<WebSocket>(
      const HTTPRequest* request, const std::string& frxId, std::shared_ptr<WebSocketTransport> transport)>;
  /// The sender's record, or the answer to a body that holds none.
  using ServiceOrResponse = std::variant<std::shared_ptr<FRXNetService>, std::unique_ptr<HTTPResponse>>;

  /// One for all connections, kept alive. An empty pointer is ignored and the previous one stays.
  static void setCapabilitiesDelegate(std::shared_ptr<ListCapabilitiesDelegate> delegate);
  static void setConnectionRequestDelegate(std::shared_ptr<ConnectionRequestDelegate> delegate);
  static std::shared_ptr<ListCapabilitiesDelegate> capabilitiesDelegate();
  static std::shared_ptr<ConnectionRequestDelegate> connectionRequestDelegate();
  /// Lets go of both delegates, for a host that is done with the library.
  static void forgetDelegates();
  /// An empty function brings the default back: an endpoint that only opens and closes.
  static void setWebSocketFactory(WebSocketFactory factory);

  bool supportsMethod(std::string_view method, std::string_view path) override;
  std::string allowedMethods(std::string_view path) override;
  std::unique_ptr<HTTPResponse> httpResponseForMethod(std::string_view method,
                                                      std::string_view path) override;
  std::shared_ptr<WebSocket> webSocketForURI(std::string_view path,
                                             std::shared_ptr<WebSocketTransport> transport) override;

  /// Paths are compared as sent, with escapes and query.
  RouteName getRoute(std::string_view method, std::string_view path) const;
  bool hasCapability(std::string_view name) const;
  /// The project's root directory on this disk.
  std::optional<std::string> getProjectPathFromId(const std::string& projectId) const;
  /// Reads a service record from the request's percent-encoded JSON body; a 400 answer when there is no body
  /// or it cannot be decoded. `error` is filled when the decoded text is not JSON.
  ServiceOrResponse frxServiceFromRequestBody(FRXError* error = nullptr) const;

  // One for each route. Answers that depend on the disk come as HTTPDeferredResponse.
  std::unique_ptr<HTTPResponse> routeNameGetRoot() const;
  std::unique_ptr<HTTPResponse> routeNameHeadRoot() const;
  std::unique_ptr<HTTPResponse> routeNameGetCapabilities() const;
  std::unique_ptr<HTTPResponse> routeNameGetStreamForPath(std::string_view path) const;
  std::unique_ptr<HTTPResponse> routeNameGetProjectForPath(std::string_view path) const;
  std::unique_ptr<HTTPResponse> routeNameFileForPath(std::string_view path, HTTPMethod method) const;
  std::unique_ptr<HTTPResponse> routeNameGetService() const;

 private:
  bool acceptsJson() const;
  std::optional<std::string> header(std::string_view name) const;
};

}  // namespace ferrox
