// Where notifications are raised and observed: in this process, to all peers, and from them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Classes/Notifications/FRXMessageReceivedDelegate.h"
#include "Classes/Notifications/FRXNotificationStatistics.h"
#include "Classes/Notifications/NotificationSink.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/Base/Counter.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"
#include "Platform/Base/ListenerSlot.h"
#include "Platform/Base/Mutex.h"
#include "Platform/Notifications/NotificationDispatcher.h"

namespace ferrox {

class FRXNetService;
class MessageBroadcaster;
class RunLoop;

/// What a center is put together with. `mainLoop` and `dispatcher` are borrowed; the functions may be left
/// out, then there is nobody to send through, and no peer is known.
struct FRXNotificationCenterParts {
  RunLoop* mainLoop = nullptr;
  NotificationDispatcher* dispatcher = nullptr;
  /// Asked whenever there is something to send, on the main thread; may answer nobody.
  std::function<std::shared_ptr<MessageBroadcaster>()> broadcaster;
  /// Answers the known peer that published this service id.
  std::function<std::shared_ptr<FRXNetService>(const std::string& serviceId)> serviceWithId;
};

/// A member function of an observer that takes a notification.
template <typename Selector, typename Observer>
concept NotificationSelector = std::is_member_function_pointer_v<Selector> &&
    std::is_invocable_v<Selector, Observer&, const LocalNotification&>;

/// Observers subscribe to a name and, optionally, to one filter: they are then called only for posts with
/// equal filter text; those without a filter are called for every post of the name. Delivery is synchronous,
/// on the posting thread. Observers may add and remove observers and post while they are called; one that is
/// gone or was removed before its turn is not called.
///
/// Three kinds of posts: local ones stay in this process; outgoing ones go to all connected peers, and not to
/// the observers here; incoming ones come from a peer and go to the observers here.
/// Thread: any, unless said otherwise
class FRX_EXPORT FRXNotificationCenter : public NotificationSink,
                                         public std::enable_shared_from_this<FRXNotificationCenter> {
 public:
  using Handler = NotificationDispatcher::Handler;
  /// Keeps an observer registered for as long as it lives.
  using Observation = NotificationDispatcher::TokenRef;
  /// Stands for a filter text: equal texts have the same token, for as long as the center lives.
  using FilterToken = const std::string*;

  /// The process's center, over the process's dispatcher and main loop, made on first use. It then becomes
  /// the registered `NotificationSink`, unless there is one, and sends through the registered
  /// `MessageBroadcaster`, if any.
  static const std::shared_ptr<FRXNotificationCenter>& sharedCenter();
  /// A center of one's own.
  static std::shared_ptr<FRXNotificationCenter> make(FRXNotificationCenterParts parts);
  ~FRXNotificationCenter() override;
  FRXNotificationCenter(const FRXNotificationCenter&) = delete;
  FRXNotificationCenter& operator=(const FRXNotificationCenter&) = delete;

  // Observing

  /// Calls `(observer->*selector)(const LocalNotification&)` for each post of `name` (of every name when
  /// absent) with `notificationFilter` (with any or none when absent). The observer is held weakly. Added
  /// twice, it is called twice. The notification's `sender` is the filter's token.
  template <typename Observer, NotificationSelector<Observer> Selector>
  void addObserver(const std::shared_ptr<Observer>& observer, Selector selector,
                   std::optional<std::string> name,  // NOLINT(performance-unnecessary-value-param): moved
                   const std::optional<std::string>& notificationFilter = std::nullopt) {
    addObservation(
        observer,
        [weak = std::weak_ptr<Observer>(observer), selector](const LocalNotification& notification) {
          if (const std::shared_ptr<Observer> alive = weak.lock()) ((*alive).*selector)(notification);
        },
        std::move(name), notificationFilter);
  }
  /// The same for a function; it is called until the last reference to the result is gone.
  [[nodiscard]] Observation addObserver(std::optional<std::string> name,
                                        const std::optional<std::string>& notificationFilter,
                                        Handler handler);
  /// Ends what `addObserver` began for the observer, under that name and filter; an absent name or filter
  /// stands for all. A call that is under way on another thread is not waited for.
  void removeObserver(const std::shared_ptr<const void>& observer,
                      const std::optional<std::string>& name = std::nullopt,
                      const std::optional<std::string>& notificationFilter = std::nullopt);

  /// The token of a filter text, made on first use; nothing for no text. It is what the dispatcher knows as
  /// the sender of posts with that filter.
  FilterToken registerNotificationFilter(const std::optional<std::string>& notificationFilter);

  // Posting

  /// To the observers here. Without a filter under this device's own id.
  void postLocalNotification(const std::string& name, const FRXDictionary& userInfo,
                             const std::optional<std::string>& notificationFilter = std::nullopt) override;
  /// To every connected peer, from the main thread: at once when called there, else soon. Posts of one thread
  /// keep their order. With `repostMostRecentOnNewConnecion` the message is kept, in place of any earlier one
  /// of that name, for peers that connect later; without, an earlier one stays. What JSON cannot carry
  /// (`writeJson`) is neither sent nor kept, and logged at WARN.
  void postOutgoingNotification(const std::string& name, const FRXDictionary& userInfo,
                                const std::optional<std::string>& notificationFilter,
                                bool repostMostRecentOnNewConnecion);
  /// To the observers here, and to the listener if the sender is a known peer. They get the notification's
  /// user info and, in place of entries of these names, "timestamp" (a date), "sender" and "filter" (texts,
  /// "" for none). Without a filter it is posted under its sender. On another thread than the main one it is
  /// handed to that.
  void postIncomingNotification(const FRXNotification& notification,
                                const std::string& withServiceSessionId) override;
  /// Sends that peer the latest message of each name that is kept for reposting, unchanged: with the id and
  /// the timestamp it was first posted with.
  void repostNotificationsToService(const std::string& serviceId) override;

  // The listener

  /// Held weakly; told on the main thread.
  template <typename Listener>
  void setDelegate(const std::shared_ptr<Listener>& listener) {
    delegate_.set(listener);
  }
  void setDelegate(std::nullptr_t) { delegate_.set(nullptr); }
  std::shared_ptr<FRXMessageReceivedDelegate> delegate() const { return delegate_.listener(); }
  FRXMessageReceivedRespondingSelectors respondingSelectors() const {
    return delegate_.respondingSelectors();
  }

  /// Counted since the center was made. Thread: main
  FRXNotificationStatistics statistics() const;

 private:
  struct ObservationRecord {
    std::weak_ptr<const void> observer;
    std::optional<std::string> name;
    FilterToken filter = nullptr;
    Observation observation;
  };

  explicit FRXNotificationCenter(FRXNotificationCenterParts parts);
  void addObservation(std::weak_ptr<const void> observer, Handler handler, std::optional<std::string> name,
                      const std::optional<std::string>& notificationFilter);
  FilterToken existingToken(const std::string& filter) const;
  void post(const std::string& name, FRXDictionary userInfo, const std::optional<std::string>& filter);
  void deliver(const FRXNotification& notification, const std::string& serviceSessionId);
  void tellDelegate(const FRXNotification& notification, const std::string& serviceSessionId) const;
  void sendInTurn(std::function<void()> send);
  std::function<void()> nextToSend();
  void sendAll();
  void broadcast(const FRXWebsocketMessage& message, bool keep);
  void repost(const std::string& serviceId);

  const FRXNotificationCenterParts parts_;
  ListenerSlot<FRXMessageReceivedDelegate, FRXMessageReceivedRespondingSelectors> delegate_;

  Counter unwritable_;

  mutable Mutex mutex_;
  // Nodes of a set stay where they are: the address of a text is its token.
  std::set<std::string, std::less<>> filters_ FRX_GUARDED_BY(mutex_);
  std::vector<ObservationRecord> observations_ FRX_GUARDED_BY(mutex_);
  std::size_t observationsToSweepAt_ FRX_GUARDED_BY(mutex_);
  std::deque<std::function<void()>> toSend_ FRX_GUARDED_BY(mutex_);

  // Main thread only
  std::map<std::string, FRXWebsocketMessage, std::less<>> notificationsToRepost_;
  bool isSending_ = false;
  std::uint64_t posted_ = 0;
  std::uint64_t reposted_ = 0;
  std::uint64_t received_ = 0;
};

}  // namespace ferrox
