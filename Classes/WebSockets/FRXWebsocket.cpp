#include "Classes/WebSockets/FRXWebsocket.h"

#include <utility>

#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Classes/Notifications/FRXNotification.h"
#include "Classes/Notifications/NotificationSink.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Classes/WebSockets/InboundSockets.h"
#include "Platform/Log/Log.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox {

std::shared_ptr<FRXWebsocket> FRXWebsocket::initWithRequest(const HTTPRequest*,
                                                            std::optional<std::string> frxId,
                                                            std::shared_ptr<WebSocketTransport> socket,
                                                            RunLoop& mainLoop,
                                                            std::shared_ptr<InboundSockets> countedBy) {
  if (!socket) return nullptr;
  if (!countedBy) countedBy = InboundSockets::shared();
  std::shared_ptr<FRXWebsocket> made(
      new FRXWebsocket(std::move(frxId), std::move(socket), mainLoop, std::move(countedBy)));
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
                           RunLoop& mainLoop, std::shared_ptr<InboundSockets> countedBy)
    : WebSocket(std::move(socket)),
      frxId_(std::move(frxId)),
      mainLoop_(mainLoop),
      countedBy_(std::move(countedBy)) {}

FRXWebsocket::~FRXWebsocket() { countedBy_->didEnd(*this); }

std::string FRXWebsocket::formattedAddress() const {
  return connectedHost() + ":" + std::to_string(localPort());
}

void FRXWebsocket::webSocketDidOpen(WebSocket&) {
  countedBy_->didOpen(*this);
  FRX_LOG_VERBOSE("Websocket opened: " + formattedAddress());
}

void FRXWebsocket::webSocketDidClose(WebSocket&) {
  countedBy_->didEnd(*this);
  countedBy_->messages.didRefuse(transport().refusal());
  if (transport().wasOverfull()) countedBy_->messages.overfullQueues.add();
  FRX_LOG_VERBOSE("Websocket closed: " + formattedAddress());
}

void FRXWebsocket::webSocketDidReceiveMessage(WebSocket&, std::string_view text) {
  countedBy_->messages.didReceive(text.size());
  FRX_LOG_VERBOSE("Websocket received message from " + formattedAddress());
  FRXError error;
  const auto message = FRXWebsocketMessage::fromJson(text, &error);
  if (!message) {
    countedBy_->messages.malformed.add();
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
  countedBy_->messages.unknownTypes.add();
}

void FRXWebsocket::answerHeartbeat() {
  sendJson({FRXMessageType::FRXMessageTypeHeartbeat, std::nullopt, std::nullopt, std::nullopt});
}

void FRXWebsocket::answerQuery(const FRXWebsocketMessage& request) {
  if (!request.id()) {
    // Without an id no answer could be told from any other.
    countedBy_->messages.queriesWithoutId.add();
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
  auto json = message.toJson();
  if (!json) return countedBy_->messages.unwritable.add();
  const std::size_t size = json->size();
  if (sendMessage(std::move(*json))) countedBy_->messages.didSend(1, size);
}

}  // namespace ferrox
