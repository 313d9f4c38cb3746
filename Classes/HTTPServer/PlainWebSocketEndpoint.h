// An inbound socket that opens, closes, and does nothing in between.
#pragma once

#include <memory>
#include <string>

#include "Platform/WebSocket/WebSocket.h"

namespace ferrox {

/// What takes upgrades over while no other endpoint is registered with the routing layer.
/// Thread: network
class PlainWebSocketEndpoint final : public WebSocket, public WebSocketListener {
 public:
  /// An endpoint that is its own delegate.
  static std::shared_ptr<PlainWebSocketEndpoint> make(std::string frxId,
                                                      std::shared_ptr<WebSocketTransport> transport);

  /// The connecting instance's service id.
  const std::string& frxId() const { return frxId_; }
  /// The peer's address and this side's port, "10.0.0.7:16654", for logging.
  std::string formattedAddress() const;

  void webSocketDidOpen(WebSocket& socket) override;
  void webSocketDidClose(WebSocket& socket) override;

 private:
  PlainWebSocketEndpoint(std::string frxId, std::shared_ptr<WebSocketTransport> transport);

  std::string frxId_;
};

}  // namespace ferrox
