#include "Apps/ferrox/Node/NodeMessaging.h"

#include <utility>

#include "Classes/Notifications/FRXNotification.h"
#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"
#include "Platform/WebSocket/WebSocketClient.h"

namespace ferrox::command {
namespace {

FRXNotificationCenter& center() { return *FRXNotificationCenter::sharedCenter(); }

std::optional<std::string> unlessEmpty(std::string text) {
  return text.empty() ? std::nullopt : std::optional(std::move(text));
}

// Takes the entry out of the payload.
std::string takeText(FRXDictionary& userInfo, std::string_view key) {
  const auto node = userInfo.extract(userInfo.find(key));
  const std::string* text = node.empty() ? nullptr : node.mapped().asText();
  return text == nullptr ? std::string() : *text;
}

// The center adds the three to what a peer sent; a date among them cannot come from anywhere else.
SeenNotification fromPeer(const LocalNotification& notification, FRXDate timestamp) {
  SeenNotification seen{notification.name, {}, {}, timestamp, notification.userInfo, false};
  seen.userInfo.erase(seen.userInfo.find("timestamp"));
  seen.sender = takeText(seen.userInfo, "sender");
  seen.filter = unlessEmpty(takeText(seen.userInfo, "filter"));
  return seen;
}

SeenNotification fromHere(const LocalNotification& notification) {
  const std::string self = FRXUtilities::currentDeviceFRXId().value_or("");
  SeenNotification seen{notification.name,     {},  self, std::chrono::system_clock::now(),
                        notification.userInfo, true};
  const auto* filter = static_cast<FRXNotificationCenter::FilterToken>(notification.sender);
  // Posted without a filter, it goes out under this device's own id.
  if (filter != nullptr && *filter != self) seen.filter = *filter;
  return seen;
}

}  // namespace

std::shared_ptr<NodeMessaging> NodeMessaging::make(NodeListener& listener, Handlers handlers) {
  return std::shared_ptr<NodeMessaging>(new NodeMessaging(listener, std::move(handlers)));
}

NodeMessaging::NodeMessaging(NodeListener& listener, Handlers handlers)
    : listener_(listener), handlers_(std::move(handlers)) {}

NodeMessaging::~NodeMessaging() = default;

void NodeMessaging::start() {
  center().setDelegate(shared_from_this());
  FRXWebsocketConnectionManager::sharedManager()->setDelegate(shared_from_this());
  watchConnections(FRXConnectedNotification, ConnectionEvent::Change::Connected);
  watchConnections(FRXConnectionFailedWithErrorNotification, ConnectionEvent::Change::Failed);
  watchConnections(FRXDisconnectedNotification, ConnectionEvent::Change::Disconnected);
}

void NodeMessaging::watchConnections(const char* name, ConnectionEvent::Change change) {
  connectionObservers_.push_back(
      center().addObserver(name, std::nullopt, [this, change](const LocalNotification& notification) {
        handlers_.onConnection(change, notification.userInfo);
        closedSome();
      }));
}

void NodeMessaging::stop() {
  closeDeadline_.reset();
  onClosed_ = nullptr;
  closing_.clear();
  observations_.clear();
  connectionObservers_.clear();
  center().setDelegate(nullptr);
  FRXWebsocketConnectionManager::sharedManager()->setDelegate(nullptr);
}

void NodeMessaging::closeConnections(std::chrono::milliseconds atMost, std::function<void()> completion) {
  const auto& manager = FRXWebsocketConnectionManager::sharedManager();
  closing_ = manager->websockets();
  onClosed_ = std::move(completion);
  closeDeadline_ = Timer::scheduleOnce(RunLoop::main(), atMost, [this] { endClosing(); });
  manager->stop();
  closedSome();
}

// A socket's state has changed before anybody is told.
void NodeMessaging::closedSome() {
  if (!onClosed_) return;
  std::erase_if(closing_,
                [](const auto& socket) { return socket->readyState() == WebSocketReadyState::Closed; });
  if (closing_.empty()) endClosing();
}

void NodeMessaging::endClosing() {
  closing_.clear();
  // Later, not inside the event that the last socket ended with.
  if (onClosed_) RunLoop::main().post(std::exchange(onClosed_, nullptr));
}

std::vector<std::shared_ptr<FRXNetService>> NodeMessaging::post(const Post& post) {
  std::vector<std::shared_ptr<FRXNetService>> recipients;
  recipients_ = &recipients;
  center().postOutgoingNotification(post.name, post.userInfo, post.filter, post.repost);
  recipients_ = nullptr;
  return recipients;
}

void NodeMessaging::postLocal(const Post& post) {
  center().postLocalNotification(post.name, post.userInfo, post.filter);
}

void NodeMessaging::observe(const Observation& observation) {
  NotificationDispatcher::TokenRef& token = observations_[observation];
  if (token) return;
  token = center().addObserver(
      observation.name, observation.filter,
      [this, observation](const LocalNotification& notification) { see(observation, notification); });
}

bool NodeMessaging::unobserve(const Observation& observation) {
  // The token outlives its place in the table: this may be called by an observer.
  const auto node = observations_.extract(observation);
  return !node.empty();
}

void NodeMessaging::see(const Observation& observation, const LocalNotification& notification) {
  if (observation.filter && observations_.contains({observation.name, std::nullopt})) return;
  const auto timestamp = notification.userInfo.find("timestamp");
  const FRXDate* date = timestamp == notification.userInfo.end() ? nullptr : timestamp->second.asDate();
  listener_.notificationSeen(date != nullptr ? fromPeer(notification, *date) : fromHere(notification));
}

void NodeMessaging::frxMessageWasReceived(const FRXNotification& notification,
                                          const std::shared_ptr<FRXNetService>& fromSender,
                                          const std::string& withServiceSessionId) {
  handlers_.onMessage(notification, *fromSender);
  listener_.messageReceived(notification, *fromSender, withServiceSessionId);
}

void NodeMessaging::frxMessageWasSent(const FRXWebsocketMessage& message,
                                      const std::shared_ptr<FRXNetService>& toRecipient) {
  if (recipients_ != nullptr) recipients_->push_back(toRecipient);
  listener_.messageSent(message, *toRecipient);
}

}  // namespace ferrox::command
