#include "Classes/WebSockets/FRXWebsocketMessage.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <stdexcept>
#include <utility>

#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/Utilities/StringUtilities.h"
#include "Platform/Base/Json.h"
#include "Platform/Base/Utf8.h"
#include "Platform/Host/Text.h"

namespace ferrox {
namespace {

using std::chrono::milliseconds;

std::int64_t truncated(double number) {
  using Range = std::numeric_limits<std::int64_t>;
  constexpr double beyondRange = 9223372036854775808.0;
  if (number >= beyondRange) return Range::max();
  if (number < -beyondRange) return Range::min();
  return static_cast<std::int64_t>(number);
}

std::optional<std::int64_t> numberOf(const FRXValue& value) {
  if (const std::int64_t* integer = value.asInteger()) return *integer;
  if (const double* number = value.asDouble()) return truncated(*number);
  return std::nullopt;
}

/// A number, or digits in a text; 0 for anything else.
std::int64_t lenientIntegerOf(const FRXValue& value) {
  if (const std::string* text = value.asText()) return integerValue(*text);
  return numberOf(value).value_or(0);
}

template <typename Content>
std::optional<Content> taken(FRXValue& value) {
  Content* content = std::get_if<Content>(&value.storage());
  if (content == nullptr) return std::nullopt;
  return std::move(*content);
}

/// The calendar counts finer units than milliseconds, so it ends earlier than they do.
FRXDate dateOf(std::int64_t millisecondsSince1970) {
  constexpr auto first = std::chrono::duration_cast<milliseconds>(FRXDate::min().time_since_epoch());
  constexpr auto last = std::chrono::duration_cast<milliseconds>(FRXDate::max().time_since_epoch());
  return FRXDate(std::clamp(milliseconds(millisecondsSince1970), first, last));
}

bool isWritableText(const std::optional<std::string>& text) { return !text || isUtf8(*text); }

/// Appends one member, `name` being its key in quotes and what stands before and behind it.
void appendText(std::string& json, std::string_view name, const std::optional<std::string>& text) {
  json += name;
  appendJsonString(json, text ? std::string_view(*text) : std::string_view());
}

void appendNumber(std::string& json, std::string_view name, std::int64_t number) {
  json += name;
  appendJsonInteger(json, number);
}

}  // namespace

/// Puts each member where it belongs as soon as it has been read. A repeated member starts afresh.
class FRX_HIDDEN FRXWebsocketMessage::Reader : public JsonMembers {
 public:
  void onMember(std::string_view key, FRXValue&& value) override {
    if (key == "id") {
      message.id_ = taken<std::string>(value);
    } else if (key == "type") {
      message.messageType_ = static_cast<FRXMessageType>(static_cast<std::int32_t>(lenientIntegerOf(value)));
    } else if (key == "subject") {
      message.subject_ = taken<std::string>(value);
    } else if (key == "message") {
      message.message_ = taken<std::string>(value);
    } else if (key == "userInfo") {
      message.userInfo_ = taken<FRXDictionary>(value);
    } else if (key == "timestamp") {
      const auto number = numberOf(value);
      hasBadTimestamp = !number;
      message.timestamp_ = dateOf(number.value_or(0));
    } else if (key == "from") {
      message.from_ = taken<std::string>(value);
    } else if (key == "port") {
      message.port_ = lenientIntegerOf(value);
    } else if (key == "serviceSessionId") {
      message.serviceSessionId_ = taken<std::string>(value).value_or("");
    }
    // "reply" says nothing: whether a message is a reply follows from its id alone.
  }

