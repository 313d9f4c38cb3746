#include "Classes/HTTPServer/RoutingHTTPConnection.h"

#include <mutex>
#include <utility>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/HTTPServer/HTTPErrorResponse.h"
#include "Classes/HTTPServer/HTTPHeadResponse.h"
#include "Classes/HTTPServer/HTTPJsonResponse.h"
#include "Classes/HTTPServer/HTTPVideoResponse.h"
#include "Classes/HTTPServer/PlainWebSocketEndpoint.h"
#include "Classes/HTTPServer/ProjectStructureResponse.h"
#include "Classes/HTTPServer/RequestPath.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/FileURL.h"
#include "Classes/Utilities/PercentCoding.h"
#include "Classes/Utilities/StringUtilities.h"
#include "Platform/Base/Json.h"
#include "Platform/FileSystem/RootedPath.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

using Response = std::unique_ptr<HTTPResponse>;

struct SharedState {
  std::mutex mutex;
  std::shared_ptr<ListCapabilitiesDelegate> capabilitiesDelegate;
  std::shared_ptr<ConnectionRequestDelegate> connectionDelegate;
  RoutingHTTPConnection::WebSocketFactory webSocketFactory;
};

// Never destroyed: connections may still be answered while the process ends.
SharedState& shared() {
  static SharedState& state = *new SharedState;
  return state;
}

Response errorResponse(std::int32_t status) { return std::make_unique<HTTPErrorResponse>(status); }

Response jsonResponse(std::optional<std::string> json) {
  constexpr std::int32_t internalServerError = 500;
  if (!json) return errorResponse(internalServerError);
  return std::make_unique<HTTPJsonResponse>(std::move(*json));
}

FRXCapabilities currentCapabilities() {
  const auto delegate = RoutingHTTPConnection::capabilitiesDelegate();
  return delegate ? delegate->capabilities() : FRXCapabilities();
}

template <typename Capability>
std::shared_ptr<Capability> capabilityOfType(std::string_view name) {
  const FRXCapabilities capabilities = currentCapabilities();
  const auto found = capabilities.find(name);
  return found == capabilities.end() ? nullptr : std::dynamic_pointer_cast<Capability>(found->second);
}

/// The directory behind a stream, when one is registered under that key.
std::optional<std::string> streamDirectory(std::string_view key) {
  const auto streaming = capabilityOfType<FRXStreamingCapability>(FRXCapabilityNameStreaming);
  const auto stream = streaming ? streaming->streamForServedPath(key) : nullptr;
  const auto url = stream ? stream->fileSystemPath() : std::nullopt;
  return url ? pathFromFileURL(*url) : std::nullopt;
}

/// Takes over the opened file; -1 is none.
Response streamFile(int descriptor, const std::string& name, const RequestRange& range) {
  constexpr std::int32_t notFound = 404;
  constexpr std::int32_t noContent = 204;
  if (descriptor < 0) return errorResponse(notFound);
  auto file = std::make_unique<HTTPVideoResponse>(descriptor, name);
  if (!file->isOpen()) return errorResponse(notFound);
  if (range.isValid && range.start >= file->fileSize()) return errorResponse(noContent);
  return file;
}

/// Takes over the opened file; -1 is none.
Response projectFile(int descriptor, const RequestRange& range) {
  constexpr std::int32_t notFound = 404;
  if (descriptor < 0) return errorResponse(notFound);
  auto file = std::make_unique<HTTPFileResponse>(descriptor);
  if (!file->isOpen()) return errorResponse(notFound);
  // The end counts as not included, and the answer is a plain 200: copying peers rely on both. Restricted to
  // its whole length where no range was asked for, so that the server does not apply ranges of its own.
  file->restrictTo(range.isValid ? range.start : 0,
                   range.isValid && range.end != 0 ? range.end : file->fileSize());
  return file;
}

/// A file that may not be read has a size all the same.
Response projectFileHead(const RootedPath& root, const std::string& name) {
  constexpr std::int32_t notFound = 404;
  const auto size = root.regularFileSize(name);
  if (!size) return errorResponse(notFound);
  return std::make_unique<HTTPHeadResponse>(*size);
}

