// What the connection manager sends, relays and receives.
#include <stdexcept>

#include "Platform/Base/Json.h"
#include "Tests/Classes/WebSockets/ManagerFixture.h"

namespace ferrox::test {
namespace {

class ManagerMessagingTests : public ManagerFixture {
 protected:
  ManagerMessagingTests() {
    for (const char* host : {"a.local.", "b.local.", "c.local."}) connect(addPeer(host));
    a = clients[0].get();
    b = clients[1].get();
    c = clients[2].get();
    sink->local.clear();
  }
  static std::string wire(FRXMessageType type, const std::string& more) {
    return "{\"type\":" + std::to_string(static_cast<int>(type)) + "," + more + "}";
  }

  FakeWebSocketClient *a, *b, *c;
  const std::string idA = "A.LOCAL.:16654";
};

TEST_F(ManagerMessagingTests, ABroadcastReachesOpenSocketsOnlyAndIsFramedOnce) {
  manager->connectToService(peers[2]);  // closes c
  const auto message = notification("N");
  manager->broadcastMessage(message);
  ASSERT_EQ(a->sent.size(), 1U);
  EXPECT_EQ(a->sent, b->sent);
  EXPECT_TRUE(c->sent.empty());
  EXPECT_EQ(framed, 1);
  EXPECT_EQ(FRXWebsocketMessage::fromJson(a->sent[0])->id(), message.id());
}

TEST_F(ManagerMessagingTests, TellsTheListenerOfEachMessageSentToAKnownPeer) {
  const auto listener = std::make_shared<RecordingSentListener>();
  manager->setDelegate(listener);
  const auto message = notification("N");
  const std::string id = *message.id();
  manager->broadcastMessage(message);
  EXPECT_EQ(listener->sent, (std::vector<std::string>{id + " to A.LOCAL.:16654", id + " to B.LOCAL.:16654",
                                                      id + " to C.LOCAL.:16654"}));
  listener->sent.clear();
  manager->broadcastMessage(message, idA);
  EXPECT_EQ(listener->sent.size(), 1U);
  forgetPeers();
  manager->broadcastMessage(message);
  EXPECT_EQ(listener->sent.size(), 1U) << "unknown peers are not reported";
  manager->setDelegate(nullptr);
}

TEST_F(ManagerMessagingTests, AListenerThatImplementsNothingIsNotCalled) {
  class Silent final : public FRXMessageSentDelegate {};
  manager->setDelegate(std::make_shared<Silent>());
  manager->broadcastMessage(notification("N"));
  EXPECT_EQ(a->sent.size(), 1U);
}

TEST_F(ManagerMessagingTests, AListenerThatThrowsStopsNothing) {
  class Throwing final : public FRXMessageSentDelegate {
   public:
    void frxMessageWasSent(const FRXWebsocketMessage&, const std::shared_ptr<FRXNetService>&) override {
      throw std::runtime_error("no");
    }
  };
  const auto listener = std::make_shared<Throwing>();
  manager->setDelegate(listener);
  manager->broadcastMessage(notification("N"));
  EXPECT_EQ(c->sent.size(), 1U);
}

TEST_F(ManagerMessagingTests, SendsToOnePeerByServiceIdOrPublishedName) {
  manager->broadcastMessage(notification("N"), idA);
  manager->broadcastMessage(notification("N"), *peers[1]->name());
  manager->broadcastMessage(notification("N"), "NOBODY");
  EXPECT_EQ(a->sent.size(), 1U);
  EXPECT_EQ(b->sent.size(), 1U);
  EXPECT_TRUE(c->sent.empty());
  EXPECT_TRUE(log->has(LogLevel::Verbose, "Sending message to " + idA));
}

TEST_F(ManagerMessagingTests, AMessageToASocketThatIsNotOpenIsDroppedWithItsState) {
  manager->connectToService(peers[0]);
  manager->broadcastMessage(notification("N"), idA);
  EXPECT_TRUE(a->sent.empty());
  EXPECT_TRUE(log->has(LogLevel::Verbose,
                       "Failed to send N message to " + idA + " - WebSocket connection status is CLOSING"));
}

TEST_F(ManagerMessagingTests, WhatJsonCannotCarryIsNotSent) {
  FRXWebsocketMessage message(FRXMessageType::FRXMessageTypeNotification, "N", std::nullopt,
                              FRXDictionary{{"when", FRXDate{}}});
  manager->broadcastMessage(message);
  manager->broadcastMessage(message, idA);
  EXPECT_TRUE(a->sent.empty());
}

TEST_F(ManagerMessagingTests, AReplyCallsItsHandlerOnceWithTheRawText) {
  std::vector<std::string> replies;
  FRXWebsocketMessage query(FRXMessageType::FRXMessageTypeQuery, "capabilities request", "{}", std::nullopt);
  manager->broadcastMessage(
      query, idA, [&](const std::string& text) { replies.push_back(text); }, nullptr);
  ASSERT_EQ(a->sent.size(), 1U);
  const std::string reply = wire(FRXMessageType::FRXMessageTypeQuery, "\"id\":\"" + *query.id() + "\"");
  a->peerSends(reply);
  a->peerSends(reply);
  EXPECT_EQ(replies, std::vector<std::string>{reply});
}

TEST_F(ManagerMessagingTests, TheSecondRequestOfAnIdReplacesTheFirst) {
  int first = 0, second = 0;
  FRXWebsocketMessage query(FRXMessageType::FRXMessageTypeQuery, "q", "{}", std::nullopt);
  manager->broadcastMessage(
      query, idA, [&](const std::string&) { ++first; }, nullptr);
  manager->broadcastMessage(
      query, idA, [&](const std::string&) { ++second; }, nullptr);
  a->peerSends(wire(FRXMessageType::FRXMessageTypeQuery, "\"id\":\"" + *query.id() + "\""));
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
}

TEST_F(ManagerMessagingTests, ARequestToASocketThatIsNotOpenSendsAndCallsNothing) {
  const auto d = addPeer("d.local.");
  manager->connectToService(d);
  FRXWebsocketMessage query(FRXMessageType::FRXMessageTypeQuery, "q", "{}", std::nullopt);
  int called = 0;
  manager->broadcastMessage(
      query, d->serviceId(), [&](const std::string&) { ++called; }, [&](const FRXError&) { ++called; });
  last().peerAccepts();
  last().peerSends(wire(FRXMessageType::FRXMessageTypeQuery, "\"id\":\"" + *query.id() + "\""));
  EXPECT_TRUE(last().sent.empty());
  EXPECT_EQ(called, 0);
}

TEST_F(ManagerMessagingTests, RepliesOutliveAStop) {
  int replies = 0;
  FRXWebsocketMessage query(FRXMessageType::FRXMessageTypeQuery, "q", "{}", std::nullopt);
  manager->broadcastMessage(
      query, idA, [&](const std::string&) { ++replies; }, nullptr);
  manager->stop();
  manager->start();
  clients[3]->peerAccepts();
  clients[3]->peerSends(wire(FRXMessageType::FRXMessageTypeQuery, "\"id\":\"" + *query.id() + "\""));
  EXPECT_EQ(replies, 1);
}

TEST_F(ManagerMessagingTests, AReplyHandlerMayThrowOrAskAgain) {
  FRXWebsocketMessage query(FRXMessageType::FRXMessageTypeQuery, "q", "{}", std::nullopt);
  const std::string reply = wire(FRXMessageType::FRXMessageTypeQuery, "\"id\":\"" + *query.id() + "\"");
  int replies = 0;
  manager->broadcastMessage(
      query, idA,
      [&](const std::string&) {
        ++replies;
        manager->broadcastMessage(
            query, idA, [&](const std::string&) { ++replies; }, nullptr);
        throw std::runtime_error("no");
      },
      nullptr);
  a->peerSends(reply);
  a->peerSends(reply);
  EXPECT_EQ(replies, 2);
}

TEST_F(ManagerMessagingTests, RepliesNobodyWaitsForAreDroppedSilently) {
  log->clear();
  a->peerSends(wire(FRXMessageType::FRXMessageTypeQuery, "\"id\":\"X\""));
  a->peerSends(wire(FRXMessageType::FRXMessageTypeQuery, "\"subject\":\"no id\""));
  EXPECT_TRUE(log->entries().empty());
}

TEST_F(ManagerMessagingTests, NotificationsOfBothTypesAreHandedOnWithTheirSession) {
  a->peerSends(wire(FRXMessageType::FRXMessageTypeNotification,
                    R"("subject":"N","message":"f","from":"DEV","serviceSessionId":"S")"));
  a->peerSends(wire(FRXMessageType::FRXMessageTypeAltNotification, R"("subject":"M")"));
  ASSERT_EQ(sink->incoming.size(), 2U);
  EXPECT_EQ(sink->incoming[0].first.name(), "N");
  EXPECT_EQ(sink->incoming[0].first.filter(), "f");
  EXPECT_EQ(sink->incoming[0].second, "S");
  EXPECT_EQ(sink->incoming[1].first.name(), "M");
  EXPECT_TRUE(b->sent.empty());
  EXPECT_TRUE(log->has(LogLevel::Warn, "Unable to resolve sender address: DEV"));
}

TEST_F(ManagerMessagingTests, AMarkedNotificationIsRelayedUnchangedToAllOthers) {
  const std::string text = wire(FRXMessageType::FRXMessageTypeNotification,
                                R"( "subject":"N" , "userInfo":{"shouldForward":true},"id":"I")");
  a->peerSends(text);
  EXPECT_TRUE(a->sent.empty());
  EXPECT_EQ(b->sent, std::vector<std::string>{text});
  EXPECT_EQ(c->sent, std::vector<std::string>{text});
  const auto audits = log->audits();
  ASSERT_EQ(audits.size(), 2U);
  EXPECT_EQ(audits[0].functionName, "ForwardMessage");
  EXPECT_EQ(audits[0].operation, "FRXWebSocket");
  EXPECT_EQ(audits[0].attributes,
            (std::vector<std::pair<std::string, std::string>>{{"from", idA}, {"to", "B.LOCAL.:16654"}}));
}

TEST_F(ManagerMessagingTests, RelayingIgnoresTheCaseOfTheSendersAddress) {
  manager->forwardMessage("{}", "a.Local.:16654");
  EXPECT_TRUE(a->sent.empty());
  EXPECT_EQ(b->sent.size(), 1U);
}

TEST_F(ManagerMessagingTests, AMarkThatIsNotTrueIsNone) {
  for (const char* mark : {"false", "null", "0", "\"yes\"", "{}"}) {
    a->peerSends(wire(FRXMessageType::FRXMessageTypeNotification,
                      std::string(R"("subject":"N","userInfo":{"shouldForward":)") + mark + "}"));
  }
  EXPECT_TRUE(b->sent.empty());
}

TEST_F(ManagerMessagingTests, HeartbeatsAreNotAnswered) {
  a->peerSends(wire(FRXMessageType::FRXMessageTypeHeartbeat, R"("from":"DEV")"));
  EXPECT_TRUE(log->has(LogLevel::Verbose, "received heartbeat from DEV"));
  EXPECT_TRUE(a->sent.empty());
}

TEST_F(ManagerMessagingTests, WhatIsNoMessageIsLoggedAndTheConnectionGoesOn) {
  a->peerSends("not json");
  a->peerSends("[]");
  a->peerSends(R"({"type":7})");
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "Unable to create FRXWebsocketMessage from message: "));
  EXPECT_TRUE(log->has(LogLevel::Warn,
                       "Received message that was either not a FRXWebsocketMessage, or has an unsupported "
                       "message type: {\"type\":7}"));
  EXPECT_EQ(a->readyState(), WebSocketReadyState::Open);
  EXPECT_TRUE(sink->incoming.empty());
}

}  // namespace
}  // namespace ferrox::test
