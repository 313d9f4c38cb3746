#include <algorithm>
#include <thread>

#include "Classes/WebSockets/FRXWebsocket.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/Base/Json.h"
#include "Tests/Classes/HTTPServer/HostFixture.h"
#include "Tests/Classes/WebSockets/ManagerFixture.h"
#include "Tests/Support/RawFrames.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

constexpr const char* knownPeer = "DEV9-MTI=/PEER";

/// A running server, and a peer that speaks to it in plain frames.
class FRXWebsocketTests : public HostFixture {
 protected:
  FRXWebsocketTests() {
    NotificationSink::setRegistered(sink_);
    LocalServiceDirectory::setServiceLookup(
        [this](const std::string& id) { return id == knownPeer ? known_ : nullptr; });
    FRXWebsocket::acceptUpgrades(loop_);
    server_->republishBonjourWithServiceName("OWN-MTI=/HOST");
    start();
    peer_ = std::make_unique<RawSocket>(server_->port());
    EXPECT_EQ(upgrade(*peer_, "DEV9-MTI%3D%2Fpeer"), 101);
  }
  ~FRXWebsocketTests() override {
    server_->stop();
    NotificationSink::setRegistered(nullptr);
    LocalServiceDirectory::setServiceLookup(nullptr);
  }

  int upgrade(RawSocket& socket, const std::string& id) {
    EXPECT_TRUE(
        socket.send("GET /frxsocket?id=" + id +
                    " HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                    "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n"));
    const auto response = socket.readResponse(true);
    return response ? response->status : 0;
  }
  void send(const std::string& text) { ASSERT_TRUE(peer_->send(textFrame(text))); }
  FRXWebsocketMessage nextAnswer() {
    const auto frame = readFrame(*peer_);
    EXPECT_TRUE(frame && frame->opcode == 1);
    auto message = FRXWebsocketMessage::fromJson(frame ? frame->payload : "{}");
    EXPECT_TRUE(message);
    return *message;
  }
  /// Whatever was sent before this was dealt with when the answer is here.
  void sync() {
    send(R"({"type":1,"id":"sync"})");
    EXPECT_EQ(nextAnswer().messageType(), FRXMessageType::FRXMessageTypeHeartbeat);
  }
  bool waitForNotifications(std::size_t count) {
    return waitFor(loop_, [&] { return sink_->incoming.size() >= count; });
  }

  const LogRecording log_;
  RunLoop loop_;
  std::shared_ptr<RecordingNotificationSink> sink_ = std::make_shared<RecordingNotificationSink>();
  std::shared_ptr<FRXNetService> known_ =
      std::make_shared<FRXNetService>("peer.local.", 16654, std::string(knownPeer));
  std::unique_ptr<RawSocket> peer_;
};

TEST_F(FRXWebsocketTests, AHeartbeatIsAnsweredWithOneOfItsOwn) {
  send(R"({"type":1,"id":"MINE","subject":"s"})");
  const auto answer = nextAnswer();
  EXPECT_EQ(answer.messageType(), FRXMessageType::FRXMessageTypeHeartbeat);
  EXPECT_NE(answer.id(), "MINE");
  EXPECT_EQ(answer.subject(), "");
  EXPECT_EQ(answer.from(), "OWN-MTI=/HOST");
  EXPECT_EQ(answer.port(), server_->port());
  send(R"({"type":1,"id":"NEXT"})");
  EXPECT_NE(nextAnswer().id(), answer.id()) << "exactly one answer each";
}

TEST_F(FRXWebsocketTests, AQueryIsAnsweredUnderItsIdWithWhatIsOffered) {
  offerStream("cam A", "file:///tmp");
  send(R"({"type":2,"id":"X","subject":"capabilities request","message":")" +
       std::string(FRXCapabilitiesQuery) + "\"}");
  const auto answer = nextAnswer();
  EXPECT_EQ(answer.messageType(), FRXMessageType::FRXMessageTypeQuery);
  EXPECT_EQ(answer.id(), "X");
  EXPECT_EQ(answer.subject(), "capabilities request");
  EXPECT_EQ(answer.from(), "OWN-MTI=/HOST");
  EXPECT_EQ(answer.port(), server_->port());
  EXPECT_EQ(answer.userInfo(), FRXDictionary{});
  EXPECT_EQ(answer.message(),
            R"({"data":{"capabilities":{"streaming":[{"name":"Stream","path":"/streams/cam%20A",)"
            R"("contentType":"VIDEO_ANGLE","port":)" +
                std::to_string(server_->port()) + R"(}],"projectsharing":null}}})");
}

TEST_F(FRXWebsocketTests, AQueryThatCannotBeAnsweredGetsItsErrorsUnderItsId) {
  for (const char* members : {R"("message":"{ capabilities }")", R"("message":"garbage")", R"("message":"")",
                              R"("message":7)", R"("subject":"no message")"}) {
    send(R"({"type":2,"id":"X",)" + std::string(members) + "}");
    const auto answer = nextAnswer();
    EXPECT_EQ(answer.id(), "X");
    const auto document = parseJson(answer.message().value_or(""));
    ASSERT_TRUE(document && document->member("errors")) << members;
    EXPECT_FALSE(document->member("errors")->asArray()->empty());
  }
}

TEST_F(FRXWebsocketTests, QueriesAreAnsweredOneByOneInTheirOrder) {
  for (int i = 0; i < 50; ++i) {
    send(R"({"type":2,"id":")" + std::to_string(i) + R"(","message":"{ __typename }"})");
  }
  for (int i = 0; i < 50; ++i) {
    const auto answer = nextAnswer();
    EXPECT_EQ(answer.id(), std::to_string(i));
    EXPECT_EQ(answer.message(), R"({"data":{"__typename":"Query"}})");
  }
}

TEST_F(FRXWebsocketTests, AQueryWithoutIdIsDroppedAndLogged) {
  send(R"({"type":2,"subject":"q","message":"{ capabilities }"})");
  sync();
  EXPECT_TRUE(log_->mentions(LogLevel::Warn, "Dropped a query without an id from 127.0.0.1:"));
}

TEST_F(FRXWebsocketTests, NotificationsReachTheMainThread) {
  send(R"({"type":0,"subject":"N","message":" ","from":"DEV9","userInfo":{"a":1},"serviceSessionId":"S"})");
  send(R"({"type":3,"subject":"M","message":"f"})");
  sync();
  EXPECT_TRUE(sink_->incoming.empty()) << "not on the connection's own thread";
  ASSERT_TRUE(waitForNotifications(2));
  const auto& [first, session] = sink_->incoming[0];
  EXPECT_EQ(first.name(), "N");
  EXPECT_EQ(first.filter(), std::nullopt);
  EXPECT_EQ(first.sender(), "DEV9");
  EXPECT_EQ(first.userInfo(), (FRXDictionary{{"a", 1}}));
  EXPECT_EQ(session, "S");
  EXPECT_EQ(sink_->incoming[1].first.filter(), "f");
}

TEST_F(FRXWebsocketTests, WhatIsNoMessageIsLoggedAndTheConnectionStays) {
  for (const char* text :
       {"no json", "[1]", "\"text\"", R"({"timestamp":"now"})", R"({"port":1e999})", "{"}) {
    send(text);
  }
  send(std::string(200, '['));
  send("{\"a\":" + std::string(100, '[') + std::string(100, ']') + "}");
  sync();
  EXPECT_TRUE(
      log_->mentions(LogLevel::Warn, "Unable to create FRXWebsocketMessage from message sent by 127.0.0.1:" +
                                         std::to_string(server_->port()) + ": "));
}

TEST_F(FRXWebsocketTests, OtherTypesAreIgnoredSilently) {
  sync();
  log_->clear();
  send(R"({"type":7,"id":"X"})");
  sync();
  const auto entries = log_->entries();
  EXPECT_TRUE(std::all_of(entries.begin(), entries.end(), [](const LogEntry& entry) {
    return entry.message.starts_with("Websocket received message from 127.0.0.1:");
  }));
}

TEST_F(FRXWebsocketTests, WrongTypesOfMembersCountAsAbsent) {
  send(R"({"type":0,"subject":7,"message":[],"from":{},"userInfo":"x","serviceSessionId":null})");
  ASSERT_TRUE(waitForNotifications(1));
  EXPECT_EQ(sink_->incoming[0].first.name(), std::nullopt);
  EXPECT_EQ(sink_->incoming[0].first.sender(), std::nullopt);
}

TEST_F(FRXWebsocketTests, AFragmentedMessageIsOne) {
  ASSERT_TRUE(peer_->send(masked(0x01, R"({"type":1,)")));
  ASSERT_TRUE(peer_->send(masked(0x80, R"("id":"F"})")));
  EXPECT_EQ(nextAnswer().messageType(), FRXMessageType::FRXMessageTypeHeartbeat);
}

TEST_F(FRXWebsocketTests, AKnownPeerThatConnectsGetsTheLatest) {
  ASSERT_TRUE(waitFor(loop_, [&] { return !sink_->reposted.empty(); }));
  EXPECT_EQ(sink_->reposted, std::vector<std::string>{knownPeer});
  RawSocket stranger(server_->port());
  EXPECT_EQ(upgrade(stranger, "STRANGER"), 101);
  sync();
  loop_.runPending();
  EXPECT_EQ(sink_->reposted.size(), 1U);
}

TEST_F(FRXWebsocketTests, OpeningAndClosingAreLoggedWithTheAddress) {
  const std::string address = "127.0.0.1:" + std::to_string(server_->port());
  EXPECT_TRUE(waitFor([&] { return log_->has(LogLevel::Verbose, "Websocket opened: " + address); }));
  peer_->close();
  EXPECT_TRUE(waitFor([&] { return log_->has(LogLevel::Verbose, "Websocket closed: " + address); }));
}

TEST_F(FRXWebsocketTests, APeerThatFloodsIsHeldBackAndLosesNothing) {
  // More than the kernel's buffers and ours together could hold: the sender has to be stopped.
  constexpr std::size_t count = 4000;
  const std::string payload(16 * 1024, 'x');
  std::thread flood([&] {
    for (std::size_t i = 0; i < count; ++i) {
      const std::string text = R"({"type":0,"subject":"N","port":)" + std::to_string(i) +
                               R"(,"userInfo":{"p":")" + payload + "\"}}";
      if (!peer_->send(textFrame(text))) return;
    }
  });
  std::size_t taken = 0, mostAtOnce = 0;
  EXPECT_TRUE(waitFor(
      loop_,
      [&] {
        mostAtOnce = std::max(mostAtOnce, sink_->incoming.size());
        taken += std::exchange(sink_->incoming, {}).size();
        return taken == count;
      },
      std::chrono::seconds(60)));
  flood.join();
  EXPECT_EQ(taken, count);
  EXPECT_LE(mostAtOnce * payload.size(), 4 * FRXWebsocket::undeliveredLimit);
}

TEST_F(FRXWebsocketTests, APeerThatDoesNotReadItsAnswersIsCutWithoutDelayingOthers) {
  RawSocket deaf(server_->port(), false, 4096);
  ASSERT_EQ(upgrade(deaf, "DEAF"), 101);
  const std::string query =
      textFrame(R"({"type":2,"id":"X","subject":")" + std::string(60 * 1024, 's') + "\"}");
  deaf.setDeadline(std::chrono::milliseconds(500));
  std::thread asking([&] {
    for (int i = 0; i < 2000 && deaf.send(query); ++i) {
    }
  });
  for (int i = 0; i < 20; ++i) sync();
  deaf.shutDownSending();
  asking.join();
  sync();
}

}  // namespace
}  // namespace ferrox::test