/// Empty where it would take the disk.
Response cachedProjectFileHead(const RootedPath& root, const std::string& name) {
  const HTTPFileResponse file(root.openCachedRegularFile(name));
  return file.isOpen() ? std::make_unique<HTTPHeadResponse>(file.fileSize()) : nullptr;
}

/// The answer with a shared file: at once where it is in memory, else as soon as the disk pool has opened it.
/// `respond` makes it from the open file, or from -1.
template <typename Respond>
Response respondWithFile(const std::string& directory, const std::string& name, const Respond& respond) {
  const RootedPath root(directory);
  return std::make_unique<HTTPDeferredResponse>([=] { return respond(root.openRegularFile(name)); },
                                                [=] {
                                                  const int descriptor = root.openCachedRegularFile(name);
                                                  return descriptor < 0 ? nullptr : respond(descriptor);
                                                });
}

/// A host name that may be connected to: what a URL or a log line could take for something else is refused.
bool isPlausibleHostName(std::string_view name) {
  constexpr std::size_t longestName = 255;
  if (name.empty() || name.size() > longestName || !text::isValidUtf8(name)) return false;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= ' ' || byte == 0x7F ||
        std::string_view("/\\?#@%[]<>\"'&=;").find(c) != std::string_view::npos) {
      return false;
    }
  }
  return true;
}

/// Tells the browser of an instance that connected and said where it can be reached.
void announceConnectingService(const std::map<std::string, std::string>& parameters, const std::string& frxId,
                               const std::string& address) {
  constexpr std::int64_t largestPort = 65'535;
  const auto host = parameters.find("hostname");
  const auto portText = parameters.find("port");
  if (host == parameters.end() || portText == parameters.end()) return;
  const auto hostName = percentDecoded(host->second);
  const std::int64_t port = integerValue(percentDecoded(portText->second).value_or(std::string()));
  if (!hostName || port == 0) return;
  if (port < 0 || port > largestPort || !isPlausibleHostName(*hostName)) {
    FRX_LOG_WARN("Connecting service " + frxId + " has no usable address: " + *hostName + ":" +
                 std::to_string(port));
    return;
  }
  if (const auto delegate = RoutingHTTPConnection::connectionRequestDelegate()) {
    delegate->monitorServiceAtAddress(std::make_shared<FRXNetService>(hostName, port, frxId), address);
  }
}

}  // namespace

void RoutingHTTPConnection::setCapabilitiesDelegate(std::shared_ptr<ListCapabilitiesDelegate> delegate) {
  if (!delegate) return;
  const std::lock_guard lock(shared().mutex);
  shared().capabilitiesDelegate.swap(delegate);
}

void RoutingHTTPConnection::setConnectionRequestDelegate(
    std::shared_ptr<ConnectionRequestDelegate> delegate) {
  if (!delegate) return;
  const std::lock_guard lock(shared().mutex);
  shared().connectionDelegate.swap(delegate);
}

std::shared_ptr<ListCapabilitiesDelegate> RoutingHTTPConnection::capabilitiesDelegate() {
  const std::lock_guard lock(shared().mutex);
  return shared().capabilitiesDelegate;
}

std::shared_ptr<ConnectionRequestDelegate> RoutingHTTPConnection::connectionRequestDelegate() {
  const std::lock_guard lock(shared().mutex);
  return shared().connectionDelegate;
}

void RoutingHTTPConnection::forgetDelegates() {
  // Destroyed outside the lock, since their destructors may come back here.
  std::shared_ptr<ListCapabilitiesDelegate> capabilities;
  std::shared_ptr<ConnectionRequestDelegate> connections;
  const std::lock_guard lock(shared().mutex);
  shared().capabilitiesDelegate.swap(capabilities);
  shared().connectionDelegate.swap(connections);
}

void RoutingHTTPConnection::setWebSocketFactory(WebSocketFactory factory) {
  const std::lock_guard lock(shared().mutex);
  shared().webSocketFactory = std::move(factory);
}

bool RoutingHTTPConnection::supportsMethod(std::string_view method, std::string_view path) {
  return getRoute(method, path) != RouteName::RouteNameNotFound;
}

