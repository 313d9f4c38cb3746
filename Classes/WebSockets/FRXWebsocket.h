// The server side of a peer's connection: answers heartbeats and queries, hands notifications on.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/GraphQL/FRXGraphQLInterpreter.h"
#include "Platform/Base/Export.h"
#include "Platform/WebSocket/WebSocket.h"

namespace ferrox {

class FRXWebsocketMessage;
class HTTPRequest;
class InboundSockets;
class RunLoop;

/// Never begins anything: all it sends is an answer on the same connection. Its own delegate.
/// Thread: network
class FRX_EXPORT FRXWebsocket final : public WebSocket,
                                      public WebSocketListener,
                                      public std::enable_shared_from_this<FRXWebsocket> {
 public:
  /// `frxId` is the connecting peer's service id. A peer that is known gets the latest of what is kept for
  /// late joiners, over this instance's own connection to it. Notifications are delivered on `mainLoop`.
  /// Counted among the process's sockets unless said otherwise.
  static std::shared_ptr<FRXWebsocket> initWithRequest(const HTTPRequest* request,
                                                       std::optional<std::string> frxId,
                                                       std::shared_ptr<WebSocketTransport> socket,
                                                       RunLoop& mainLoop,
                                                       std::shared_ptr<InboundSockets> countedBy = nullptr);
  /// Has the routing layer make one of these for every upgrade. Thread: any
  static void acceptUpgrades(RunLoop& mainLoop);
  ~FRXWebsocket() override;

  const std::optional<std::string>& frxId() const { return frxId_; }
  const FRXGraphQLInterpreter& graphQLInterpreter() const { return graphQLInterpreter_; }
  /// The peer's address and this side's port, "10.0.0.7:16654", for logging.
  std::string formattedAddress() const;
  /// Of messages that the main thread has not taken yet. Thread: any
  std::size_t undeliveredBytes() const { return undelivered_.load(std::memory_order_relaxed); }

  void webSocketDidOpen(WebSocket& socket) override;
  void webSocketDidReceiveMessage(WebSocket& socket, std::string_view text) override;
  void webSocketDidClose(WebSocket& socket) override;

  /// Bytes of messages that the main thread has not taken yet; a peer that sends more is not read any further
  /// until it has caught up.
  static constexpr std::size_t undeliveredLimit = std::size_t{1} << 20;

 private:
  FRXWebsocket(std::optional<std::string> frxId, std::shared_ptr<WebSocketTransport> socket,
               RunLoop& mainLoop, std::shared_ptr<InboundSockets> countedBy);

  void answerHeartbeat();
  void answerQuery(const FRXWebsocketMessage& request);
  void deliver(const FRXWebsocketMessage& message, std::size_t sizeInBytes);
  void sendJson(const FRXWebsocketMessage& message);

  const std::optional<std::string> frxId_;
  const FRXGraphQLInterpreter graphQLInterpreter_{};
  RunLoop& mainLoop_;
  const std::shared_ptr<InboundSockets> countedBy_;
  std::atomic<std::size_t> undelivered_{0};
};

}  // namespace ferrox
