#include "Classes/HTTPServer/PlainWebSocketEndpoint.h"

#include <utility>

#include "Platform/Log/Log.h"

namespace ferrox {

std::shared_ptr<PlainWebSocketEndpoint> PlainWebSocketEndpoint::make(
    std::string frxId, std::shared_ptr<WebSocketTransport> transport) {
  std::shared_ptr<PlainWebSocketEndpoint> endpoint(
      new PlainWebSocketEndpoint(std::move(frxId), std::move(transport)));
  endpoint->setDelegate(endpoint);
  return endpoint;
}

PlainWebSocketEndpoint::PlainWebSocketEndpoint(std::string frxId,
                                               std::shared_ptr<WebSocketTransport> transport)
    : WebSocket(std::move(transport)), frxId_(std::move(frxId)) {}

std::string PlainWebSocketEndpoint::formattedAddress() const {
  return connectedHost() + ":" + std::to_string(localPort());
}

void PlainWebSocketEndpoint::webSocketDidOpen(WebSocket&) {
  FRX_LOG_VERBOSE("Websocket opened: " + formattedAddress());
}

void PlainWebSocketEndpoint::webSocketDidClose(WebSocket&) {
  FRX_LOG_VERBOSE("Websocket closed: " + formattedAddress());
}

}  // namespace ferrox
