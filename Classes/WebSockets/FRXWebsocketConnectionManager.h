// Keeps one outbound WebSocket to every peer, and sends over them.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/WebSockets/DialSpread.h"
#include "Classes/WebSockets/FRXMessageSentDelegate.h"
#include "Classes/WebSockets/FRXMessagingStatistics.h"
#include "Classes/WebSockets/MessageBroadcaster.h"
#include "Classes/WebSockets/PeerConnector.h"
#include "Classes/WebSockets/PeerSocket.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/ListenerSlot.h"
#include "Platform/Base/Mutex.h"
#include "Platform/WebSocket/WebSocketClient.h"

namespace ferrox {

class ConnectionTally;
class FRXNetService;
class FRXNotification;
class FRXWebsocketMessage;
class RunLoop;
class SleepWatch;
class Timer;
struct PlatformServices;

/// What the manager asks of its surroundings. The functions are called on the main thread.
struct FRX_EXPORT FRXWebsocketConnectionManagerParts {
  RunLoop* mainLoop = nullptr;
  std::function<std::shared_ptr<WebSocketClient>(const WebSocketClientRequest& request, FRXError* error)>
      makeClient;
  /// Sends one text to many, framed once; answers how many took it.
  std::function<std::size_t(std::span<const std::shared_ptr<WebSocketClient>> clients, std::string_view text)>
      broadcast = &WebSocketClient::broadcast;
  /// The browser's answers.
  std::function<std::vector<std::shared_ptr<FRXNetService>>()> currentServices;
  std::function<std::optional<std::string>(const std::string& name)> idForServiceName;
  std::function<std::shared_ptr<FRXNetService>()> localFRXService;
  /// The machine has just woken up: what discovery knows may be old.
  std::function<void()> refreshDiscovery;

