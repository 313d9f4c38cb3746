// What the notification center sends to peers and receives from them.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Base/Registration.h"
#include "Tests/Classes/Notifications/CenterFixture.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox {
namespace {

using test::Ear;
using test::RecordingBroadcaster;
using test::ScopedLocalServices;

using Strings = std::vector<std::string>;

const FRXDate then{std::chrono::milliseconds(1709298309123)};
constexpr const char* peerId = "FEDCBA-V/PEER";

struct Received {
  std::optional<std::string> name;
  std::shared_ptr<FRXNetService> sender;
  std::string session;
};

class Listener final : public FRXMessageReceivedDelegate {
 public:
  void frxMessageWasReceived(const FRXNotification& notification,
                             const std::shared_ptr<FRXNetService>& fromSender,
                             const std::string& withServiceSessionId) override {
    received.push_back({notification.name(), fromSender, withServiceSessionId});
    if (throws) throw std::runtime_error("listener's fault");
  }
  std::vector<Received> received;
  bool throws = false;
};

class Deaf final : public FRXMessageReceivedDelegate {};

class PeerNotificationTest : public testing::Test, protected test::CenterFixture {
 protected:
  PeerNotificationTest() {
    center->setDelegate(listener);
    peers[peerId] = peer;
  }

  void postOutgoing(const std::string& name, bool repost = false, const std::string& filter = "F") {
    center->postOutgoingNotification(name, {{"k", "v"}}, filter, repost);
  }
  static FRXNotification incoming(std::optional<std::string> filter, FRXDictionary userInfo = {},
                                  std::optional<std::string> sender = peerId) {
    return {"N", std::move(filter), std::move(userInfo), then, std::move(sender)};
  }
  std::size_t heard() const { return ear->heard.size(); }

