#include "Classes/WebSockets/ConnectionTally.h"

#include "Platform/WebSocket/WebSocketClient.h"

namespace ferrox {

void ConnectionTally::didOpen(const std::string& serviceId) {
  ++connections_.opened;
  if (onceConnected_.contains(serviceId)) {
    ++connections_.reopened;
    return;
  }
  // Peers may come and go under ever new names.
  if (onceConnected_.size() >= maxRemembered) onceConnected_.clear();
  onceConnected_.insert(serviceId);
}

void ConnectionTally::didFail(const FRXError& error, bool wasOpen) {
  ++(wasOpen ? connections_.lost : connections_.failed);
  if (error.domain == WebSocketClientErrorDomain && error.code == WebSocketClientErrorSendQueueFull) {
    messages.overfullQueues.add();
  }
}

}  // namespace ferrox
