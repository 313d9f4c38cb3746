#include "Classes/WebSockets/FRXWebsocket.h"

#include <utility>

#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Classes/Notifications/FRXNotification.h"
#include "Classes/Notifications/NotificationSink.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/Log/Log.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox {

std::shared_ptr<FRXWebsocket> FRXWebsocket::initWithRequest(const HTTPRequest*,
                                                            std::optional<std::string> frxId,
                                                            std::shared_ptr<WebSocketTransport> socket,
                                                            RunLoop& mainLoop) {
  if (!socket) return nullptr;
  std::shared_ptr<FRXWebsocket> made(new FRXWebsocket(std::move(frxId), std::move(socket), mainLoop));
  made->setDelegate(made);
  if (made->frxId_ && LocalServiceDirectory::serviceWithId(*made->frxId_)) {
    mainLoop.post([frxId = *made->frxId_] {
      if (const auto sink = NotificationSink::registered()) sink->repostNotificationsToService(frxId);
    });
  }
  return made;
}

void FRXWebsocket::acceptUpgrades(RunLoop& mainLoop) {
  // The first of these reads the schema from disk, which no network thread may do.
  const FRXGraphQLInterpreter readsTheSchema;
  RoutingHTTPConnection::setWebSocketFactory([&mainLoop](const HTTPRequest* request, const std::string& frxId,
                                                         std::shared_ptr<WebSocketTransport> transport) {
    return initWithRequest(request, frxId, std::move(transport), mainLoop);
  });
}

FRXWebsocket::FRXWebsocket(std::optional<std::string> frxId, std::shared_ptr<WebSocketTransport> socket,
                           RunLoop& mainLoop)
    : WebSocket(std::move(socket)), frxId_(std::move(frxId)), mainLoop_(mainLoop) {}

std::string FRXWebsocket::formattedAddress() const {
  return connectedHost() + ":" + std::to_string(localPort());
}

void FRXWebsocket::webSocketDidOpen(WebSocket&) {
  FRX_LOG_VERBOSE("Websocket opened: " + formattedAddress());
}

void FRXWebsocket::webSocketDidClose(WebSocket&) {
  FRX_LOG_VERBOSE("Websocket closed: " + formattedAddress());
}

void FRXWebsocket::webSocketDidReceiveMessage(WebSocket&, std::string_view text) {
  FRX_LOG_VERBOSE("Websocket received message from " + formattedAddress());
  FRXError error;
  const auto message = FRXWebsocketMessage::fromJson(text, &error);
  if (!message) {
    FRX_LOG_WARN("Unable to create FRXWebsocketMessage from message sent by " + formattedAddress() + ": " +
                 error.localizedDescription);
    return;
  }
  switch (message->messageType()) {
    case FRXMessageType::FRXMessageTypeHeartbeat:
      return answerHeartbeat();
    case FRXMessageType::FRXMessageTypeQuery:
      return answerQuery(*message);
    case FRXMessageType::FRXMessageTypeNotification:
    case FRXMessageType::FRXMessageTypeAltNotification:
      return deliver(*message, text.size());
  }
}

void FRXWebsocket::answerHeartbeat() {
  sendJson({FRXMessageType::FRXMessageTypeHeartbeat, std::nullopt, std::nullopt, std::nullopt});
}

void FRXWebsocket::answerQuery(const FRXWebsocketMessage& request) {
  if (!request.id()) {
    // Without an id no answer could be told from any other.
    FRX_LOG_WARN("Dropped a query without an id from " + formattedAddress());
    return;
  }
  graphQLInterpreter_.query(
      request.message(), [weak = weak_from_this(), request](const std::string& response) {
        const auto socket = weak.lock();
        if (!socket) return;
        socket->sendJson(
            FRXWebsocketMessage::responseToMessage(&request, request.subject(), response, std::nullopt));
      });
}

void FRXWebsocket::deliver(const FRXWebsocketMessage& message, std::size_t sizeInBytes) {
  const bool tooMuch = undelivered_.fetch_add(sizeInBytes) + sizeInBytes > undeliveredLimit;
  mainLoop_.post([weak = weak_from_this(), notification = FRXNotification::fromMessage(message),
                  sessionId = message.serviceSessionId(), sizeInBytes] {
    if (const auto sink = NotificationSink::registered()) {
      sink->postIncomingNotification(notification, sessionId);
    }
    const auto socket = weak.lock();
    if (!socket) return;
    const std::size_t before = socket->undelivered_.fetch_sub(sizeInBytes);
    // Read again once, when half of it is taken.
    const std::size_t after = before - sizeInBytes;
    if (before > undeliveredLimit / 2 && after <= undeliveredLimit / 2) socket->setReading(true);
  });
  if (!tooMuch) return;
  setReading(false);
  // The main thread may have caught up before the pause; nobody else would end it then.
  if (undelivered_ <= undeliveredLimit / 2) setReading(true);
}

void FRXWebsocket::sendJson(const FRXWebsocketMessage& message) {
  if (auto json = message.toJson()) sendMessage(std::move(*json));
}

}  // namespace ferrox
