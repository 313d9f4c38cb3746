// The numbers of the connections that this instance opens, against peers of every kind.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Tests/Classes/Statistics/StatisticsFixture.h"
#include "Tests/Platform/WebSocket/ScriptedPeer.h"
#include "Tests/Support/ScriptedHTTPServer.h"

namespace ferrox::test {
namespace {

class OutboundStatisticsTests : public StatisticsFixture {
 protected:
  ~OutboundStatisticsTests() override {
    released_ = true;
    manager_->stop();
    scripted_.reset();
  }

  FRXOutboundStatistics outbound() const { return manager_->statistics(); }
  /// A peer that completes the handshake and then does what the script says.
  std::string addScriptedPeer(std::function<void(ScriptedPeer&, ScriptedConnection&)> script) {
    scripted_ =
        std::make_unique<ScriptedHTTPServer>([script = std::move(script)](ScriptedConnection& connection) {
          ScriptedPeer peer(connection);
          peer.accept();
          script(peer, connection);
        });
    return addPeer("127.0.0.1", scripted_->port());
  }
  void waitForRelease() const {
    while (!released_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::shared_ptr<FRXNetService> peer() const { return peers_.back(); }
  /// What counts once a peer has sent these bytes, which end the connection.
  FRXMessageStatistics after(const std::string& bytes) {
    const std::size_t refusedBefore = refusals();
    addScriptedPeer([bytes](ScriptedPeer& peer, ScriptedConnection&) {
      peer.send(bytes);
      peer.waitForEnd();
    });
    WebSocketClientRequest settings;
    settings.maxMessage = 1000;
    manager_->setConnectionSettings(settings);
    clock_.advance(std::chrono::seconds(1), loop_);
    manager_->connectToService(peer());
    EXPECT_TRUE(waitFor(
        loop_, [&] { return refusals() > refusedBefore; }, longTime));
    return outbound().messages;
  }
  std::size_t refusals() const {
    const FRXMessageStatistics messages = outbound().messages;
    return messages.binary + messages.tooLarge + messages.notUtf8 + messages.badFrames;
  }

  std::atomic<bool> released_{false};
  std::unique_ptr<ScriptedHTTPServer> scripted_;
};

TEST_F(OutboundStatisticsTests, MessagesToNobodyCountAsNotConnected) {
  manager_->broadcastMessage(notification("N"));
  EXPECT_EQ(outbound().messages.notConnected, 1U);
  manager_->broadcastMessage(notification("N"), "NOBODY:1");
  EXPECT_EQ(outbound().messages.notConnected, 2U);
  manager_->broadcastMessage(
      query(), "NOBODY:1", [](const std::string&) {}, nullptr);
  EXPECT_EQ(outbound().messages.notConnected, 3U);
  EXPECT_EQ(outbound().messages.sent, 0U);
  EXPECT_EQ(outbound().awaitedReplies, 0U);
}

TEST_F(OutboundStatisticsTests, AMessageToAPeerWhoseConnectionIsBeingClosedIsNotSent) {
  const std::string self = addOwnServer();
  connectAll();
  manager_->connectToService(peer());  // closes it
  manager_->broadcastMessage(notification("N"), self);
  manager_->broadcastMessage(notification("N"));
  EXPECT_EQ(outbound().messages.notConnected, 2U);
  EXPECT_EQ(outbound().messages.sent, 0U);
}

TEST_F(OutboundStatisticsTests, WhatCannotBeWrittenIsCountedAndNotSent) {
  addOwnServer();
  connectAll();
  const auto unwritable = notification("N", {{"when", FRXDate{}}});
  manager_->broadcastMessage(unwritable);
  manager_->broadcastMessage(unwritable, peer()->serviceId());
  manager_->forwardMessage("\xFF\xFE", "ELSE:1");
  std::thread([&] { manager_->broadcastMessage(unwritable); }).join();
  EXPECT_EQ(outbound().messages.unwritable, 4U);
  EXPECT_EQ(outbound().messages.sent, 0U);
  EXPECT_EQ(outbound().messages.notConnected, 0U);
}

TEST_F(OutboundStatisticsTests, ConnectionsCountByWhatBecameOfThem) {
  addOwnServer();
  connectAll();
  EXPECT_EQ(outbound().connections.attempts, 1U);
  EXPECT_EQ(outbound().connections.opened, 1U);
  EXPECT_EQ(outbound().connections.reopened, 0U);
  EXPECT_EQ(outbound().openSockets, 1U);

  manager_->disconnectFromService(peer());
  EXPECT_EQ(outbound().openSockets, 0U);
  connectAll();
  EXPECT_EQ(outbound().connections.opened, 2U);
  EXPECT_EQ(outbound().connections.reopened, 1U);

  std::uint16_t nobody = 0;
  {
    const ScriptedHTTPServer gone([](ScriptedConnection&) {});
    nobody = gone.port();
  }
  addPeer("127.0.0.1", nobody);
  manager_->connectToService(peer());
  EXPECT_TRUE(waitUntil([](const FRXStatistics& s) { return s.connections.failed == 1; }));
  EXPECT_EQ(outbound().connections.attempts, 3U);
  EXPECT_EQ(outbound().connections.opened, 2U);
  EXPECT_EQ(outbound().connections.lost, 0U);
}

TEST_F(OutboundStatisticsTests, AnAddressThatMakesNoUrlIsAFailedAttempt) {
  addPeer("not a host", 1);
  manager_->connectToService(peer());
  EXPECT_EQ(outbound().connections.attempts, 1U);
  EXPECT_EQ(outbound().connections.failed, 1U);
}

TEST_F(OutboundStatisticsTests, AConnectionThatBreaksIsLostAndOneThatWasClosedIsNot) {
  addScriptedPeer([&](ScriptedPeer&, ScriptedConnection& connection) {
    waitForRelease();
    connection.reset();
  });
  connectAll();
  released_ = true;
  EXPECT_TRUE(waitUntil([](const FRXStatistics& s) { return s.connections.lost == 1; }));
  EXPECT_EQ(outbound().connections.failed, 0U);
  addOwnServer();
  clock_.advance(std::chrono::seconds(1), loop_);
  manager_->connectToService(peer());
  ASSERT_TRUE(waitUntil([](const FRXStatistics& s) { return s.peers.connectedOutbound == 1; }));
  server_->stop();
  EXPECT_TRUE(waitUntil([](const FRXStatistics& s) { return s.peers.connectedOutbound == 0; }));
  EXPECT_EQ(outbound().connections.lost, 1U);
}

TEST_F(OutboundStatisticsTests, WhatAPeerSendsAmissIsRefusedUnderItsReason) {
  EXPECT_EQ(after(frameOf(0x82, "binary")).binary, 1U);
  EXPECT_EQ(after(textFrame(std::string(1001, 'x'))).tooLarge, 1U);
  EXPECT_EQ(after(textFrame("\xFF\xFE")).notUtf8, 1U);
  EXPECT_EQ(after(frameOf(0x83, "reserved opcode")).badFrames, 1U);
  EXPECT_EQ(refusals(), 4U);
  EXPECT_EQ(outbound().messages.received, 0U);
  EXPECT_EQ(outbound().connections.lost, 0U);
}

TEST_F(OutboundStatisticsTests, AClosingPeerRefusesNothingOfItsOwn) {
  addScriptedPeer([](ScriptedPeer& peer, ScriptedConnection& connection) {
    peer.send(closeFrame(1009));
    connection.reset();
  });
  clock_.advance(std::chrono::seconds(1), loop_);
  manager_->connectToService(peer());
  ASSERT_TRUE(waitUntil(
      [](const FRXStatistics& s) { return s.connections.opened == 1 && s.peers.connectedOutbound == 0; }));
  loop_.runPending();
  EXPECT_EQ(refusals(), 0U);
}

TEST_F(OutboundStatisticsTests, TextsThatAreNoMessagesAreDroppedUnderTheirReason) {
  addScriptedPeer([](ScriptedPeer& peer, ScriptedConnection&) {
    for (const char* text : {"no json", "[]", R"({"type":77})", R"({"type":2})",
                             R"({"type":2,"id":"NOBODY"})", R"({"type":1})", R"({"type":0,"subject":"N"})"}) {
      peer.send(textFrame(text));
    }
    peer.waitForEnd();
  });
  connectAll();
  ASSERT_TRUE(waitUntil([](const FRXStatistics& s) { return s.notifications.received == 1; }));
  const FRXMessageStatistics messages = outbound().messages;
  EXPECT_EQ(messages.received, 7U);
  EXPECT_EQ(messages.malformed, 2U);
  EXPECT_EQ(messages.unknownTypes, 1U);
  EXPECT_EQ(messages.unawaitedReplies, 2U);
  EXPECT_EQ(messages.receivedBytes, 7U + 2 + 11 + 10 + 24 + 10 + 24);
}

TEST_F(OutboundStatisticsTests, AReplyIsAwaitedUntilItComesOrIsGivenUp) {
  const std::string self = addOwnServer();
  connectAll();
  const auto first = query(), second = query();
  int replies = 0;
  for (const auto& request : {first, second}) {
    manager_->broadcastMessage(
        request, self, [&](const std::string&) { ++replies; }, nullptr);
  }
  EXPECT_EQ(now().queues.awaitedReplies, 2U);
  manager_->forgetReply(*second.id());
  EXPECT_EQ(now().queues.awaitedReplies, 1U);
  ASSERT_TRUE(waitUntil([](const FRXStatistics& s) { return s.messages.unawaitedReplies == 1; }));
  EXPECT_EQ(replies, 1);
  EXPECT_EQ(now().queues.awaitedReplies, 0U);
}

TEST_F(OutboundStatisticsTests, AQueueGrowsUntilThePeerThatDoesNotReadIsCut) {
  const std::string deaf = addScriptedPeer([&](ScriptedPeer&, ScriptedConnection&) { waitForRelease(); });
  connectAll();
  EXPECT_EQ(now().queues.outboundBytes, 0U);
  const auto bulky = notification("N", {{"p", std::string(60 * 1024, 'x')}});
  const auto sendUntil = [&](const std::function<bool(const FRXStatistics&)>& isSo) {
    return waitFor(
        loop_,
        [&] {
          if (isSo(now())) return true;
          manager_->broadcastMessage(bulky, deaf);
          loop_.runPending();
          return false;
        },
        longTime);
  };
  EXPECT_TRUE(sendUntil([](const FRXStatistics& s) { return s.queues.outboundBytes > 1'000'000; }));
  EXPECT_EQ(now().messages.overfullQueues, 0U);
  EXPECT_TRUE(sendUntil([](const FRXStatistics& s) { return s.messages.overfullQueues == 1; }));
  EXPECT_EQ(now().connections.lost, 1U);
  EXPECT_EQ(now().queues.outboundBytes, 0U);
}

}  // namespace
}  // namespace ferrox::test