  /// Over the shared browser and real sockets.
  static FRXWebsocketConnectionManagerParts usual(const PlatformServices& services);
};

/// Posted locally, filtered by the peer's address, when the socket to a peer is open.
inline constexpr const char* FRXConnectedNotification = "FRXConnectedNotification";
/// The same when a socket could not be opened, or broke.
inline constexpr const char* FRXConnectionFailedWithErrorNotification =
    "FRXConnectionFailedWithErrorNotification";
/// The same when a socket was closed.
inline constexpr const char* FRXDisconnectedNotification = "FRXDisconnectedNotification";

/// Opens a socket when a peer is found or responsive again, and every 15.0 s opens the closed ones of peers
/// that are still known: one try a tick, without end. What cannot be sent at once is dropped. All failures
/// are logged and swallowed; the host learns of connections by the local notifications above.
/// Thread: any, unless said otherwise; everything happens on the main thread, at once for calls made there
class FRX_EXPORT FRXWebsocketConnectionManager
    : public PeerConnector,
      public MessageBroadcaster,
      private PeerSocketListener,
      public std::enable_shared_from_this<FRXWebsocketConnectionManager> {
 public:
  /// Takes the whole JSON text of a reply. Called on the main thread.
  using ResponseCallback = std::function<void(const std::string& json)>;
  using ErrorCallback = std::function<void(const FRXError& error)>;

  /// The process's manager, made on first use.
  static const std::shared_ptr<FRXWebsocketConnectionManager>& sharedManager();
  static std::shared_ptr<FRXWebsocketConnectionManager> make(FRXWebsocketConnectionManagerParts parts);
  ~FRXWebsocketConnectionManager() override;
  FRXWebsocketConnectionManager(const FRXWebsocketConnectionManager&) = delete;
  FRXWebsocketConnectionManager& operator=(const FRXWebsocketConnectionManager&) = delete;

  /// Sets who is told of each sent message, held weakly.
  template <typename Listener>
  void setDelegate(const std::shared_ptr<Listener>& listener) {
    if (delegate_.listener() != listener) delegate_.set(listener);
  }
  void setDelegate(std::nullptr_t) { delegate_.set(nullptr); }
  std::shared_ptr<FRXMessageSentDelegate> delegate() const { return delegate_.listener(); }

  // Connections

  /// Opens a socket to every peer that is known now, and watches the sockets from then on.
  void start() override;
  /// Closes all sockets. Replies that are still awaited may arrive after another `start()`.
  void stop() override;
  /// For a peer that is connected already, closes the socket instead, and the next tick opens it anew: what
  /// the peer is reachable under may have changed.
  void connectToService(const std::shared_ptr<FRXNetService>& service) override;
  /// Closes an open socket and forgets it.
  void disconnectFromService(const std::shared_ptr<FRXNetService>& service) override;
  void openWebsocketConnectionWithService(const std::optional<std::string>& serviceId);
  void closeWebsocket(const std::string& serviceId);
  /// By published service name.
  bool connectionIsOpenForService(const std::string& serviceName) const;
  bool isConnectedToService(const std::string& serviceId) const override;
  /// The filed sockets, in no particular order. Thread: main
  std::vector<std::shared_ptr<WebSocketClient>> websockets() const;

  /// Limits and intervals of the sockets that are opened from now on; the URL is ignored.
  void setConnectionSettings(const WebSocketClientRequest& settings);

  // Sending

  /// To every open socket; serialised once, and framed once.
  void broadcastMessage(const FRXWebsocketMessage& message) override;
  void broadcastMessage(const FRXWebsocketMessage& message, const std::string& toService) override;
  /// Sends a request and calls `onResponse` with the reply that carries its id. A peer that is not connected
  /// is sent nothing, and neither callback is ever called; nor is `onError` in any other case: callers set
  /// a time-out of their own. The same id filed again replaces the former callback.
  void broadcastMessage(const FRXWebsocketMessage& message, const std::string& toService,
                        ResponseCallback onResponse, ErrorCallback onError);
  /// The reply to the request of that id is no longer awaited; should it still arrive, nobody is told.
  void forgetReply(const std::string& messageId);
  /// Passes a peer's text on, unchanged, to all others; `fromSender` is its "HOST:port".
  void forwardMessage(const std::string& json, const std::string& fromSender);
  /// Tells the listener, if the peer is known.
  void messageWasSentTo(const FRXWebsocketMessage& message, const std::string& serviceId);

  static std::string connectionStatusToString(int state);

  /// Counted since it was made, over all stops and starts. Looks at every open socket. Thread: main
  FRXOutboundStatistics statistics() const;

 private:
  explicit FRXWebsocketConnectionManager(FRXWebsocketConnectionManagerParts parts);

  void onMain(std::function<void(FRXWebsocketConnectionManager&)> work);
  bool isMain() const;
  void startOnMain();
  void stopOnMain();
  void monitorConnections();
  void machineDidWake();
  void openSocket(const std::string& serviceId);
  void connect(const std::string& serviceId);
  void close(const std::string& serviceId);
  std::shared_ptr<PeerSocket> filed(const std::string& serviceId) const;
  void file(const std::shared_ptr<PeerSocket>& socket);
  /// Takes it out of the filed ones; it is kept until its connection has ended.
  void unfile(const std::shared_ptr<PeerSocket>& socket);
  void noteOpenSockets();

  bool send(PeerSocket& socket, const std::string& json);
  void broadcastJson(const FRXWebsocketMessage& message, const std::string& json);
  void sendJson(const FRXWebsocketMessage& message, const std::string& json, const std::string& toService);
  void request(const FRXWebsocketMessage& message, const std::string& json, const std::string& toService,
               ResponseCallback onResponse);
  void forward(const std::string& json, const std::string& fromSender);
  void tellDelegate(const FRXWebsocketMessage& message, const std::string& serviceId);

  void webSocketDidOpen(const std::shared_ptr<PeerSocket>& socket) override;
  void webSocketDidFailWithError(const std::shared_ptr<PeerSocket>& socket, const FRXError& error) override;
  void webSocketDidCloseWithCode(const std::shared_ptr<PeerSocket>& socket, int code,
                                 const std::string& reason, bool wasClean) override;
  void webSocketDidReceiveMessage(const std::shared_ptr<PeerSocket>& socket, std::string_view text) override;
  void detachedSocketDidEnd(const std::shared_ptr<PeerSocket>& socket) override;
  void replyArrived(const FRXWebsocketMessage& message, std::string_view text);
  void notificationArrived(const PeerSocket& socket, const FRXWebsocketMessage& message,
                           std::string_view text);

  const FRXWebsocketConnectionManagerParts parts_;
  ListenerSlot<FRXMessageSentDelegate, FRXMessageSentRespondingSelectors> delegate_;
  const std::unique_ptr<ConnectionTally> tally_;

  // Confined to the main thread.
  std::map<std::string, std::shared_ptr<PeerSocket>> websockets_;
  /// Dialling, or closing after they were taken out of the filed ones.
  std::set<std::shared_ptr<PeerSocket>> unfiled_;
  /// The filed sockets that are open, for broadcasts; the clients apart, as the platform wants them.
  std::vector<std::shared_ptr<PeerSocket>> openSockets_;
  std::vector<std::shared_ptr<WebSocketClient>> openClients_;
  std::map<std::string, ResponseCallback> messageResponseCallbacks_;
  std::unique_ptr<Timer> connectionMonitor_;
  /// Of earlier starts without a stop between them.
  std::vector<std::unique_ptr<Timer>> formerMonitors_;
  std::unique_ptr<SleepWatch> sleepWatch_;
  WebSocketClientRequest settings_;
  DialSpread dialSpread_;

  mutable Mutex openMutex_;
  std::set<std::string, std::less<>> openIds_ FRX_GUARDED_BY(openMutex_);
};

}  // namespace ferrox
