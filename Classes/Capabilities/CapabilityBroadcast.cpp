#include "Classes/Capabilities/CapabilityBroadcast.h"

#include <optional>
#include <utility>

#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox {
namespace {

CapabilityParts completed(CapabilityParts parts) {
  if (parts.mainLoop == nullptr) parts.mainLoop = &RunLoop::main();
  if (parts.dispatcher == nullptr) parts.dispatcher = &NotificationDispatcher::defaultCenter();
  return parts;
}

}  // namespace

std::shared_ptr<CapabilityBroadcast> CapabilityBroadcast::make(Content content, CapabilityParts parts) {
  std::shared_ptr<CapabilityBroadcast> made(
      new CapabilityBroadcast(std::move(content), completed(std::move(parts))));
  made->listen();
  return made;
}

CapabilityBroadcast::CapabilityBroadcast(Content content, CapabilityParts parts)
    : content_(std::move(content)), parts_(std::move(parts)) {}

CapabilityBroadcast::~CapabilityBroadcast() = default;

void CapabilityBroadcast::listen() {
  const MutexLock lock(mutex_);
  observer_ = parts_.dispatcher->addObserver(FRXConnectedNotification, nullptr,
                                             [weak = weak_from_this()](const LocalNotification&) {
                                               if (const auto broadcast = weak.lock())
                                                 broadcast->postAfterConnection();
                                             });
}

void CapabilityBroadcast::post() const {
  const auto& center = parts_.center ? parts_.center : FRXNotificationCenter::sharedCenter();
  const FRXDictionary userInfo{
      {content_.userInfoKey, content_.offers()},
      {"frxId", FRXUtilities::currentDeviceFRXId().value_or(std::string())},
  };
  center->postOutgoingNotification(content_.notificationName, userInfo, std::nullopt, false);
}

void CapabilityBroadcast::postAfterConnection() {
  parts_.mainLoop->postOrRun([weak = weak_from_this()] {
    if (const auto broadcast = weak.lock()) broadcast->schedule();
  });
}

void CapabilityBroadcast::schedule() {
  std::shared_ptr<Timer> former;  // ends outside the lock
  const MutexLock lock(mutex_);
  if (hasEnded_) return;
  former = std::exchange(
      throttleTimer_, Timer::scheduleOnce(*parts_.mainLoop, delayAfterConnection, [weak = weak_from_this()] {
        if (const auto broadcast = weak.lock()) broadcast->post();
      }));
  if (former) former->invalidate();
}

void CapabilityBroadcast::end() {
  NotificationDispatcher::TokenRef observer;
  std::shared_ptr<Timer> timer;
  {
    const MutexLock lock(mutex_);
    hasEnded_ = true;
    observer.swap(observer_);
    timer.swap(throttleTimer_);
  }
  parts_.dispatcher->removeObserver(observer);
  if (timer) timer->invalidate();
}

std::shared_ptr<const Timer> CapabilityBroadcast::throttleTimer() const {
  const MutexLock lock(mutex_);
  return throttleTimer_;
}

}  // namespace ferrox
