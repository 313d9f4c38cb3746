// What the manager does when something happens on one of its sockets.
#include <exception>
#include <utility>

#include "Classes/Notifications/FRXNotification.h"
#include "Classes/Notifications/NotificationSink.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/ConnectionTally.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/Log/Log.h"

namespace ferrox {

namespace {

void postLocal(const char* name, const FRXDictionary& userInfo, const std::optional<std::string>& filter) {
  if (const auto sink = NotificationSink::registered()) sink->postLocalNotification(name, userInfo, filter);
}

/// "true", and the numbers that other languages write for it.
bool isTrue(const FRXDictionary& userInfo, std::string_view key) {
  const auto found = userInfo.find(key);
  if (found == userInfo.end()) return false;
  if (const bool* flag = found->second.asBool()) return *flag;
  const std::int64_t* number = found->second.asInteger();
  return number != nullptr && *number != 0;
}

}  // namespace

void FRXWebsocketConnectionManager::webSocketDidOpen(const std::shared_ptr<PeerSocket>& socket) {
  const std::string& serviceId = socket->lookupId();
  FRX_LOG_VERBOSE("Websocket connection to service " + serviceId + " successfully opened");
  tally_->didOpen(serviceId);
  if (const auto former = filed(serviceId); former && former != socket) {
    former->detach();
    unfile(former);
    // Nobody could reach it any more: without this it would stay open for as long as the peer likes.
    former->client()->close();
  }
  file(socket);
  postLocal(FRXConnectedNotification, {{"frxURL", socket->destinationAddress()}, {"frxId", serviceId}},
            socket->destinationAddress());
  if (const auto sink = NotificationSink::registered()) sink->repostNotificationsToService(serviceId);
}

void FRXWebsocketConnectionManager::webSocketDidFailWithError(const std::shared_ptr<PeerSocket>& socket,
                                                              const FRXError& error) {
  const std::string& serviceId = socket->lookupId();
  FRX_LOG_WARN("WebSocket connection to service " + socket->client()->url() +
               " failed with error: " + error.localizedDescription);
  const auto address = FRXUtilities::addressForSender(serviceId);
  unfiled_.erase(socket);
  const auto former = filed(serviceId);
  // What opened was filed then; what is filed afterwards has ended.
  tally_->didFail(error, former == socket);
  // One of two tries may fail while the other has long succeeded: the connection that stands stays.
  if ((!former || !former->isOpen()) && LocalServiceDirectory::serviceWithId(serviceId)) {
    FRX_LOG_VERBOSE(
        "Websocket connection to service " + serviceId +
        " failed with error, but the service is still reported available by Bonjour...re-attempting "
        "connection on the next monitor cycle");
    file(socket);
  }
  noteOpenSockets();
  postLocal(
      FRXConnectionFailedWithErrorNotification,
      {{"error", error.localizedDescription}, {"frxURL", address.value_or("n/a")}, {"frxId", serviceId}},
      address);
}

void FRXWebsocketConnectionManager::webSocketDidCloseWithCode(const std::shared_ptr<PeerSocket>& socket,
                                                              int code, const std::string& reason,
                                                              bool wasClean) {
  const std::string ending =
      "closed with code: " + std::to_string(code) + " reason: " + (reason.empty() ? "(null)" : reason);
  if (wasClean) {
    FRX_LOG_VERBOSE("WebSocket " + socket->client()->url() + " cleanly " + ending);
  } else {
    FRX_LOG_WARN("WebSocket " + socket->client()->url() + " " + ending);
  }
  socket->client()->setDelegate({});
  tally_->messages.didRefuse(socket->client()->refusal());
  unfiled_.erase(socket);
  noteOpenSockets();
  postLocal(FRXDisconnectedNotification,
            {{"code", code},
             {"wasClean", wasClean ? "YES" : "NO"},
             {"frxURL", socket->destinationAddress()},
             {"frxId", socket->lookupId()}},
            socket->destinationAddress());
}

void FRXWebsocketConnectionManager::detachedSocketDidEnd(const std::shared_ptr<PeerSocket>& socket) {
  unfiled_.erase(socket);
  tally_->messages.didRefuse(socket->client()->refusal());
}

void FRXWebsocketConnectionManager::webSocketDidReceiveMessage(const std::shared_ptr<PeerSocket>& socket,
                                                               std::string_view text) {
  tally_->messages.didReceive(text.size());
  FRXError error;
  const auto message = FRXWebsocketMessage::fromJson(text, &error);
  if (!message) {
    tally_->messages.malformed.add();
    FRX_LOG_WARN("Unable to create FRXWebsocketMessage from message: " + error.localizedDescription);
    return;
  }
  switch (message->messageType()) {
    case FRXMessageType::FRXMessageTypeHeartbeat:
      FRX_LOG_VERBOSE("received heartbeat from " + message->from().value_or("(null)"));
      return;
    case FRXMessageType::FRXMessageTypeQuery:
      return replyArrived(*message, text);
    case FRXMessageType::FRXMessageTypeNotification:
    case FRXMessageType::FRXMessageTypeAltNotification:
      return notificationArrived(*socket, *message, text);
  }
  tally_->messages.unknownTypes.add();
  FRX_LOG_WARN(
      "Received message that was either not a FRXWebsocketMessage, or has an unsupported message type: " +
      std::string(text));
}

void FRXWebsocketConnectionManager::replyArrived(const FRXWebsocketMessage& message, std::string_view text) {
  if (!message.id()) return tally_->messages.unawaitedReplies.add();
  const auto node = messageResponseCallbacks_.extract(*message.id());
  if (node.empty()) return tally_->messages.unawaitedReplies.add();
  if (!node.mapped()) return;
  try {
    node.mapped()(std::string(text));
  } catch (const std::exception& failure) {
    FRX_LOG_ERROR(std::string("A reply handler failed: ") + failure.what());
  }
}

void FRXWebsocketConnectionManager::notificationArrived(const PeerSocket& socket,
                                                        const FRXWebsocketMessage& message,
                                                        std::string_view text) {
  const FRXNotification notification = FRXNotification::fromMessage(message);
  if (const auto sink = NotificationSink::registered()) {
    sink->postIncomingNotification(notification, message.serviceSessionId());
  }
  if (isTrue(notification.userInfo(), "shouldForward")) {
    return forward(std::string(text), socket.destinationAddress());
  }
  FRX_LOG_WARN("Unable to resolve sender address: " + notification.sender().value_or("(null)"));
}

}  // namespace ferrox
