#include "Classes/Notifications/FRXNotification.h"

#include <chrono>
#include <utility>

#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/StringUtilities.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"

namespace ferrox {
namespace {

std::optional<std::string> unlessBlank(std::optional<std::string> filter) {
  if (filter && trim(*filter).empty()) return std::nullopt;
  return filter;
}

}  // namespace

FRXNotification::FRXNotification(std::optional<std::string> name,
                                 std::optional<std::string> notificationFilter,
                                 std::optional<FRXDictionary> userInfo)
    : FRXNotification(std::move(name), std::move(notificationFilter), std::move(userInfo),
                      std::chrono::system_clock::now(), FRXUtilities::currentDeviceFRXId()) {}

FRXNotification::FRXNotification(std::optional<std::string> name,
                                 std::optional<std::string> notificationFilter,
                                 std::optional<FRXDictionary> userInfo, FRXDate timestamp,
                                 std::optional<std::string> sender)
    : name_(std::move(name)),
      filter_(unlessBlank(std::move(notificationFilter))),
      userInfo_(std::move(userInfo).value_or(FRXDictionary())),
      timestamp_(timestamp),
      sender_(std::move(sender)) {}

FRXNotification FRXNotification::fromMessage(const FRXWebsocketMessage& message) {
  return {message.subject(), message.message(), message.userInfo(), message.timestamp(), message.from()};
}

std::optional<std::string> FRXNotification::toMessageJson() const {
  return FRXWebsocketMessage(FRXMessageType::FRXMessageTypeNotification, name_, filter_, userInfo_).toJson();
}

}  // namespace ferrox
