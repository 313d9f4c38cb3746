// The one JSON record that peers exchange over their WebSockets.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

/// As sent on the wire; other values are legal there and stay what they are.
enum class FRXMessageType : std::int32_t {
  FRXMessageTypeNotification = 0,
  FRXMessageTypeHeartbeat = 1,
  /// A GraphQL query, or the reply to one: a reply carries the request's id.
  FRXMessageTypeQuery = 2,
  /// Received like a notification, never sent.
  FRXMessageTypeAltNotification = 3,
};

/// Errors of reading and writing messages.
inline constexpr const char* FRXWebsocketMessageErrorDomain = "com.ferrox.FRXWebsocketMessage.ErrorDomain";
/// JSON, but no message: the top level is no object, or "timestamp" is no number.
inline constexpr int FRXWebsocketMessageErrorNotAMessage = 1;

/// A value; only its id can be changed. An absent text differs from an empty one until it is written.
/// Thread: any, one thread at a time
class FRX_EXPORT FRXWebsocketMessage {
 public:
  /// A new message of this instance: stamped with now, this device's id, the server's port and the browsing
  /// session.
  FRXWebsocketMessage(FRXMessageType type, std::optional<std::string> subject,
                      std::optional<std::string> message, std::optional<FRXDictionary> userInfo);
  /// The same with every stamp given. The id is a new upper-case UUID.
  FRXWebsocketMessage(FRXMessageType type, std::optional<std::string> subject,
                      std::optional<std::string> message, std::optional<FRXDictionary> userInfo,
                      FRXDate timestamp, std::optional<std::string> from, std::int64_t port,
                      std::optional<std::string> serviceSessionId);
  /// The reply to `request`: its id and type, stamped like a new message. Without a request, a message with
  /// every field unset.
  static FRXWebsocketMessage responseToMessage(const FRXWebsocketMessage* request,
                                               std::optional<std::string> withSubject,
                                               std::optional<std::string> messageResponse,
                                               std::optional<FRXDictionary> userInfo);

  /// Reads one message. Nothing, with `error` filled, for text that is not JSON, is no object, is longer or
  /// nested deeper than `JsonLimits` allows, holds a number that is not finite, or whose "timestamp" is no
  /// number. All else is taken as it comes:
  ///  - no member is required, the last of a repeated one counts, and one of another type counts as absent;
  ///  - "type" and "port" may be digits in a string: blanks before them and a sign are accepted, reading
  ///  stops
  ///    at the first character that is no digit, and without digits the number is 0;
  ///  - a fraction is cut off, a number beyond 64 bits becomes the nearest that fits; then "type" keeps its
  ///    lower 32 bits;
  ///  - a "timestamp" beyond what `FRXDate` can hold (the years 1677 to 2262) becomes the nearest that fits.
  [[nodiscard]] static std::optional<FRXWebsocketMessage> fromJson(std::string_view json,
                                                                   FRXError* error = nullptr);
  /// Compact JSON with all nine members, the timestamp in whole milliseconds. Nothing when it holds what JSON
  /// cannot carry (see `writeJson`). Throws `std::logic_error` when there is no id: that is a mistake of the
  /// caller.
  [[nodiscard]] std::optional<std::string> toJson() const;
  /// Whether `toJson` would write it: it has an id and holds nothing that JSON cannot carry.
  [[nodiscard]] bool isWritable() const;

  FRXMessageType messageType() const { return messageType_; }
  const std::optional<std::string>& id() const { return id_; }
  void setId(std::optional<std::string> id) { id_ = std::move(id); }
  const std::optional<std::string>& from() const { return from_; }
  const std::optional<std::string>& subject() const { return subject_; }
  const std::optional<std::string>& message() const { return message_; }
  /// Absent only in a reply made without one.
  const std::optional<FRXDictionary>& userInfo() const { return userInfo_; }
  FRXDate timestamp() const { return timestamp_; }
  std::int64_t port() const { return port_; }
  const std::string& serviceSessionId() const { return serviceSessionId_; }

 private:
  class Reader;
  FRXWebsocketMessage() = default;
  bool hasWritableTexts() const;

  FRXMessageType messageType_ = FRXMessageType::FRXMessageTypeNotification;
  std::optional<std::string> id_;
  std::optional<std::string> from_;
  std::optional<std::string> subject_;
  std::optional<std::string> message_;
  std::optional<FRXDictionary> userInfo_;
  FRXDate timestamp_{};
  std::int64_t port_ = 0;
  std::string serviceSessionId_;
};

}  // namespace ferrox
