#include <thread>

#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Tests/Classes/WebSockets/ManagerFixture.h"

namespace ferrox::test {
namespace {

using FRXWebsocketConnectionManagerTests = ManagerFixture;
using Local = RecordingNotificationSink::Local;

constexpr const char* peerId = "A.LOCAL.:16654";

TEST_F(FRXWebsocketConnectionManagerTests, OpensASocketToEveryKnownPeerAtStart) {
  addPeer("a.local.");
  addPeer("b.local.");
  manager->start();
  ASSERT_EQ(clients.size(), 2U);
  EXPECT_TRUE(log->has(LogLevel::Verbose, "Startup - opening WebSocket with A.LOCAL.:16654"));
  EXPECT_EQ(clients[0]->url(), "ws://A.LOCAL.:16654/frxsocket?id=0123-MTI=%2FOWN%20MACHINE");
  EXPECT_EQ(clients[0]->opened, 1);
  EXPECT_EQ(clients[0]->request().connectTimeout, std::chrono::seconds(10));
  EXPECT_TRUE(manager->websockets().empty()) << "filed only when open";
}

TEST_F(FRXWebsocketConnectionManagerTests, TellsThePeerWhereThisInstanceCanBeReached) {
  local = std::make_shared<FRXNetService>("own host.local.", 4711, "0123-MTI=/OWN MACHINE");
  manager->connectToService(addPeer("a.local."));
  EXPECT_EQ(
      last().url(),
      "ws://A.LOCAL.:16654/frxsocket?id=0123-MTI=%2FOWN%20MACHINE&hostname=OWN%20HOST.LOCAL.&port=4711");
}

TEST_F(FRXWebsocketConnectionManagerTests, NamesItsHostAsAnnounced) {
  local = std::make_shared<FRXNetService>("own.local", 4711, "0123-MTI=/OWN MACHINE");
  manager->connectToService(addPeer("a.local."));
  EXPECT_TRUE(last().url().ends_with("&hostname=OWN.LOCAL.&port=4711")) << last().url();
}

TEST_F(FRXWebsocketConnectionManagerTests, RefusesAddressesThatWouldChangeTheURL) {
  for (const char* host : {"a/b", "a?b", "a#b", "a b", "x@a", "a\r\nb", "a\"b", ""}) {
    manager->connectToService(addPeer(host));
    EXPECT_TRUE(clients.empty()) << host;
    forgetPeers();
  }
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "Failed request to get WebSocket connection with service "));
}

TEST_F(FRXWebsocketConnectionManagerTests, AServiceThatIsGoneIsNotDialled) {
  manager->openWebsocketConnectionWithService("GONE.LOCAL.:1");
  manager->openWebsocketConnectionWithService(std::nullopt);
  EXPECT_TRUE(clients.empty());
  EXPECT_TRUE(log->has(LogLevel::Verbose,
                       "Attempted to open WebSocket connection to service that is no longer available: "
                       "GONE.LOCAL.:1"));
}

TEST_F(FRXWebsocketConnectionManagerTests, AnOpenedSocketIsFiledAndAnnounced) {
  const auto peer = addPeer("a.local.");
  auto& client = connect(peer);
  EXPECT_EQ(manager->websockets().size(), 1U);
  EXPECT_TRUE(manager->connectionIsOpenForService(*peer->name()));
  EXPECT_FALSE(manager->connectionIsOpenForService("NOBODY"));
  const FRXDictionary userInfo{{"frxURL", peerId}, {"frxId", peerId}};
  ASSERT_EQ(sink->local.size(), 1U);
  EXPECT_EQ(sink->local[0], (Local{"FRXConnectedNotification", userInfo, peerId}));
  EXPECT_EQ(sink->reposted, std::vector<std::string>{peerId});
  EXPECT_TRUE(log->has(LogLevel::Verbose,
                       std::string("Websocket connection to service ") + peerId + " successfully opened"));
  EXPECT_EQ(client.closeCode, 0);
}

TEST_F(FRXWebsocketConnectionManagerTests, APeerFoundAgainWhileOpenIsClosedAndOpenedAtTheNextTick) {
  const auto peer = addPeer("a.local.");
  manager->start();
  clients.clear();
  auto& first = connect(peer);
  manager->connectToService(peer);
  ASSERT_EQ(clients.size(), 1U) << "no new socket yet";
  EXPECT_EQ(first.readyState(), WebSocketReadyState::Closing);
  EXPECT_FALSE(manager->connectionIsOpenForService(*peer->name()));
  first.ends();
  tick();
  ASSERT_EQ(clients.size(), 2U);
  last().peerAccepts();
  EXPECT_TRUE(manager->connectionIsOpenForService(*peer->name()));
}

