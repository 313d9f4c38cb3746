#include "Classes/Notifications/FRXNotificationCenter.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <iterator>

#include "Classes/Notifications/FRXNotification.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/MessageBroadcaster.h"
#include "Platform/Base/Registration.h"
#include "Platform/Log/Log.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox {
namespace {

constexpr std::size_t fewObservations = 32;

void callSafely(const char* whom, const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& problem) {
    FRX_LOG_ERROR(std::string(whom) + " threw: " + problem.what());
  } catch (...) {
    FRX_LOG_ERROR(std::string(whom) + " threw");
  }
}

bool isSameObserver(const std::weak_ptr<const void>& a, const std::shared_ptr<const void>& b) {
  return !a.owner_before(b) && !b.owner_before(a);
}

std::shared_ptr<FRXNotificationCenter> makeShared() {
  FRXNotificationCenterParts parts;
  parts.mainLoop = &RunLoop::main();
  parts.dispatcher = &NotificationDispatcher::defaultCenter();
  parts.broadcaster = Registration<MessageBroadcaster>::current;
  parts.serviceWithId = LocalServiceDirectory::serviceWithId;
  auto center = FRXNotificationCenter::make(std::move(parts));
  if (!NotificationSink::registered()) NotificationSink::setRegistered(center);
  return center;
}

}  // namespace

const std::shared_ptr<FRXNotificationCenter>& FRXNotificationCenter::sharedCenter() {
  // Never destroyed: other threads may still post while the process ends.
  static const auto& center = *new std::shared_ptr<FRXNotificationCenter>(makeShared());
  return center;
}

std::shared_ptr<FRXNotificationCenter> FRXNotificationCenter::make(FRXNotificationCenterParts parts) {
  assert(parts.mainLoop != nullptr && parts.dispatcher != nullptr);
  return std::shared_ptr<FRXNotificationCenter>(new FRXNotificationCenter(std::move(parts)));
}

FRXNotificationCenter::FRXNotificationCenter(FRXNotificationCenterParts parts)
    : parts_(std::move(parts)), observationsToSweepAt_(fewObservations) {}

FRXNotificationCenter::~FRXNotificationCenter() = default;

// Observing

FRXNotificationCenter::Observation FRXNotificationCenter::addObserver(
    std::optional<std::string> name, const std::optional<std::string>& notificationFilter, Handler handler) {
  return parts_.dispatcher->addObserver(std::move(name), registerNotificationFilter(notificationFilter),
                                        std::move(handler));
}

void FRXNotificationCenter::addObservation(std::weak_ptr<const void> observer, Handler handler,
                                           std::optional<std::string> name,
                                           const std::optional<std::string>& notificationFilter) {
  if (observer.expired()) return;
  const FilterToken filter = registerNotificationFilter(notificationFilter);
  Observation observation = parts_.dispatcher->addObserver(name, filter, std::move(handler));

  // Those whose observers are gone; they end outside the lock.
  std::vector<ObservationRecord> ended;
  const MutexLock lock(mutex_);
  if (observations_.size() >= observationsToSweepAt_) {
    const auto gone = std::partition(observations_.begin(), observations_.end(),
                                     [](const auto& record) { return !record.observer.expired(); });
    std::move(gone, observations_.end(), std::back_inserter(ended));
    observations_.erase(gone, observations_.end());
    observationsToSweepAt_ = std::max(fewObservations, 2 * observations_.size());
  }
  observations_.push_back({std::move(observer), std::move(name), filter, std::move(observation)});
}

void FRXNotificationCenter::removeObserver(const std::shared_ptr<const void>& observer,
                                           const std::optional<std::string>& name,
                                           const std::optional<std::string>& notificationFilter) {
  if (observer == nullptr) return;
  std::vector<Observation> ended;
  {
    const FilterToken filter = notificationFilter ? existingToken(*notificationFilter) : nullptr;
    if (notificationFilter && filter == nullptr) return;
    const MutexLock lock(mutex_);
    std::erase_if(observations_, [&](ObservationRecord& record) {
      if (!isSameObserver(record.observer, observer)) return false;
      if ((name && record.name != name) || (filter != nullptr && record.filter != filter)) return false;
      ended.push_back(std::move(record.observation));
      return true;
    });
  }
  for (const Observation& observation : ended) parts_.dispatcher->removeObserver(observation);
}

FRXNotificationCenter::FilterToken FRXNotificationCenter::registerNotificationFilter(
    const std::optional<std::string>& notificationFilter) {
  if (!notificationFilter) return nullptr;
  const MutexLock lock(mutex_);
  return &*filters_.insert(*notificationFilter).first;
}

FRXNotificationCenter::FilterToken FRXNotificationCenter::existingToken(const std::string& filter) const {
  const MutexLock lock(mutex_);
  const auto found = filters_.find(filter);
  return found == filters_.end() ? nullptr : &*found;
}

// Posting here

void FRXNotificationCenter::post(const std::string& name, FRXDictionary userInfo,
                                 const std::optional<std::string>& filter) {
  FilterToken token = nullptr;
  if (filter) {
    // A text without a token has no observers of its own. It gets none here: peers could fill the memory with
    // ever new filters. Its own address tells it from every token.
    token = existingToken(*filter);
    if (token == nullptr) token = &*filter;
  }
  parts_.dispatcher->post({name, token, std::move(userInfo)});
}

