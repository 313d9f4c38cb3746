#include "Classes/Notifications/NotificationSink.h"

#include <utility>

#include "Platform/Base/Registration.h"

namespace ferrox {

std::shared_ptr<NotificationSink> NotificationSink::registered() {
  return Registration<NotificationSink>::current();
}

void NotificationSink::setRegistered(std::shared_ptr<NotificationSink> sink) {
  Registration<NotificationSink>::set(std::move(sink));
}

}  // namespace ferrox