std::string RoutingHTTPConnection::allowedMethods(std::string_view path) {
  std::string methods;
  for (const std::string_view method : {"GET", "HEAD"}) {
    if (!supportsMethod(method, path)) continue;
    if (!methods.empty()) methods += ", ";
    methods += method;
  }
  return methods;
}

RouteName RoutingHTTPConnection::getRoute(std::string_view method, std::string_view path) const {
  if (method == "GET") {
    if (path == "/") return RouteName::RouteNameGetRoot;
    if (path == "/capabilities" || path == "/capabilities/") return RouteName::RouteNameGetCapabilities;
    if (path.starts_with("/streams/") && hasCapability(FRXCapabilityNameStreaming)) {
      return RouteName::RouteNameGetStreamForPath;
    }
    if (isProjectFilePath(path)) return RouteName::RouteNameGetFileForPath;
    if (path.starts_with("/projects/")) return RouteName::RouteNameGetProjectForPath;
    if (path.starts_with("/service")) return RouteName::RouteNameGetService;
    if (path.starts_with("/frxsocket")) return RouteName::RouteNameWebSocket;
  } else if (method == "HEAD") {
    if (path == "/") return RouteName::RouteNameHeadRoot;
    if (isProjectFilePath(path)) return RouteName::RouteNameHeadFileForPath;
    if (path.starts_with("/streams/")) return RouteName::RouteNameGetStreamForPath;
  }
  return RouteName::RouteNameNotFound;
}

Response RoutingHTTPConnection::httpResponseForMethod(std::string_view method, std::string_view path) {
  switch (getRoute(method, path)) {
    case RouteName::RouteNameGetRoot:
      return routeNameGetRoot();
    case RouteName::RouteNameHeadRoot:
      return routeNameHeadRoot();
    case RouteName::RouteNameGetCapabilities:
      return routeNameGetCapabilities();
    case RouteName::RouteNameGetStreamForPath:
      return routeNameGetStreamForPath(path);
    case RouteName::RouteNameGetProjectForPath:
      return routeNameGetProjectForPath(path);
    case RouteName::RouteNameGetFileForPath:
      return routeNameFileForPath(path, HTTPMethod::Get);
    case RouteName::RouteNameHeadFileForPath:
      return routeNameFileForPath(path, HTTPMethod::Head);
    case RouteName::RouteNameGetService:
      return routeNameGetService();
    case RouteName::RouteNameWebSocket:
    case RouteName::RouteNameNotFound:
      break;
  }
  return nullptr;
}

std::shared_ptr<WebSocket> RoutingHTTPConnection::webSocketForURI(
    std::string_view path, std::shared_ptr<WebSocketTransport> transport) {
  if (!path.starts_with("/frxsocket")) return nullptr;
  const auto parameters = parseGetParams(path);
  const auto idParameter = parameters.find("id");
  const auto id = idParameter == parameters.end() ? std::nullopt : percentDecoded(idParameter->second);
  if (!id) {
    FRX_LOG_ERROR("WebSocket connection request didn't contain required url parameter \"id\"");
    return nullptr;
  }
  announceConnectingService(parameters, *id, transport ? transport->connectedHost() : std::string());

  WebSocketFactory factory;
  {
    const std::lock_guard lock(shared().mutex);
    factory = shared().webSocketFactory;
  }
  std::string frxId = text::upperCased(*id);
  if (factory) return factory(request(), frxId, std::move(transport));
  return PlainWebSocketEndpoint::make(std::move(frxId), std::move(transport));
}

bool RoutingHTTPConnection::hasCapability(std::string_view name) const {
  return currentCapabilities().contains(name);
}

std::optional<std::string> RoutingHTTPConnection::getProjectPathFromId(const std::string& projectId) const {
  const auto sharing = capabilityOfType<FRXProjectSharingCapability>(FRXCapabilityNameProjectSharing);
  const auto project = sharing ? sharing->projectWithId(projectId) : nullptr;
  const auto url = project ? project->fileSystemPath() : std::nullopt;
  return url ? pathFromFileURL(*url) : std::nullopt;
}

RoutingHTTPConnection::ServiceOrResponse RoutingHTTPConnection::frxServiceFromRequestBody(
    FRXError* error) const {
  constexpr std::int32_t badRequest = 400;
  const auto json = body().empty() ? std::nullopt : percentDecoded(body());
  if (!json) return errorResponse(badRequest);
  return FRXNetService::fromJson(*json, error);
}

