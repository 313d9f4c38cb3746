#include "Classes/WebSockets/PeerSocket.h"

#include <utility>

namespace ferrox {

std::shared_ptr<PeerSocket> PeerSocket::make(std::shared_ptr<WebSocketClient> client, std::string lookupId,
                                             std::string destinationAddress, PeerSocketListener& listener) {
  std::shared_ptr<PeerSocket> socket(
      new PeerSocket(std::move(client), std::move(lookupId), std::move(destinationAddress), listener));
  socket->client_->setDelegate(socket);
  return socket;
}

PeerSocket::PeerSocket(std::shared_ptr<WebSocketClient> client, std::string lookupId,
                       std::string destinationAddress, PeerSocketListener& listener)
    : client_(std::move(client)),
      lookupId_(std::move(lookupId)),
      destinationAddress_(std::move(destinationAddress)),
      listener_(listener) {}

void PeerSocket::webSocketDidOpen(WebSocketClient&) {
  if (!detached_) listener_.webSocketDidOpen(shared_from_this());
}

void PeerSocket::webSocketDidFailWithError(WebSocketClient&, const FRXError& error) {
  if (detached_) return listener_.detachedSocketDidEnd(shared_from_this());
  listener_.webSocketDidFailWithError(shared_from_this(), error);
}

void PeerSocket::webSocketDidCloseWithCode(WebSocketClient&, int code, const std::string& reason,
                                           bool wasClean) {
  if (detached_) return listener_.detachedSocketDidEnd(shared_from_this());
  listener_.webSocketDidCloseWithCode(shared_from_this(), code, reason, wasClean);
}

void PeerSocket::webSocketDidReceiveMessage(WebSocketClient&, std::string_view text) {
  if (!detached_) listener_.webSocketDidReceiveMessage(shared_from_this(), text);
}

}  // namespace ferrox