  FRXWebsocketMessage message;
  bool hasBadTimestamp = false;
};

FRXWebsocketMessage::FRXWebsocketMessage(FRXMessageType type, std::optional<std::string> subject,
                                         std::optional<std::string> message,
                                         std::optional<FRXDictionary> userInfo)
    : FRXWebsocketMessage(type, std::move(subject), std::move(message), std::move(userInfo),
                          std::chrono::system_clock::now(), FRXUtilities::currentDeviceFRXId(),
                          LocalServiceDirectory::serverPort(), LocalServiceDirectory::serviceSessionId()) {}

FRXWebsocketMessage::FRXWebsocketMessage(FRXMessageType type, std::optional<std::string> subject,
                                         std::optional<std::string> message,
                                         std::optional<FRXDictionary> userInfo, FRXDate timestamp,
                                         std::optional<std::string> from, std::int64_t port,
                                         std::optional<std::string> serviceSessionId)
    : messageType_(type),
      id_(text::randomUUID()),
      from_(std::move(from)),
      subject_(std::move(subject)),
      message_(std::move(message)),
      userInfo_(userInfo ? std::move(userInfo) : FRXDictionary()),
      timestamp_(timestamp),
      port_(port),
      serviceSessionId_(std::move(serviceSessionId).value_or("")) {}

FRXWebsocketMessage FRXWebsocketMessage::responseToMessage(const FRXWebsocketMessage* request,
                                                           std::optional<std::string> withSubject,
                                                           std::optional<std::string> messageResponse,
                                                           std::optional<FRXDictionary> userInfo) {
  FRXWebsocketMessage reply;
  if (request == nullptr) return reply;
  reply.messageType_ = request->messageType_;
  reply.id_ = request->id_;
  reply.from_ = FRXUtilities::currentDeviceFRXId();
  reply.subject_ = std::move(withSubject);
  reply.message_ = std::move(messageResponse);
  reply.userInfo_ = std::move(userInfo);
  reply.timestamp_ = std::chrono::system_clock::now();
  reply.port_ = LocalServiceDirectory::serverPort();
  reply.serviceSessionId_ = LocalServiceDirectory::serviceSessionId();
  return reply;
}

std::optional<FRXWebsocketMessage> FRXWebsocketMessage::fromJson(std::string_view json, FRXError* error) {
  Reader reader;
  FRXError failure;
  if (!readJsonObject(json, reader, &failure)) {
    if (failure.code == JsonErrorNotAnObject) {
      failure.domain = FRXWebsocketMessageErrorDomain;
      failure.code = FRXWebsocketMessageErrorNotAMessage;
    }
    setError(error, std::move(failure));
    return std::nullopt;
  }
  if (reader.hasBadTimestamp) {
    setError(error, {FRXWebsocketMessageErrorDomain, FRXWebsocketMessageErrorNotAMessage,
                     "The \"timestamp\" of the message is no number."});
    return std::nullopt;
  }
  if (!reader.message.userInfo_) reader.message.userInfo_.emplace();
  return std::move(reader.message);
}

bool FRXWebsocketMessage::hasWritableTexts() const {
  return isWritableText(id_) && isWritableText(subject_) && isWritableText(message_) &&
         isWritableText(from_) && isUtf8(serviceSessionId_);
}

bool FRXWebsocketMessage::isWritable() const {
  return id_ && hasWritableTexts() && (!userInfo_ || isWritableJson(*userInfo_));
}

std::optional<std::string> FRXWebsocketMessage::toJson() const {
  // Written straight into one text: this is done for every message.
  constexpr std::size_t keysNumbersAndUserInfo = 512;
  if (!id_) throw std::logic_error("A message without an id cannot be written.");
  if (!hasWritableTexts()) return std::nullopt;
  std::string json;
  json.reserve(keysNumbersAndUserInfo + id_->size() + (subject_ ? subject_->size() : 0) +
               (message_ ? message_->size() : 0) + (from_ ? from_->size() : 0) + serviceSessionId_.size());
  appendText(json, R"({"id":)", id_);
  appendNumber(json, R"(,"type":)", static_cast<std::uint32_t>(messageType_));
  appendText(json, R"(,"subject":)", subject_);
  appendText(json, R"(,"message":)", message_);
  json += R"(,"userInfo":)";
  if (userInfo_) {
    if (!appendJsonObject(json, *userInfo_)) return std::nullopt;
  } else {
    json += "{}";
  }
  // Truncated toward zero.
  const auto stamp = std::chrono::duration_cast<milliseconds>(timestamp_.time_since_epoch());
  appendNumber(json, R"(,"timestamp":)", stamp.count());
  appendText(json, R"(,"from":)", from_);
  appendNumber(json, R"(,"port":)", port_);
  appendText(json, R"(,"serviceSessionId":)", serviceSessionId_);
  json += '}';
  return json;
}

}  // namespace ferrox