void FRXNotificationCenter::postLocalNotification(const std::string& name, const FRXDictionary& userInfo,
                                                  const std::optional<std::string>& notificationFilter) {
  post(name, userInfo, notificationFilter ? notificationFilter : FRXUtilities::currentDeviceFRXId());
}

void FRXNotificationCenter::postIncomingNotification(const FRXNotification& notification,
                                                     const std::string& withServiceSessionId) {
  if (parts_.mainLoop->isCurrentThread()) return deliver(notification, withServiceSessionId);
  parts_.mainLoop->post([weak = weak_from_this(), notification, withServiceSessionId] {
    if (const auto center = weak.lock()) center->deliver(notification, withServiceSessionId);
  });
}

void FRXNotificationCenter::deliver(const FRXNotification& notification,
                                    const std::string& serviceSessionId) {
  ++received_;
  FRXDictionary userInfo = notification.userInfo();
  userInfo.insert_or_assign("timestamp", notification.timestamp());
  userInfo.insert_or_assign("sender", notification.sender().value_or(""));
  userInfo.insert_or_assign("filter", notification.filter().value_or(""));
  post(notification.name().value_or(""), std::move(userInfo),
       notification.filter() ? notification.filter() : notification.sender());
  tellDelegate(notification, serviceSessionId);
}

void FRXNotificationCenter::tellDelegate(const FRXNotification& notification,
                                         const std::string& serviceSessionId) const {
  if (!notification.sender() || !parts_.serviceWithId) return;
  const std::shared_ptr<FRXNetService> peer = parts_.serviceWithId(*notification.sender());
  if (peer == nullptr) return;
  delegate_.notify(
      &FRXMessageReceivedRespondingSelectors::frxMessageReceived, [&](FRXMessageReceivedDelegate& listener) {
        callSafely("The notification center's listener",
                   [&] { listener.frxMessageWasReceived(notification, peer, serviceSessionId); });
      });
}

// Sending

void FRXNotificationCenter::postOutgoingNotification(const std::string& name, const FRXDictionary& userInfo,
                                                     const std::optional<std::string>& notificationFilter,
                                                     bool repostMostRecentOnNewConnecion) {
  FRXWebsocketMessage message(FRXMessageType::FRXMessageTypeNotification, name, notificationFilter, userInfo);
  if (!message.isWritable()) {
    unwritable_.add();
    FRX_LOG_WARN("Notification " + name + " is not sent: it holds what JSON cannot carry");
    return;
  }
  sendInTurn([this, message = std::move(message), keep = repostMostRecentOnNewConnecion] {
    broadcast(message, keep);
  });
}

void FRXNotificationCenter::repostNotificationsToService(const std::string& serviceId) {
  sendInTurn([this, serviceId] { repost(serviceId); });
}

void FRXNotificationCenter::broadcast(const FRXWebsocketMessage& message, bool keep) {
  ++posted_;
  if (keep) notificationsToRepost_.insert_or_assign(message.subject().value_or(""), message);
  const auto broadcaster = parts_.broadcaster ? parts_.broadcaster() : nullptr;
  if (broadcaster != nullptr) broadcaster->broadcastMessage(message);
}

void FRXNotificationCenter::repost(const std::string& serviceId) {
  const auto broadcaster = parts_.broadcaster ? parts_.broadcaster() : nullptr;
  if (broadcaster == nullptr) return;
  for (const auto& [name, message] : notificationsToRepost_) {
    broadcaster->broadcastMessage(message, serviceId);
    ++reposted_;
  }
}

FRXNotificationStatistics FRXNotificationCenter::statistics() const {
  assert(parts_.mainLoop->isCurrentThread());
  FRXNotificationStatistics statistics{.posted = posted_,
                                       .reposted = reposted_,
                                       .received = received_,
                                       .unwritable = unwritable_.value(),
                                       .kept = notificationsToRepost_.size()};
  const MutexLock lock(mutex_);
  statistics.waiting = toSend_.size();
  return statistics;
}

/// All sending goes through one queue. On the main thread it is worked off at once, but a post from inside a
/// send (a listener may be told of each message) waits until that is through with all peers: the same order
/// for each of them.
void FRXNotificationCenter::sendInTurn(std::function<void()> send) {
  {
    const MutexLock lock(mutex_);
    toSend_.push_back(std::move(send));
  }
  parts_.mainLoop->postOrRun([weak = weak_from_this()] {
    if (const auto center = weak.lock()) center->sendAll();
  });
}

std::function<void()> FRXNotificationCenter::nextToSend() {
  const MutexLock lock(mutex_);
  if (toSend_.empty()) return nullptr;
  std::function<void()> next = std::move(toSend_.front());
  toSend_.pop_front();
  return next;
}

void FRXNotificationCenter::sendAll() {
  assert(parts_.mainLoop->isCurrentThread());
  if (isSending_) return;
  isSending_ = true;
  while (const auto send = nextToSend()) callSafely("Sending a notification", send);
  isSending_ = false;
}

}  // namespace ferrox
