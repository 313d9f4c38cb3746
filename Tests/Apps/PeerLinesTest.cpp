#include <gtest/gtest.h>

#include "Apps/ferrox/Terminal/PeerLines.h"
#include "Classes/Discovery/FRXNetService.h"

namespace ferrox::command {
namespace {

const auto early = std::chrono::system_clock::from_time_t(1700000000);
const auto late = early + std::chrono::minutes(5);

Peer makePeer() {
  Peer peer;
  peer.service = std::make_shared<FRXNetService>("suite-3.local.", 7000, "0123ABCD-MTIZ/SUITE 3");
  peer.state = PeerState::Responsive;
  peer.since = early;
  return peer;
}

TEST(PeerLines, AConnectedPeerShowsSinceWhen) {
  Peer peer = makePeer();
  EXPECT_NE(peerLines({peer}, 100, Style(false))[1].find("responsive  " + clockText(early)),
            std::string::npos);
  peer.connectedSince = late;
  EXPECT_NE(peerLines({peer}, 100, Style(false))[1].find("connected  " + clockText(late)), std::string::npos);
  peer.state = PeerState::Unresponsive;
  EXPECT_NE(peerLines({peer}, 100, Style(false))[1].find("unresponsive  " + clockText(early)),
            std::string::npos)
      << "a connection to a silent peer is worth nothing";
}

TEST(NotificationText, TellsNameFilterSenderAndPayload) {
  SeenNotification seen{"TAKE", {}, "0123ABCD-MTIZ/SUITE 3", early, {}, false};
  EXPECT_EQ(notificationText(seen), "TAKE from SUITE 3");
  seen.filter = "reel 7";
  seen.userInfo = {{"a", 1}};
  EXPECT_EQ(notificationText(seen), R"(TAKE [reel 7] from SUITE 3: {"a":1})");
  seen.local = true;
  EXPECT_EQ(notificationText(seen), R"(TAKE [reel 7] from here: {"a":1})");
}

TEST(NotificationText, ASenderThatIsNoPublishedNameStandsForItself) {
  EXPECT_EQ(notificationText({"TAKE", {}, "somebody", early, {}, false}), "TAKE from somebody");
  EXPECT_EQ(notificationText({"TAKE", {}, "", early, {}, false}), "TAKE from ?");
}

TEST(ConnectionText, TellsHowItEnded) {
  using Change = ConnectionEvent::Change;
  ConnectionEvent event{Change::Connected, {{"frxURL", "SUITE-3.LOCAL.:7000"}}, makePeer()};
  EXPECT_EQ(connectionText(event), "connected to SUITE 3 (suite-3.local:7000)");
  event = {Change::Disconnected, {{"code", 1000}, {"wasClean", "YES"}}, makePeer()};
  EXPECT_EQ(connectionText(event), "disconnected from SUITE 3 (suite-3.local:7000)");
  event = {Change::Disconnected, {{"code", 1009}, {"wasClean", "NO"}}, makePeer()};
  EXPECT_EQ(connectionText(event), "disconnected from SUITE 3 (suite-3.local:7000), closed with code 1009");
  event = {Change::Failed, {{"error", "refused"}, {"frxURL", "SUITE-3.LOCAL.:7000"}}, {}};
  EXPECT_EQ(connectionText(event), "no connection to SUITE-3.LOCAL.:7000: refused");
}

TEST(PreciseClockText, HasMilliseconds) {
  EXPECT_EQ(preciseClockText(early + std::chrono::milliseconds(42)), clockText(early) + ".042");
  const auto before1970 = std::chrono::system_clock::from_time_t(0) - std::chrono::milliseconds(1);
  EXPECT_EQ(preciseClockText(before1970).substr(8), ".999");
}

}  // namespace
}  // namespace ferrox::command
