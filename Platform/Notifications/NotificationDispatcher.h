// Notifications inside one process: posters and observers that do not know each other.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

/// What observers receive. `sender` identifies the posting object and is only compared, never used.
struct LocalNotification {
  std::string name;
  const void* sender = nullptr;
  FRXDictionary userInfo;
};

/// Delivers synchronously, on the posting thread, to every observer of the name. Observers may add and
/// remove observers while they are called; one that was removed before its turn is not called any more.
/// Thread: any
class FRX_EXPORT NotificationDispatcher {
 public:
  using Handler = std::function<void(const LocalNotification&)>;

  /// Keeps an observer registered for as long as it lives. Tokens are compared by identity.
  class Token;
  using TokenRef = std::shared_ptr<Token>;

  NotificationDispatcher();
  ~NotificationDispatcher();

  /// The process's default dispatcher.
  static NotificationDispatcher& defaultCenter();

  /// Observes `name` (every name when absent) from `sender` (any when null). The observer ends when
  /// `removeObserver` is called or the returned token's last reference goes.
  [[nodiscard]] TokenRef addObserver(std::optional<std::string> name, const void* sender, Handler handler);
  void removeObserver(const TokenRef& token);

  void post(const LocalNotification& notification);

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace ferrox
