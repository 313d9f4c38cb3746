// The numbers of an instance that is connected to itself: what one side sends the other one receives.
#include <gtest/gtest.h>

#include <thread>

#include "Tests/Classes/Statistics/StatisticsFixture.h"

namespace ferrox::test {
namespace {

class FRXStatisticsTests : public StatisticsFixture {
 protected:
  FRXMessageStatistics outbound() const { return manager_->statistics().messages; }
  FRXMessageStatistics inbound() const { return inbound_->statistics().messages; }
};

TEST_F(FRXStatisticsTests, WhatOneSideSendsTheOtherReceivesToTheByte) {
  const std::string self = addOwnServer();
  connectAll();
  for (int i = 0; i < 20; ++i) manager_->broadcastMessage(notification("N", {{"i", i}}));
  for (int i = 0; i < 5; ++i) manager_->broadcastMessage(notification("N"), self);
  int replies = 0;
  for (int i = 0; i < 3; ++i) {
    manager_->broadcastMessage(
        query(), self, [&](const std::string&) { ++replies; }, nullptr);
  }
  manager_->broadcastMessage(
      {FRXMessageType::FRXMessageTypeHeartbeat, std::nullopt, std::nullopt, std::nullopt}, self);
  manager_->forwardMessage(R"({"type":0,"subject":"F"})", "ELSE:1");
  EXPECT_EQ(outbound().sent, 30U);
  ASSERT_TRUE(waitFor(
      loop_,
      [&] {
        return replies == 3 && outbound().receivedBytes == inbound().sentBytes &&
               inbound().receivedBytes == outbound().sentBytes;
      },
      longTime));
  EXPECT_EQ(outbound().received, 4U);
  EXPECT_EQ(inbound().received, 30U);
  EXPECT_EQ(inbound().sent, 4U) << "three replies and a heartbeat";
  EXPECT_GT(outbound().sentBytes, 30U * 20);
  const FRXStatistics all = now();
  EXPECT_EQ(all.messages.sent, 34U);
  EXPECT_EQ(all.messages.sentBytes, all.messages.receivedBytes);
  EXPECT_EQ(all.messages.received, 34U);
  EXPECT_EQ(all.http.upgrades, 1U);
  // Counted once the system has taken them, when the other side may have read them already.
  EXPECT_TRUE(waitUntil([&](const FRXStatistics& s) { return s.http.bytesSent > inbound().sentBytes; }));
}

TEST_F(FRXStatisticsTests, ABroadcastCountsOnceForEachPeer) {
  addOwnServer();
  addOwnServer("127.0.0.2");
  addOwnServer("127.0.0.3");
  connectAll();
  const auto message = notification("N");
  manager_->broadcastMessage(message);
  EXPECT_EQ(now().messages.sent, 3U);
  EXPECT_EQ(now().messages.sentBytes, 3 * message.toJson()->size());
  EXPECT_TRUE(waitUntil([](const FRXStatistics& s) { return s.messages.received == 3; }));
}

TEST_F(FRXStatisticsTests, PeersAreCountedByWhatIsKnownOfThem) {
  for (const char* host : {"a.local.", "b.local.", "c.local."}) {
    browser_->monitorService(std::make_shared<FRXNetService>(host, 16654, "DEV-MTI=/" + std::string(host)));
  }
  browser_->monitorService(std::make_shared<FRXNetService>("d.local.", 99999, "DEV-MTI=/D"));
  loop_.runPending();
  EXPECT_EQ(now().peers.known, 3U);
  EXPECT_EQ(now().peers.refused, 1U) << "no such port";
  EXPECT_EQ(now().peers.responsive, 0U);
  browser_->serviceWithId("A.LOCAL.:16654")->setIsAvailable(true);
  EXPECT_EQ(now().peers.responsive, 1U);

  EXPECT_EQ(now().peers.connectedOutbound + now().peers.connectedInbound, 0U);
  addOwnServer();
  addOwnServer("127.0.0.2");
  connectAll();
  EXPECT_EQ(now().peers.connectedOutbound, 2U);
  EXPECT_TRUE(waitUntil([](const FRXStatistics& s) { return s.peers.connectedInbound == 1; }))
      << "both sockets carry this instance's own name";
  manager_->stop();
  EXPECT_TRUE(waitUntil([](const FRXStatistics& s) {
    return s.peers.connectedOutbound == 0 && s.peers.connectedInbound == 0;
  }));
}

TEST_F(FRXStatisticsTests, NotificationsAreCountedWhereTheyPassTheCenter) {
  addOwnServer();
  connectAll();
  center_->postOutgoingNotification("A", {}, std::nullopt, true);
  center_->postOutgoingNotification("B", {}, std::nullopt, true);
  center_->postOutgoingNotification("B", {}, std::nullopt, true);
  center_->postOutgoingNotification("C", {}, std::nullopt, false);
  center_->postOutgoingNotification("D", {{"when", FRXDate{}}}, std::nullopt, true);
  EXPECT_EQ(now().notifications.posted, 4U);
  EXPECT_EQ(now().notifications.unwritable, 1U);
  EXPECT_EQ(now().queues.notificationsKept, 2U);
  ASSERT_TRUE(waitUntil([](const FRXStatistics& s) { return s.notifications.received == 4; }));
  EXPECT_EQ(now().notifications.reposted, 0U);
  center_->repostNotificationsToService(peers_[0]->serviceId());
  EXPECT_EQ(now().notifications.reposted, 2U);
  EXPECT_EQ(now().notifications.posted, 4U);
  EXPECT_TRUE(waitUntil([](const FRXStatistics& s) { return s.notifications.received == 6; }));
}

TEST_F(FRXStatisticsTests, WhatAnotherThreadPostsWaitsForTheMainOne) {
  std::thread([&] {
    for (int i = 0; i < 3; ++i) center_->postOutgoingNotification("N", {}, std::nullopt, false);
    center_->postOutgoingNotification("N", {{"when", FRXDate{}}}, std::nullopt, false);
  }).join();
  EXPECT_EQ(now().queues.notificationsWaiting, 3U);
  EXPECT_EQ(now().notifications.posted, 0U);
  EXPECT_EQ(now().notifications.unwritable, 1U);
  loop_.runPending();
  EXPECT_EQ(now().queues.notificationsWaiting, 0U);
  EXPECT_EQ(now().notifications.posted, 3U);
}

TEST_F(FRXStatisticsTests, WithoutAServerItsNumbersAreZero) {
  get("/");
  ASSERT_GT(now().http.succeeded, 0U);
  const FRXStatistics none = gatherStatistics({.browser = *browser_,
                                               .manager = *manager_,
                                               .inbound = *inbound_,
                                               .center = *center_,
                                               .server = nullptr,
                                               .copies = *copies_});
  EXPECT_EQ(none.http.connectionsAccepted + none.http.succeeded + none.http.bytesSent, 0U);
}

}  // namespace
}  // namespace ferrox::test
