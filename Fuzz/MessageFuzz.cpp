// One message as any peer may send it, read and written again.
#include <chrono>
#include <cstdint>

#include "Classes/Notifications/FRXNotification.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Fuzz/FuzzSupport.h"
#include "Platform/Base/Json.h"

namespace {

using namespace ferrox;

/// An absent text is written as an empty one.
void requireSame(const FRXWebsocketMessage& read, const FRXWebsocketMessage& copy) {
  FUZZ_REQUIRE(copy.id() == read.id());
  FUZZ_REQUIRE(copy.messageType() == read.messageType());
  FUZZ_REQUIRE(copy.subject() == read.subject().value_or(""));
  FUZZ_REQUIRE(copy.message() == read.message().value_or(""));
  FUZZ_REQUIRE(copy.userInfo() == read.userInfo());
  FUZZ_REQUIRE(copy.timestamp() == read.timestamp());
  FUZZ_REQUIRE(copy.from() == read.from().value_or(""));
  FUZZ_REQUIRE(copy.port() == read.port());
  FUZZ_REQUIRE(copy.serviceSessionId() == read.serviceSessionId());
}

void requireNotification(const FRXWebsocketMessage& message) {
  const FRXNotification notification = FRXNotification::fromMessage(message);
  FUZZ_REQUIRE(notification.name() == message.subject());
  FUZZ_REQUIRE(!notification.filter() || notification.filter() == message.message());
  const auto sent = notification.toMessageJson();
  FUZZ_REQUIRE(sent && FRXWebsocketMessage::fromJson(*sent));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::asText(data, size);
  FRXError error;
  auto message = FRXWebsocketMessage::fromJson(text, &error);
  FUZZ_REQUIRE(message || (!error.domain.empty() && error.code != 0));
  const auto value = parseJson(text);
  // The same texts are JSON to both readers; only a message has to be an object with a proper time.
  FUZZ_REQUIRE(!message || (value && value->asObject()));
  FUZZ_REQUIRE(message || !value || error.domain == FRXWebsocketMessageErrorDomain);
  if (value) {
    const auto written = writeJson(*value);
    FUZZ_REQUIRE(written && parseJson(*written) == value);
  }
  if (!message) return 0;

  FUZZ_REQUIRE(message->userInfo().has_value());
  FUZZ_REQUIRE(message->timestamp() == std::chrono::floor<std::chrono::milliseconds>(message->timestamp()));
  FUZZ_REQUIRE(message->isWritable() == message->id().has_value());
  requireNotification(*message);
  if (!message->id()) message->setId("X");
  const auto json = message->toJson();
  FUZZ_REQUIRE(json.has_value());
  const auto copy = FRXWebsocketMessage::fromJson(*json);
  FUZZ_REQUIRE(copy.has_value());
  requireSame(*message, *copy);
  FUZZ_REQUIRE(copy->toJson() == json);
  return 0;
}