  std::shared_ptr<FRXNetService> peer = std::make_shared<FRXNetService>("peer.local.", 16654, peerId);
  std::shared_ptr<Listener> listener = std::make_shared<Listener>();
};

// Outgoing

TEST_F(PeerNotificationTest, AnOutgoingPostIsBroadcastAsAMessageOfThisDevice) {
  const auto before = std::chrono::system_clock::now();
  center->postOutgoingNotification("N", {{"k", "v"}}, "F", false);
  ASSERT_EQ(broadcaster->sent.size(), 1U);
  const FRXWebsocketMessage& message = broadcaster->sent[0].message;
  EXPECT_EQ(broadcaster->sent[0].toService, std::nullopt);
  EXPECT_EQ(message.messageType(), FRXMessageType::FRXMessageTypeNotification);
  EXPECT_EQ(message.subject(), "N");
  EXPECT_EQ(message.message(), "F");
  EXPECT_EQ(message.userInfo(), (FRXDictionary{{"k", "v"}}));
  EXPECT_EQ(message.from(), ScopedLocalServices::frxId);
  EXPECT_EQ(message.port(), ScopedLocalServices::port);
  EXPECT_EQ(message.serviceSessionId(), ScopedLocalServices::session);
  EXPECT_EQ(message.id().value().size(), 36U);
  EXPECT_GE(message.timestamp(), before);
}

TEST_F(PeerNotificationTest, AnOutgoingPostMayHaveNeitherFilterNorUserInfo) {
  center->postOutgoingNotification("N", {}, std::nullopt, false);
  ASSERT_EQ(broadcaster->sent.size(), 1U);
  EXPECT_EQ(broadcaster->sent[0].message.message(), std::nullopt);
  EXPECT_EQ(broadcaster->sent[0].message.userInfo(), FRXDictionary());
}

TEST_F(PeerNotificationTest, AnOutgoingPostIsNotSeenByTheObserversHere) {
  center->addObserver(ear, &Ear::hear, std::nullopt);
  postOutgoing("N", true);
  EXPECT_EQ(heard(), 0U);
}

TEST_F(PeerNotificationTest, ANewPeerGetsTheLatestOfEachNameWhateverItsFilterUnchanged) {
  postOutgoing("N", true, "x");
  postOutgoing("N", true, "y");
  postOutgoing("M", true);
  postOutgoing("not kept", false);
  const FRXWebsocketMessage latest = broadcaster->sent[1].message;
  broadcaster->sent.clear();
  center->repostNotificationsToService("PEER.LOCAL.:16654");
  EXPECT_EQ(broadcaster->names(), (Strings{"M", "N"}));
  const auto& [message, toService] = broadcaster->sent[1];
  EXPECT_EQ(toService, "PEER.LOCAL.:16654");
  EXPECT_EQ(message.message(), "y");
  EXPECT_EQ(message.id(), latest.id());
  EXPECT_EQ(message.timestamp(), latest.timestamp());
  EXPECT_EQ(message.toJson(), latest.toJson());
}

TEST_F(PeerNotificationTest, EveryNewPeerGetsThemAgain) {
  postOutgoing("N", true);
  broadcaster->sent.clear();
  center->repostNotificationsToService("A:1");
  center->repostNotificationsToService("B:2");
  center->repostNotificationsToService("A:1");
  EXPECT_EQ(broadcaster->names(), (Strings{"N", "N", "N"}));
}

TEST_F(PeerNotificationTest, ALaterPostThatIsNotKeptLeavesTheKeptOneInPlace) {
  postOutgoing("N", true, "kept");
  postOutgoing("N", false, "not kept");
  broadcaster->sent.clear();
  center->repostNotificationsToService("A:1");
  ASSERT_EQ(broadcaster->sent.size(), 1U);
  EXPECT_EQ(broadcaster->sent[0].message.message(), "kept");
}

TEST_F(PeerNotificationTest, WhatIsPostedWhileNobodySendsIsKeptAllTheSame) {
  const auto later = std::exchange(broadcaster, nullptr);
  postOutgoing("N", true);
  center->repostNotificationsToService("A:1");
  broadcaster = later;
  center->repostNotificationsToService("A:1");
  EXPECT_EQ(broadcaster->names(), Strings{"N"});
}

TEST_F(PeerNotificationTest, WhatJsonCannotCarryIsLoggedAndNeitherSentNorKept) {
  const std::pair<std::string, FRXDictionary> bad[] = {
      {"date", {{"k", then}}},        {"nested", {{"k", FRXArray{FRXDictionary{{"d", then}}}}}},
      {"nan", {{"k", std::nan("")}}}, {"text", {{"k", "\xff"}}},
      {"key", {{"\xff", 1}}},         {"\xff", {}}};
  for (const auto& [name, userInfo] : bad) {
    const test::LogRecording log;
    center->postOutgoingNotification(name, userInfo, "F", true);
    EXPECT_TRUE(
        log->has(LogLevel::Warn, "Notification " + name + " is not sent: it holds what JSON cannot carry"));
  }
  center->postOutgoingNotification("filter", {}, "\xff", true);
  center->repostNotificationsToService("A:1");
  EXPECT_TRUE(broadcaster->sent.empty());
}

TEST_F(PeerNotificationTest, WhatJsonCannotCarryDoesNotReplaceWhatWasKept) {
  postOutgoing("N", true);
  center->postOutgoingNotification("N", {{"k", then}}, "F", true);
  broadcaster->sent.clear();
  center->repostNotificationsToService("A:1");
  ASSERT_EQ(broadcaster->sent.size(), 1U);
  EXPECT_EQ(broadcaster->sent[0].message.userInfo(), (FRXDictionary{{"k", "v"}}));
}

TEST_F(PeerNotificationTest, APostFromInsideASendFollowsIt) {
  std::string trace;
  broadcaster->onSend = [&](const FRXWebsocketMessage& message) {
    trace += *message.subject() + "(";
    if (message.subject() == "A" && broadcaster->sent.size() == 1) {
      postOutgoing("B");
      center->repostNotificationsToService("X:1");
    }
    trace += ")";
  };
  postOutgoing("A", true);
  EXPECT_EQ(trace, "A()B()A()");
}

TEST_F(PeerNotificationTest, PostsOfAnotherThreadAreSentOnTheMainOneInTheirOrder) {
  std::thread::id sentOn;
  broadcaster->onSend = [&](const FRXWebsocketMessage&) { sentOn = std::this_thread::get_id(); };
  std::thread poster([this] {
    for (const char* name : {"A", "B", "C"}) postOutgoing(name, true);
    center->repostNotificationsToService("X:1");
  });
  poster.join();
  EXPECT_TRUE(broadcaster->sent.empty());
  while (loop.runPending() > 0) {
  }
  EXPECT_EQ(broadcaster->names(), (Strings{"A", "B", "C", "A", "B", "C"}));
  EXPECT_EQ(sentOn, std::this_thread::get_id());
}

TEST_F(PeerNotificationTest, WhatWasPostedBeforeTheLoopRanIsNotOvertaken) {
  RunLoop undriven(clock);
  FRXNotificationCenterParts parts;
  parts.mainLoop = &undriven;
  parts.dispatcher = &dispatcher;
  parts.broadcaster = [this] { return broadcaster; };
  const auto early = FRXNotificationCenter::make(std::move(parts));
  undriven.post([&] { early->postOutgoingNotification("second", {}, std::nullopt, false); });
  early->postOutgoingNotification("first", {}, std::nullopt, false);
  EXPECT_TRUE(broadcaster->sent.empty());
  while (undriven.runPending() > 0) {
  }
  EXPECT_EQ(broadcaster->names(), (Strings{"first", "second"}));
}

TEST_F(PeerNotificationTest, WhatIsStillToBeSentWhenTheCenterGoesIsDropped) {
  std::thread([this] { postOutgoing("N"); }).join();
  center.reset();
  while (loop.runPending() > 0) {
  }
  EXPECT_TRUE(broadcaster->sent.empty());
}

TEST_F(PeerNotificationTest, ABroadcasterThatThrowsKeepsNobodyFromSending) {
  const test::LogRecording log;
  broadcaster->onSend = [](const FRXWebsocketMessage&) { throw std::runtime_error("no wire"); };
  postOutgoing("A");
  postOutgoing("B");
  EXPECT_EQ(broadcaster->names(), (Strings{"A", "B"}));
  EXPECT_TRUE(log->mentions(LogLevel::Error, "no wire"));
}

TEST_F(PeerNotificationTest, PartsThatAreLeftOutAreNobody) {
  FRXNotificationCenterParts parts;
  parts.mainLoop = &loop;
  parts.dispatcher = &dispatcher;
  const auto lonely = FRXNotificationCenter::make(std::move(parts));
  lonely->setDelegate(listener);
  lonely->addObserver(ear, &Ear::hear, "N");
  lonely->postOutgoingNotification("N", {}, "F", true);
  lonely->repostNotificationsToService("A:1");
  lonely->postIncomingNotification(incoming("F"), "S");
  EXPECT_EQ(heard(), 1U);
  EXPECT_TRUE(listener->received.empty());
}

TEST_F(PeerNotificationTest, TheSharedCenterSendsThroughTheRegisteredBroadcaster) {
  Registration<MessageBroadcaster>::set(broadcaster);
  FRXNotificationCenter::sharedCenter()->postOutgoingNotification("shared", {}, "F", false);
  while (RunLoop::main().runPending() > 0) {
  }
  Registration<MessageBroadcaster>::set(nullptr);
  EXPECT_EQ(broadcaster->names(), Strings{"shared"});
}

// Incoming

TEST_F(PeerNotificationTest, AnIncomingOneReachesObserversOfItsFilterAndThoseWithout) {
  const auto other = std::make_shared<Ear>();
  center->addObserver(ear, &Ear::hear, "N", "F");
  center->addObserver(ear, &Ear::hear, "N");
  center->addObserver(other, &Ear::hear, "N", "G");
  center->addObserver(other, &Ear::hear, "N", peerId);
  center->addObserver(other, &Ear::hear, "M");
  center->postIncomingNotification(incoming("F", {{"k", "v"}}), "S");
  ASSERT_EQ(heard(), 2U);
  EXPECT_TRUE(other->heard.empty());
  const FRXDictionary expected{{"k", "v"}, {"timestamp", then}, {"sender", peerId}, {"filter", "F"}};
  EXPECT_EQ(ear->heard[0].userInfo, expected);
  EXPECT_EQ(ear->heard[0].name, "N");
}

TEST_F(PeerNotificationTest, AnIncomingOneWithoutFilterIsPostedUnderItsSender) {
  center->addObserver(ear, &Ear::hear, "N", peerId);
  center->addObserver(ear, &Ear::hear, "N");
  center->addObserver(ear, &Ear::hear, "N", "");
  center->addObserver(ear, &Ear::hear, "N", ScopedLocalServices::frxId);
  center->postIncomingNotification(incoming("  "), "S");
  ASSERT_EQ(heard(), 2U);
  EXPECT_EQ(ear->heard[0].userInfo.at("filter"), FRXValue(""));
}

TEST_F(PeerNotificationTest, ThePayloadCannotForgeSenderTimeAndFilter) {
  center->addObserver(ear, &Ear::hear, "N");
  center->postIncomingNotification(
      incoming("F", {{"sender", "somebody else"}, {"timestamp", "yesterday"}, {"filter", FRXArray{}}}), "S");
  const FRXDictionary expected{{"timestamp", then}, {"sender", peerId}, {"filter", "F"}};
  ASSERT_EQ(heard(), 1U);
  EXPECT_EQ(ear->heard[0].userInfo, expected);
}

TEST_F(PeerNotificationTest, OneWithoutNameSenderAndFilterIsDeliveredAllTheSame) {
  const auto filtered = std::make_shared<Ear>();
  center->addObserver(ear, &Ear::hear, std::nullopt);
  center->addObserver(filtered, &Ear::hear, std::nullopt, "");
  center->postIncomingNotification(
      FRXNotification(std::nullopt, std::nullopt, std::nullopt, then, std::nullopt), "");
  ASSERT_EQ(heard(), 1U);
  EXPECT_EQ(ear->heard[0].name, "");
  EXPECT_EQ(ear->heard[0].userInfo.at("sender"), FRXValue(""));
  EXPECT_TRUE(filtered->heard.empty());
  EXPECT_TRUE(listener->received.empty());
}

TEST_F(PeerNotificationTest, FiltersThatPeersInventAreNotKept) {
  const auto observed = center->registerNotificationFilter("observed");
  std::vector<const void*> senders;
  const auto observation = center->addObserver(
      "N", std::nullopt, [&](const LocalNotification& n) { senders.push_back(n.sender); });
  center->postIncomingNotification(incoming("observed"), "S");
  center->postIncomingNotification(incoming("invented"), "S");
  ASSERT_EQ(senders.size(), 2U);
  EXPECT_EQ(senders[0], observed);
  EXPECT_NE(senders[1], center->registerNotificationFilter("invented"));
}

TEST_F(PeerNotificationTest, TheListenerIsToldOfEachFromAKnownPeer) {
  center->postIncomingNotification(incoming("F"), "SESSION");
  ASSERT_EQ(listener->received.size(), 1U);
  EXPECT_EQ(listener->received[0].name, "N");
  EXPECT_EQ(listener->received[0].sender, peer);
  EXPECT_EQ(listener->received[0].session, "SESSION");
}

TEST_F(PeerNotificationTest, TheListenerIsToldAfterTheObservers) {
  std::size_t receivedBefore = 99;
  const auto observation = center->addObserver(
      "N", std::nullopt, [&](const LocalNotification&) { receivedBefore = listener->received.size(); });
  center->postIncomingNotification(incoming("F"), "S");
  EXPECT_EQ(receivedBefore, 0U);
  EXPECT_EQ(listener->received.size(), 1U);
}

TEST_F(PeerNotificationTest, OneFromADeviceNobodyKnowsIsDeliveredWithoutTheListener) {
  peers.clear();
  center->addObserver(ear, &Ear::hear, "N");
  center->postIncomingNotification(incoming("F"), "S");
  EXPECT_EQ(heard(), 1U);
  EXPECT_TRUE(listener->received.empty());
}

TEST_F(PeerNotificationTest, TheListenerIsHeldWeaklyAndMayBeTakenAway) {
  EXPECT_EQ(center->delegate(), listener);
  center->setDelegate(nullptr);
  EXPECT_EQ(center->delegate(), nullptr);
  center->postIncomingNotification(incoming("F"), "S");
  EXPECT_TRUE(listener->received.empty());
  center->setDelegate(listener);
  listener.reset();
  center->postIncomingNotification(incoming("F"), "S");
  EXPECT_EQ(center->delegate(), nullptr);
}

TEST_F(PeerNotificationTest, WhetherTheListenerImplementsTheOperationIsRecordedWhenItIsSet) {
  EXPECT_NE(center->respondingSelectors().frxMessageReceived, 0U);
  const auto deaf = std::make_shared<Deaf>();
  center->setDelegate(deaf);
  EXPECT_EQ(center->respondingSelectors().frxMessageReceived, 0U);
  center->postIncomingNotification(incoming("F"), "S");
  center->setDelegate(nullptr);
  EXPECT_EQ(center->respondingSelectors().frxMessageReceived, 0U);
}

TEST_F(PeerNotificationTest, AListenerThatThrowsIsLogged) {
  const test::LogRecording log;
  listener->throws = true;
  center->postIncomingNotification(incoming("F"), "S");
  EXPECT_TRUE(log->mentions(LogLevel::Error, "listener's fault"));
}

TEST_F(PeerNotificationTest, OneThatArrivesOnAnotherThreadIsDeliveredOnTheMainOne) {
  std::thread::id where;
  const auto observation = center->addObserver(
      "N", std::nullopt, [&](const LocalNotification&) { where = std::this_thread::get_id(); });
  std::thread([this] { center->postIncomingNotification(incoming("F"), "S"); }).join();
  EXPECT_EQ(where, std::thread::id());
  while (loop.runPending() > 0) {
  }
  EXPECT_EQ(where, std::this_thread::get_id());
  EXPECT_EQ(listener->received.size(), 1U);
}

}  // namespace
}  // namespace ferrox
