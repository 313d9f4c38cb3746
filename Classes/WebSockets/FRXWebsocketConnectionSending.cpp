// How the manager sends over its sockets.
#include <exception>
#include <utility>

#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/ConnectionTally.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/Base/Utf8.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"

namespace ferrox {

void FRXWebsocketConnectionManager::broadcastMessage(const FRXWebsocketMessage& message) {
  const auto json = message.toJson();
  if (!json) return tally_->messages.unwritable.add();
  if (isMain()) return broadcastJson(message, *json);
  onMain([message, json = *json](FRXWebsocketConnectionManager& manager) {
    manager.broadcastJson(message, json);
  });
}

void FRXWebsocketConnectionManager::broadcastJson(const FRXWebsocketMessage& message,
                                                  const std::string& json) {
  const bool logged = Log::isEnabled(LogLevel::Verbose);
  const std::size_t count = parts_.broadcast(openClients_, json);
  tally_->messages.didSend(count, json.size());
  if (count == 0) tally_->messages.notConnected.add();
  if (!logged && !delegate_.respondingSelectors().frxMessageWasSent) return;
  // A listener may open and close sockets.
  const auto sockets = openSockets_;
  for (const auto& socket : sockets) {
    FRX_LOG_VERBOSE("Sending message to " + socket->destinationAddress());
    tellDelegate(message, socket->lookupId());
  }
}

void FRXWebsocketConnectionManager::broadcastMessage(const FRXWebsocketMessage& message,
                                                     const std::string& toService) {
  const auto json = message.toJson();
  if (!json) return tally_->messages.unwritable.add();
  onMain([message, json = *json, toService](FRXWebsocketConnectionManager& manager) {
    manager.sendJson(message, json, toService);
  });
}

void FRXWebsocketConnectionManager::sendJson(const FRXWebsocketMessage& message, const std::string& json,
                                             const std::string& toService) {
  auto socket = filed(toService);
  // Inbound sockets know their peer by its published name only.
  if (!socket) socket = filed(parts_.idForServiceName(toService).value_or(std::string()));
  if (!socket) return tally_->messages.notConnected.add();
  if (!send(*socket, json)) {
    FRX_LOG_VERBOSE("Failed to send " + message.subject().value_or("(null)") + " message to " + toService +
                    " - WebSocket connection status is " +
                    connectionStatusToString(static_cast<int>(socket->client()->readyState())));
    return;
  }
  FRX_LOG_VERBOSE("Sending message to " + toService);
  tellDelegate(message, socket->lookupId());
}

bool FRXWebsocketConnectionManager::send(PeerSocket& socket, const std::string& json) {
  if (!socket.client()->send(json)) return tally_->messages.notConnected.add(), false;
  tally_->messages.didSend(1, json.size());
  return true;
}

void FRXWebsocketConnectionManager::broadcastMessage(const FRXWebsocketMessage& message,
                                                     const std::string& toService,
                                                     ResponseCallback onResponse,
                                                     // NOLINTNEXTLINE(performance-unnecessary-value-param)
                                                     ErrorCallback /*never called*/) {
  const auto json = message.toJson();
  if (!json) return tally_->messages.unwritable.add();
  onMain([message, json = *json, toService,
          onResponse = std::move(onResponse)](FRXWebsocketConnectionManager& manager) mutable {
    manager.request(message, json, toService, onResponse);
  });
}

void FRXWebsocketConnectionManager::request(const FRXWebsocketMessage& message, const std::string& json,
                                            const std::string& toService, ResponseCallback onResponse) {
  const auto socket = filed(toService);
  if (!socket || !socket->isOpen() || !message.id()) return tally_->messages.notConnected.add();
  messageResponseCallbacks_.insert_or_assign(*message.id(), std::move(onResponse));
  send(*socket, json);
  tellDelegate(message, toService);
}

void FRXWebsocketConnectionManager::forgetReply(const std::string& messageId) {
  onMain([messageId](FRXWebsocketConnectionManager& manager) {
    manager.messageResponseCallbacks_.erase(messageId);
  });
}

void FRXWebsocketConnectionManager::forwardMessage(const std::string& json, const std::string& fromSender) {
  if (!isUtf8(json)) return tally_->messages.unwritable.add();
  onMain([json, fromSender](FRXWebsocketConnectionManager& manager) { manager.forward(json, fromSender); });
}

void FRXWebsocketConnectionManager::forward(const std::string& json, const std::string& fromSender) {
  const std::string sender = text::upperCased(fromSender);
  std::vector<std::shared_ptr<WebSocketClient>> recipients;
  for (const auto& socket : openSockets_) {
    if (text::upperCased(socket->destinationAddress()) == sender) continue;
    FRX_LOG_VERBOSE("Sending message to " + socket->destinationAddress());
    Log::audit(
        {"ForwardMessage", "FRXWebSocket", {{"from", fromSender}, {"to", socket->destinationAddress()}}});
    recipients.push_back(socket->client());
  }
  tally_->messages.didSend(parts_.broadcast(recipients, json), json.size());
}

void FRXWebsocketConnectionManager::messageWasSentTo(const FRXWebsocketMessage& message,
                                                     const std::string& serviceId) {
  onMain([message, serviceId](FRXWebsocketConnectionManager& manager) {
    manager.tellDelegate(message, serviceId);
  });
}

void FRXWebsocketConnectionManager::tellDelegate(const FRXWebsocketMessage& message,
                                                 const std::string& serviceId) {
  if (!delegate_.respondingSelectors().frxMessageWasSent) return;
  const auto service = LocalServiceDirectory::serviceWithId(serviceId);
  if (!service) return;
  delegate_.notify(&FRXMessageSentRespondingSelectors::frxMessageWasSent,
                   [&](FRXMessageSentDelegate& listener) {
                     try {
                       listener.frxMessageWasSent(message, service);
                     } catch (const std::exception& failure) {
                       FRX_LOG_ERROR(std::string("A message listener failed: ") + failure.what());
                     }
                   });
}

}  // namespace ferrox