TEST_F(FRXWebsocketConnectionManagerTests, ADisconnectedPeerStaysClosedAlthoughListed) {
  const auto peer = addPeer("a.local.");
  manager->start();
  auto& client = last();
  client.peerAccepts();
  manager->disconnectFromService(peer);
  EXPECT_EQ(client.readyState(), WebSocketReadyState::Closing);
  EXPECT_TRUE(manager->websockets().empty());
  client.ends();
  tick();
  EXPECT_EQ(clients.size(), 1U);
  EXPECT_TRUE(log->has(LogLevel::Verbose, "No websocket connections to give a status report on."));
}

TEST_F(FRXWebsocketConnectionManagerTests, DisconnectingTouchesOpenSocketsOnly) {
  const auto peer = addPeer("a.local.");
  manager->start();
  last().fails("refused");
  manager->disconnectFromService(peer);
  EXPECT_EQ(manager->websockets().size(), 1U);
}

TEST_F(FRXWebsocketConnectionManagerTests, APeerThatClosedIsOpenedAgainWhileItIsListed) {
  addPeer("a.local.");
  manager->start();
  last().peerAccepts();
  last().ends(1001, "bye", true);
  const FRXDictionary userInfo{{"code", 1001}, {"wasClean", "YES"}, {"frxURL", peerId}, {"frxId", peerId}};
  EXPECT_EQ(sink->local.back(), (Local{"FRXDisconnectedNotification", userInfo, peerId}));
  tick();
  EXPECT_EQ(clients.size(), 2U);
  last().peerAccepts();
  last().ends(1006, "", false);
  EXPECT_EQ(sink->local.back().userInfo.at("wasClean"), FRXValue("NO"));
  forgetPeers();
  tick();
  EXPECT_EQ(clients.size(), 2U) << "given up: the peer is gone";
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "closed with code: 1006"));
}

TEST_F(FRXWebsocketConnectionManagerTests, AFailedTryIsRepeatedEachTickWhileThePeerIsListed) {
  addPeer("a.local.");
  manager->start();
  for (std::size_t tries = 1; tries <= 3; ++tries) {
    ASSERT_EQ(clients.size(), tries);
    last().fails("refused");
    const FRXDictionary userInfo{{"error", "refused"}, {"frxURL", peerId}, {"frxId", peerId}};
    EXPECT_EQ(sink->local.back(), (Local{"FRXConnectionFailedWithErrorNotification", userInfo, peerId}));
    EXPECT_EQ(manager->websockets().size(), 1U);
    tick();
  }
}

TEST_F(FRXWebsocketConnectionManagerTests, AFailedTryForAPeerThatIsGoneIsForgotten) {
  addPeer("a.local.");
  manager->start();
  forgetPeers();
  last().fails("refused");
  EXPECT_TRUE(manager->websockets().empty());
  EXPECT_EQ(sink->local.back().userInfo.at("frxURL"), FRXValue("n/a"));
  EXPECT_EQ(sink->local.back().filter, std::nullopt);
  tick();
  EXPECT_EQ(clients.size(), 1U);
}

TEST_F(FRXWebsocketConnectionManagerTests, ALaterSocketReplacesAnEarlierOneOfItsPeer) {
  const auto peer = addPeer("a.local.");
  manager->connectToService(peer);
  manager->connectToService(peer);
  ASSERT_EQ(clients.size(), 2U);
  clients[0]->peerAccepts();
  clients[1]->peerAccepts();
  EXPECT_EQ(manager->websockets(), std::vector<std::shared_ptr<WebSocketClient>>{clients[1]});
  EXPECT_EQ(clients[0]->readyState(), WebSocketReadyState::Closing) << "not left open behind our back";
  const std::size_t told = sink->local.size();
  clients[0]->ends();
  EXPECT_EQ(sink->local.size(), told) << "nobody is told of a replaced socket";
}

TEST_F(FRXWebsocketConnectionManagerTests, AFailingSecondTryLeavesTheConnectionAlone) {
  const auto peer = addPeer("a.local.");
  manager->connectToService(peer);
  manager->connectToService(peer);
  clients[0]->peerAccepts();
  clients[1]->fails("refused");
  EXPECT_EQ(manager->websockets(), std::vector<std::shared_ptr<WebSocketClient>>{clients[0]});
  EXPECT_TRUE(manager->connectionIsOpenForService(*peer->name()));
}