Response RoutingHTTPConnection::routeNameGetRoot() const {
  constexpr std::int32_t notAcceptable = 406;
  if (!acceptsJson()) return errorResponse(notAcceptable);
  return jsonResponse(R"({"name":"FRX","api_root":"/","resources":{"/capabilities":{"methods":["GET"]}}})");
}

Response RoutingHTTPConnection::routeNameHeadRoot() const { return std::make_unique<HTTPHeadResponse>(0); }

Response RoutingHTTPConnection::routeNameGetCapabilities() const {
  constexpr std::int32_t notAcceptable = 406;
  if (!acceptsJson()) return errorResponse(notAcceptable);
  FRXDictionary document;
  for (const auto& [name, capability] : currentCapabilities()) {
    document.insert_or_assign(capability->name(), capability->jsonSerializableObject());
  }
  return jsonResponse(writeJson(document));
}

Response RoutingHTTPConnection::routeNameGetStreamForPath(std::string_view path) const {
  constexpr std::int32_t notFound = 404;
  const auto key = percentDecoded(deletingLastPathComponent(path));
  const auto name = percentDecoded(lastPathComponent(path));
  const auto directory = key ? streamDirectory(*key) : std::nullopt;
  if (!directory || !name) return errorResponse(notFound);
  const RequestRange range = FRXUtilities::readSimpleByteRangeHeader(header("Range"));
  return respondWithFile(*directory, *name,
                         [name = *name, range](int file) { return streamFile(file, name, range); });
}

Response RoutingHTTPConnection::routeNameGetProjectForPath(std::string_view path) const {
  const auto id = percentDecoded(lastPathComponent(path));
  const auto directory = id ? getProjectPathFromId(*id) : std::nullopt;
  if (!directory) return jsonResponse(R"({"files":[],"directories":[]})");
  return std::make_unique<HTTPDeferredResponse>(
      [directory = *directory] { return ProjectStructureResponse::make(directory); });
}

Response RoutingHTTPConnection::routeNameFileForPath(std::string_view path, HTTPMethod method) const {
  constexpr std::int32_t badRequest = 400;
  constexpr std::int32_t notFound = 404;
  constexpr auto none = std::string_view::npos;
  const std::size_t last = path.rfind('/');
  const std::size_t middle = last == none || last == 0 ? none : path.rfind('/', last - 1);
  if (middle == none) return errorResponse(badRequest);
  const std::size_t first = middle == 0 ? none : path.rfind('/', middle - 1);
  const std::size_t idBegin = first == none ? 0 : first + 1;

  const auto id = percentDecoded(path.substr(idBegin, middle - idBegin));
  const auto name = percentDecoded(path.substr(last + 1));
  const auto directory = id ? getProjectPathFromId(*id) : std::nullopt;
  if (!directory || !name) return errorResponse(notFound);
  const RequestRange range = FRXUtilities::readSimpleByteRangeHeader(header("Range"));
  if (method == HTTPMethod::Head) {
    return std::make_unique<HTTPDeferredResponse>(
        [root = RootedPath(*directory), name = *name] { return projectFileHead(root, name); },
        [root = RootedPath(*directory), name = *name] { return cachedProjectFileHead(root, name); });
  }
  return respondWithFile(*directory, *name, [range](int file) { return projectFile(file, range); });
}

Response RoutingHTTPConnection::routeNameGetService() const {
  const auto delegate = connectionRequestDelegate();
  const auto service = delegate ? delegate->localFRXService() : nullptr;
  return jsonResponse(service ? service->toJson() : std::nullopt);
}

bool RoutingHTTPConnection::acceptsJson() const {
  const auto accept = header("Accept");
  return !accept || accept->find("application/json") != std::string::npos ||
         accept->find("*/*") != std::string::npos;
}

std::optional<std::string> RoutingHTTPConnection::header(std::string_view name) const {
  const auto value = request() == nullptr ? std::nullopt : request()->header(name);
  return value ? std::optional<std::string>(*value) : std::nullopt;
}

}  // namespace ferrox
