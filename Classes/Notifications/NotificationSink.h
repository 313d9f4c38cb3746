// What the sockets tell the notification center, without knowing it.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

class FRXNotification;

/// Implemented by the notification center. While none is registered nothing is told. Thread: main
class FRX_EXPORT NotificationSink {
 public:
  virtual ~NotificationSink() = default;

  /// Delivers inside this process only; without a filter under this device's own id.
  virtual void postLocalNotification(const std::string& name, const FRXDictionary& userInfo,
                                     const std::optional<std::string>& notificationFilter) = 0;
  /// A peer's notification arrived.
  virtual void postIncomingNotification(const FRXNotification& notification,
                                        const std::string& withServiceSessionId) = 0;
  /// A connection to this peer is open: it is to get the latest of what is kept for late joiners.
  virtual void repostNotificationsToService(const std::string& serviceId) = 0;

  /// The sink in use; empty when there is none. Thread: any
  static std::shared_ptr<NotificationSink> registered();
  static void setRegistered(std::shared_ptr<NotificationSink> sink);
};

}  // namespace ferrox
