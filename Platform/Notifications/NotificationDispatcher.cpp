#include "Platform/Notifications/NotificationDispatcher.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "Platform/Base/Mutex.h"
#include "Platform/Log/Log.h"

namespace ferrox {

class FRX_HIDDEN NotificationDispatcher::Token {
 public:
  Token(std::optional<std::string> name, const void* sender, Handler handler)
      : name_(std::move(name)),
        sender_(sender),
        handler_(std::make_shared<const Handler>(std::move(handler))) {}

  bool wants(const LocalNotification& notification) const {
    return (!name_ || *name_ == notification.name) && (sender_ == nullptr || sender_ == notification.sender);
  }
  /// Empty once the observer was removed.
  std::shared_ptr<const Handler> handler() const {
    const MutexLock lock(mutex_);
    return handler_;
  }
  /// Lets go of the handler, and with it of what it captured.
  void end() {
    std::shared_ptr<const Handler> released;
    const MutexLock lock(mutex_);
    released.swap(handler_);
  }

 private:
  const std::optional<std::string> name_;
  const void* const sender_;
  mutable Mutex mutex_;
  std::shared_ptr<const Handler> handler_ FRX_GUARDED_BY(mutex_);
};

struct FRX_HIDDEN NotificationDispatcher::Impl {
  /// Those who want it, in the order of registration. Weak, so that a token that goes before its turn is not
  /// called.
  std::vector<std::weak_ptr<Token>> observersOf(const LocalNotification& notification) FRX_EXCLUDES(mutex) {
    std::vector<std::weak_ptr<Token>> result;
    // Kept until the lock is gone: the last reference may be dropped elsewhere meanwhile, and what a handler
    // captured may call the dispatcher when it goes.
    std::vector<TokenRef> kept;
    const MutexLock lock(mutex);
    std::erase_if(observers, [](const auto& observer) { return observer.expired(); });
    for (const auto& observer : observers) {
      TokenRef token = observer.lock();
      if (token != nullptr && token->wants(notification)) result.push_back(observer);
      kept.push_back(std::move(token));
    }
    return result;
  }

  Mutex mutex;
  std::vector<std::weak_ptr<Token>> observers FRX_GUARDED_BY(mutex);
};

NotificationDispatcher::NotificationDispatcher() : impl_(std::make_shared<Impl>()) {}

NotificationDispatcher::~NotificationDispatcher() = default;

NotificationDispatcher& NotificationDispatcher::defaultCenter() {
  static NotificationDispatcher* const center = new NotificationDispatcher;
  return *center;
}

NotificationDispatcher::TokenRef NotificationDispatcher::addObserver(std::optional<std::string> name,
                                                                     const void* sender, Handler handler) {
  auto token = std::make_shared<Token>(std::move(name), sender, std::move(handler));
  const MutexLock lock(impl_->mutex);
  std::erase_if(impl_->observers, [](const auto& observer) { return observer.expired(); });
  impl_->observers.push_back(token);
  return token;
}

void NotificationDispatcher::removeObserver(const TokenRef& token) {
  if (token == nullptr) return;
  token->end();
  const MutexLock lock(impl_->mutex);
  std::erase_if(impl_->observers, [&](const auto& observer) {
    return !observer.owner_before(token) && !token.owner_before(observer);
  });
}

void NotificationDispatcher::post(const LocalNotification& notification) {
  for (const auto& observer : impl_->observersOf(notification)) {
    const TokenRef token = observer.lock();
    if (token == nullptr) continue;
    const auto handler = token->handler();
    if (handler == nullptr || *handler == nullptr) continue;
    try {
      (*handler)(notification);
    } catch (const std::exception& exception) {
      FRX_LOG_ERROR("An observer of " + notification.name + " failed: " + exception.what());
    } catch (...) {
      FRX_LOG_ERROR("An observer of " + notification.name + " failed.");
    }
  }
}

}  // namespace ferrox
