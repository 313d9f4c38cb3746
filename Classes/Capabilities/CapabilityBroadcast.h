// When the connected peers are told what a capability offers.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"
#include "Platform/Base/Mutex.h"
#include "Platform/Notifications/NotificationDispatcher.h"

namespace ferrox {

class FRXNotificationCenter;
class RunLoop;
class Timer;

/// What a capability asks of its surroundings; the parts that are left out are the process's own. Borrowed,
/// apart from the center.
struct CapabilityParts {
  RunLoop* mainLoop = nullptr;
  /// Where "FRXConnectedNotification" is heard.
  NotificationDispatcher* dispatcher = nullptr;
  std::shared_ptr<FRXNotificationCenter> center;
};

/// Posts an outgoing notification with the offers and this device's id: on request, and 5.0 s after the last
/// of a burst of new connections. Shared, since the capability may go on another thread while the main one is
/// at work here.
/// Thread: any; the delayed posts happen on the main thread
class FRX_EXPORT CapabilityBroadcast : public std::enable_shared_from_this<CapabilityBroadcast> {
 public:
  static constexpr std::chrono::seconds delayAfterConnection{5};

  /// How the notification is called, the member of its user info, and what that holds.
  struct Content {
    std::string notificationName;
    std::string userInfoKey;
    std::function<FRXArray()> offers;
  };

  /// Listens for new connections from then on.
  static std::shared_ptr<CapabilityBroadcast> make(Content content, CapabilityParts parts);
  ~CapabilityBroadcast();

  /// Tells everybody who is connected now.
  void post() const;
  /// Tells them in 5.0 s, and not at the time that was planned before.
  void postAfterConnection();
  /// Stops listening, then forgets what was planned.
  void end();
  /// What was planned last: no longer valid once it has happened. Nothing before the first connection.
  std::shared_ptr<const Timer> throttleTimer() const;

 private:
  CapabilityBroadcast(Content content, CapabilityParts parts);
  void listen();
  void schedule();

  const Content content_;
  const CapabilityParts parts_;

  mutable Mutex mutex_;
  NotificationDispatcher::TokenRef observer_ FRX_GUARDED_BY(mutex_);
  std::shared_ptr<Timer> throttleTimer_ FRX_GUARDED_BY(mutex_);
  bool hasEnded_ FRX_GUARDED_BY(mutex_) = false;
};

}  // namespace ferrox
