#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "Classes/Notifications/FRXNotification.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Tests/Support/ScopedLocalServices.h"

namespace ferrox {
namespace {

using test::ScopedLocalServices;

const FRXDate then{std::chrono::milliseconds(1709298309123)};

FRXWebsocketMessage messageWith(std::optional<std::string> message,
                                FRXMessageType type = FRXMessageType::FRXMessageTypeNotification) {
  return {type, "N", std::move(message), FRXDictionary{{"k", "v"}}, then, "OTHER-V/NAME", 16654, "SESSION"};
}

class FRXNotificationTest : public testing::Test {
 protected:
  const ScopedLocalServices local_;
};

TEST_F(FRXNotificationTest, OneRaisedHereCarriesThisDeviceAndNow) {
  const auto before = std::chrono::system_clock::now();
  const FRXNotification notification("N", "F", FRXDictionary{{"k", "v"}});
  EXPECT_EQ(notification.name(), "N");
  EXPECT_EQ(notification.filter(), "F");
  EXPECT_EQ(notification.userInfo(), (FRXDictionary{{"k", "v"}}));
  EXPECT_EQ(notification.sender(), ScopedLocalServices::frxId);
  EXPECT_GE(notification.timestamp(), before);
  EXPECT_LE(notification.timestamp(), std::chrono::system_clock::now());
}

TEST_F(FRXNotificationTest, KeepsWhatIsGiven) {
  const FRXNotification notification(std::nullopt, std::nullopt, std::nullopt, then, "OTHER");
  EXPECT_EQ(notification.name(), std::nullopt);
  EXPECT_EQ(notification.filter(), std::nullopt);
  EXPECT_EQ(notification.userInfo(), FRXDictionary());
  EXPECT_EQ(notification.timestamp(), then);
  EXPECT_EQ(notification.sender(), "OTHER");
}

TEST_F(FRXNotificationTest, ABlankFilterIsNoneAndAnotherKeepsItsBlanks) {
  for (const char* blank : {"", "   ", "\t\r\n", "\u00a0\u2003\u2028"}) {
    EXPECT_EQ(FRXNotification("N", blank, std::nullopt).filter(), std::nullopt) << blank;
    EXPECT_EQ(FRXNotification::fromMessage(messageWith(blank)).filter(), std::nullopt) << blank;
  }
  EXPECT_EQ(FRXNotification("N", " x ", std::nullopt).filter(), " x ");
  EXPECT_EQ(FRXNotification::fromMessage(messageWith(" x ")).filter(), " x ");
}

TEST_F(FRXNotificationTest, AFilterThatIsNotUtf8IsKept) {
  EXPECT_EQ(FRXNotification("N", "\xff", std::nullopt).filter(), "\xff");
}

TEST_F(FRXNotificationTest, IsMadeOfAMessageWhateverItsType) {
  for (const int type : {0, 1, 2, 3, 7}) {
    const auto notification =
        FRXNotification::fromMessage(messageWith("F", static_cast<FRXMessageType>(type)));
    EXPECT_EQ(notification.name(), "N");
    EXPECT_EQ(notification.filter(), "F");
    EXPECT_EQ(notification.userInfo(), (FRXDictionary{{"k", "v"}}));
    EXPECT_EQ(notification.timestamp(), then);
    EXPECT_EQ(notification.sender(), "OTHER-V/NAME");
  }
}

TEST_F(FRXNotificationTest, AMessageWithoutAnythingMakesOneWithoutAnything) {
  const auto notification = FRXNotification::fromMessage(FRXWebsocketMessage::fromJson("{}").value());
  EXPECT_EQ(notification.name(), std::nullopt);
  EXPECT_EQ(notification.filter(), std::nullopt);
  EXPECT_EQ(notification.userInfo(), FRXDictionary());
  EXPECT_EQ(notification.timestamp(), FRXDate());
  EXPECT_EQ(notification.sender(), std::nullopt);
  const auto reply =
      FRXNotification::fromMessage(FRXWebsocketMessage::responseToMessage(nullptr, "s", "m", std::nullopt));
  EXPECT_EQ(reply.userInfo(), FRXDictionary());
}

TEST_F(FRXNotificationTest, ItsMessageIsAFreshOneOfThisDevice) {
  const auto received = FRXNotification::fromMessage(messageWith("F"));
  const auto before = std::chrono::system_clock::now() - std::chrono::milliseconds(1);
  const auto sent = FRXWebsocketMessage::fromJson(received.toMessageJson().value());
  ASSERT_TRUE(sent);
  EXPECT_EQ(sent->messageType(), FRXMessageType::FRXMessageTypeNotification);
  EXPECT_EQ(sent->subject(), "N");
  EXPECT_EQ(sent->message(), "F");
  EXPECT_EQ(sent->userInfo(), (FRXDictionary{{"k", "v"}}));
  EXPECT_EQ(sent->from(), ScopedLocalServices::frxId);
  EXPECT_EQ(sent->port(), ScopedLocalServices::port);
  EXPECT_EQ(sent->serviceSessionId(), ScopedLocalServices::session);
  EXPECT_GE(sent->timestamp(), before);
  const auto again = FRXWebsocketMessage::fromJson(received.toMessageJson().value());
  EXPECT_NE(sent->id(), again->id());
}

TEST_F(FRXNotificationTest, HasNoMessageForWhatJsonCannotCarry) {
  EXPECT_EQ(FRXNotification("N", "F", FRXDictionary{{"when", then}}).toMessageJson(), std::nullopt);
  EXPECT_EQ(FRXNotification("\xff", "F", std::nullopt).toMessageJson(), std::nullopt);
}

}  // namespace
}  // namespace ferrox