TEST_F(FRXWebsocketConnectionManagerTests, StopClosesAllAndStartOpensOnePerKnownPeer) {
  addPeer("a.local.");
  const auto b = addPeer("b.local.");
  manager->start();
  clients[0]->peerAccepts();
  manager->stop();
  EXPECT_EQ(clients[0]->readyState(), WebSocketReadyState::Closing);
  EXPECT_EQ(clients[1]->readyState(), WebSocketReadyState::Closing) << "it would open after the stop";
  EXPECT_TRUE(manager->websockets().empty());
  EXPECT_FALSE(manager->connectionIsOpenForService(*b->name()));
  tick();
  EXPECT_EQ(clients.size(), 2U) << "the monitor is stopped";
  manager->start();
  EXPECT_EQ(clients.size(), 4U);
}

TEST_F(FRXWebsocketConnectionManagerTests, ASecondStartMonitorsTwice) {
  manager->start();
  manager->start();
  log->clear();
  tick();
  EXPECT_EQ(log->count(LogLevel::Verbose, "No websocket connections to give a status report on."), 2U);
  manager->stop();
  log->clear();
  tick();
  EXPECT_TRUE(log->entries().empty());
}

TEST_F(FRXWebsocketConnectionManagerTests, ReportsEveryStateAtATick) {
  for (const char* host : {"a.local.", "b.local.", "c.local."}) connect(addPeer(host));
  manager->connectToService(peers[1]);
  clients[2]->ends();
  forgetPeers();
  manager->start();
  tick();
  EXPECT_TRUE(log->has(LogLevel::Verbose, "websocket connection is open: A.LOCAL.:16654"));
  EXPECT_TRUE(log->has(LogLevel::Verbose, "websocket is currently closing: B.LOCAL.:16654"));
  EXPECT_TRUE(log->has(LogLevel::Verbose, "websocket  connection is closed: C.LOCAL.:16654"));
}

TEST_F(FRXWebsocketConnectionManagerTests, NamesStates) {
  const char* names[] = {"CONNECTING", "OPEN", "CLOSING", "CLOSED", "UNKNOWN"};
  for (int state = 0; state < 5; ++state) EXPECT_EQ(Manager::connectionStatusToString(state), names[state]);
  EXPECT_EQ(Manager::connectionStatusToString(-1), "UNKNOWN");
}

TEST_F(FRXWebsocketConnectionManagerTests, AMachineThatSleptChecksEverythingAtOnce) {
  addPeer("a.local.");
  addPeer("b.local.");
  manager->start();
  clients[0]->peerAccepts();
  clients[1]->fails("refused");
  clock.setCalendar(clock.calendarNow() + std::chrono::hours(8));
  clock.advance(std::chrono::seconds(5), loop);
  EXPECT_EQ(refreshed, 1);
  EXPECT_EQ(clients[0]->checked, 1);
  EXPECT_EQ(clients.size(), 3U) << "the closed one is tried before its tick";
}

TEST_F(FRXWebsocketConnectionManagerTests, ManyReconnectsDoNotAllDialInOneInstant) {
  for (int i = 0; i < 40; ++i) addPeer("h" + std::to_string(i) + ".local.");
  manager->start();
  std::set<std::chrono::milliseconds> delays;
  for (const auto& client : clients) {
    EXPECT_LE(client->request().dialDelay, std::chrono::seconds(1));
    delays.insert(client->request().dialDelay);
  }
  EXPECT_EQ(clients[0]->request().dialDelay.count(), 0) << "a few peers are dialled at once";
  EXPECT_GT(delays.size(), 5U);
}

TEST_F(FRXWebsocketConnectionManagerTests, MayBeCalledFromAnyThread) {
  const auto peer = addPeer("a.local.");
  std::thread([&] { manager->connectToService(peer); }).join();
  EXPECT_TRUE(clients.empty());
  loop.runPending();
  ASSERT_EQ(clients.size(), 1U);
  last().peerAccepts();
  std::thread([&] {
    EXPECT_TRUE(manager->connectionIsOpenForService(*peer->name()));
    manager->broadcastMessage(notification("N"));
    manager->broadcastMessage(notification("N"), peer->serviceId());
  }).join();
  EXPECT_TRUE(last().sent.empty());
  loop.runPending();
  EXPECT_EQ(last().sent.size(), 2U);
}

TEST_F(FRXWebsocketConnectionManagerTests, KeepsSettingsForNewSockets) {
  WebSocketClientRequest settings;
  settings.pingInterval = std::chrono::seconds(3);
  manager->setConnectionSettings(settings);
  manager->connectToService(addPeer("a.local."));
  EXPECT_EQ(last().request().pingInterval, std::chrono::seconds(3));
}

}  // namespace
}  // namespace ferrox::test
