// The numbers of the connections that peers open, one of which speaks plain frames.
#include <gtest/gtest.h>

#include "Tests/Classes/Statistics/StatisticsFixture.h"
#include "Tests/Support/RawFrames.h"

namespace ferrox::test {
namespace {

class InboundStatisticsTests : public StatisticsFixture {
 protected:
  RawSocket upgraded(const std::string& id, int receiveBuffer = 0) {
    RawSocket socket(server_->port(), false, receiveBuffer);
    EXPECT_TRUE(
        socket.send("GET /frxsocket?id=" + id +
                    " HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                    "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n"));
    EXPECT_EQ(socket.readResponse(true).value_or(RawResponse{}).status, 101);
    return socket;
  }
  InboundStatistics inbound() const { return inbound_->statistics(); }
  std::uint64_t refusals() const {
    const FRXMessageStatistics messages = inbound().messages;
    return messages.binary + messages.tooLarge + messages.notUtf8 + messages.badFrames;
  }
  FRXMessageStatistics after(const std::string& bytes) {
    const std::uint64_t before = refusals();
    {
      RawSocket socket = upgraded("RUDE");
      EXPECT_TRUE(socket.send(bytes));
      EXPECT_EQ(readFrame(socket).value_or(Frame{}).opcode, 8);
    }
    EXPECT_TRUE(waitFor([&] { return refusals() > before; }, longTime));
    return inbound().messages;
  }
  void restartWith(const HTTPServerLimits& limits) {
    server_->stop();
    httpServer_->setLimits(limits);
    start();
  }
};

TEST_F(InboundStatisticsTests, PeersAreToldApartByTheNamesTheyGive) {
  {
    const RawSocket first = upgraded("A"), again = upgraded("a"), second = upgraded("B");
    EXPECT_TRUE(waitFor([&] { return inbound().peers == 2; }, longTime));
    EXPECT_EQ(now().peers.connectedInbound, 2U);
    EXPECT_EQ(now().http.upgrades, 3U);
  }
  EXPECT_TRUE(waitFor([&] { return inbound().peers == 0; }, longTime));
}

TEST_F(InboundStatisticsTests, TextsThatAreNoMessagesAreDroppedUnderTheirReason) {
  RawSocket peer = upgraded("A");
  for (const char* text : {"no json", "[]", R"({"type":77})", R"({"type":2})", R"({"type":1})"}) {
    ASSERT_TRUE(peer.send(textFrame(text)));
  }
  ASSERT_TRUE(readFrame(peer)) << "the answer to the heartbeat";
  const FRXMessageStatistics messages = inbound().messages;
  EXPECT_EQ(messages.received, 5U);
  EXPECT_EQ(messages.receivedBytes, 7U + 2 + 11 + 10 + 10);
  EXPECT_EQ(messages.malformed, 2U);
  EXPECT_EQ(messages.unknownTypes, 1U);
  EXPECT_EQ(messages.queriesWithoutId, 1U);
}

TEST_F(InboundStatisticsTests, AnswersCountAsSentToTheByte) {
  RawSocket peer = upgraded("A");
  std::size_t bytes = 0;
  for (const char* text : {R"({"type":1})", R"({"type":2,"id":"X","message":"{ __typename }"})"}) {
    ASSERT_TRUE(peer.send(textFrame(text)));
    bytes += readFrame(peer).value_or(Frame{}).payload.size();
  }
  EXPECT_TRUE(waitFor([&] { return inbound().messages.sentBytes == bytes; }, longTime));
  EXPECT_EQ(inbound().messages.sent, 2U);
}

TEST_F(InboundStatisticsTests, WhatAPeerSendsAmissIsRefusedUnderItsReason) {
  HTTPServerLimits limits;
  limits.webSocketMessage = 1000;
  restartWith(limits);
  EXPECT_EQ(after(masked(0x82, "binary")).binary, 1U);
  EXPECT_EQ(after(textFrame(std::string(1001, 'x'))).tooLarge, 1U);
  EXPECT_EQ(after(textFrame("\xFF\xFE")).notUtf8, 1U);
  EXPECT_EQ(after(masked(0x83, "reserved opcode")).badFrames, 1U);
  EXPECT_EQ(refusals(), 4U);
  EXPECT_EQ(inbound().messages.received, 0U);
  EXPECT_EQ(now().messages.tooLarge, 1U);
}

TEST_F(InboundStatisticsTests, APeerThatClosesWithACodeRefusesNothingOfItsOwn) {
  {
    RawSocket peer = upgraded("A");
    ASSERT_TRUE(waitFor([&] { return inbound().peers == 1; }, longTime));
    ASSERT_TRUE(peer.send(closeFrame(1009)));
    ASSERT_TRUE(readFrame(peer));
  }
  EXPECT_TRUE(waitFor([&] { return inbound().peers == 0; }, longTime));
  EXPECT_EQ(refusals(), 0U);
}

TEST_F(InboundStatisticsTests, NotificationsAreUndeliveredUntilTheMainThreadTakesThem) {
  RawSocket peer = upgraded("A");
  const std::string text = R"({"type":0,"subject":"N"})";
  ASSERT_TRUE(peer.send(textFrame(text) + textFrame(text) + textFrame(R"({"type":1})")));
  ASSERT_TRUE(readFrame(peer));
  EXPECT_EQ(now().queues.undeliveredBytes, 2 * text.size());
  EXPECT_EQ(now().notifications.received, 0U);
  ASSERT_TRUE(waitUntil([](const FRXStatistics& s) { return s.notifications.received == 2; }));
  EXPECT_EQ(now().queues.undeliveredBytes, 0U);
}

TEST_F(InboundStatisticsTests, AnswersWaitForAPeerThatDoesNotRead) {
  for (int i = 0; i < 200; ++i) offerStream("angle " + std::to_string(i), "file:///tmp");
  RawSocket deaf = upgraded("A", 4096);
  // Answers of some 20 KB each; the kernel takes some MiB on the peer's behalf before anything waits here.
  const std::string ask = textFrame(
      R"({"type":2,"id":"X","message":"{ capabilities { streaming { name path contentType } } }"})");
  std::string asks;
  for (int i = 0; i < 100; ++i) asks += ask;
  const auto asksUntilItWaits = [&] {
    if (now().queues.inboundBytes > 0) return true;
    EXPECT_TRUE(deaf.send(asks));
    return now().queues.inboundBytes > 0;
  };
  ASSERT_TRUE(waitFor(asksUntilItWaits, longTime));
  deaf.close();
  EXPECT_TRUE(waitFor([&] { return now().queues.inboundBytes == 0; }, longTime));
}

TEST_F(InboundStatisticsTests, APeerWithTooManyAnswersBeforeItIsCutAndCounted) {
  HTTPServerLimits limits;
  limits.webSocketSendQueue = 1000;
  restartWith(limits);
  RawSocket peer = upgraded("A");
  std::string asks;
  for (int i = 0; i < 100; ++i) asks += textFrame(R"({"type":1})");
  ASSERT_TRUE(peer.send(asks));
  EXPECT_TRUE(waitFor([&] { return inbound().messages.overfullQueues == 1; }, longTime));
  EXPECT_EQ(now().messages.overfullQueues, 1U);
}

}  // namespace
}  // namespace ferrox::test
