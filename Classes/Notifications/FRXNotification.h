// One cross-peer notification in memory: a name, an optional filter, a payload, and who raised it when.
#pragma once

#include <optional>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

class FRXWebsocketMessage;

/// Immutable. Thread: any
class FRX_EXPORT FRXNotification {
 public:
  /// Raised here and now. A filter of blanks alone counts as none; another keeps its blanks.
  FRXNotification(std::optional<std::string> name, std::optional<std::string> notificationFilter,
                  std::optional<FRXDictionary> userInfo);
  FRXNotification(std::optional<std::string> name, std::optional<std::string> notificationFilter,
                  std::optional<FRXDictionary> userInfo, FRXDate timestamp,
                  std::optional<std::string> sender);
  /// Takes subject, message, userInfo, timestamp and from of any message, whatever its type.
  static FRXNotification fromMessage(const FRXWebsocketMessage& message);

  /// The text of a new message that sends this notification from here, now: neither `timestamp` nor `sender`
  /// go along. Nothing when `userInfo` holds what JSON cannot carry.
  [[nodiscard]] std::optional<std::string> toMessageJson() const;

  const std::optional<std::string>& name() const { return name_; }
  const std::optional<std::string>& filter() const { return filter_; }
  const FRXDictionary& userInfo() const { return userInfo_; }
  FRXDate timestamp() const { return timestamp_; }
  const std::optional<std::string>& sender() const { return sender_; }

 private:
  std::optional<std::string> name_;
  std::optional<std::string> filter_;
  FRXDictionary userInfo_;
  FRXDate timestamp_;
  std::optional<std::string> sender_;
};

}  // namespace ferrox
