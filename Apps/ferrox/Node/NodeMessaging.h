// What a node says to its peers and hears from them, and what becomes of the connections to them.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Apps/ferrox/Node/NodeListener.h"
#include "Apps/ferrox/Node/Observation.h"
#include "Classes/Notifications/FRXMessageReceivedDelegate.h"
#include "Classes/WebSockets/FRXMessageSentDelegate.h"
#include "Platform/Notifications/NotificationDispatcher.h"

namespace ferrox {
class Timer;
class WebSocketClient;
struct LocalNotification;
}  // namespace ferrox

namespace ferrox::command {

/// One notification that is to be posted.
struct Post {
  std::string name;
  std::optional<std::string> filter;
  FRXDictionary userInfo;
  /// Peers that connect later get the latest one of the name.
  bool repost = false;
};

/// Over the process's notification center and connection manager. Thread: main
class NodeMessaging final : public FRXMessageReceivedDelegate,
                            public FRXMessageSentDelegate,
                            public std::enable_shared_from_this<NodeMessaging> {
 public:
  /// What the node has to know before the listener does.
  struct Handlers {
    std::function<void(ConnectionEvent::Change change, const FRXDictionary& userInfo)> onConnection;
    std::function<void(const FRXNotification& notification, const FRXNetService& sender)> onMessage;
  };

  /// `listener` is borrowed and outlives the object.
  static std::shared_ptr<NodeMessaging> make(NodeListener& listener, Handlers handlers);
  ~NodeMessaging() override;

  void start();
  /// Hears nothing any more.
  void stop();
  /// Closes every connection in order, so that what was posted before arrives; `completion` is called when
  /// the last peer has confirmed it, and at the latest after `atMost`.
  void closeConnections(std::chrono::milliseconds atMost, std::function<void()> completion);

  /// The peers that it was handed to the connections of.
  std::vector<std::shared_ptr<FRXNetService>> post(const Post& post);
  void postLocal(const Post& post);
  /// An observation without a filter covers those of its name that have one: nothing is reported twice.
  void observe(const Observation& observation);
  /// False when it was not observed.
  bool unobserve(const Observation& observation);

  void frxMessageWasReceived(const FRXNotification& notification,
                             const std::shared_ptr<FRXNetService>& fromSender,
                             const std::string& withServiceSessionId) override;
  void frxMessageWasSent(const FRXWebsocketMessage& message,
                         const std::shared_ptr<FRXNetService>& toRecipient) override;

 private:
  NodeMessaging(NodeListener& listener, Handlers handlers);
  void watchConnections(const char* name, ConnectionEvent::Change change);
  void see(const Observation& observation, const LocalNotification& notification);
  void closedSome();
  void endClosing();

  NodeListener& listener_;
  const Handlers handlers_;
  std::vector<NotificationDispatcher::TokenRef> connectionObservers_;
  std::map<Observation, NotificationDispatcher::TokenRef> observations_;
  /// While a post is under way, who is sent it.
  std::vector<std::shared_ptr<FRXNetService>>* recipients_ = nullptr;

  std::vector<std::shared_ptr<WebSocketClient>> closing_;
  std::function<void()> onClosed_;
  std::unique_ptr<Timer> closeDeadline_;
};

}  // namespace ferrox::command
