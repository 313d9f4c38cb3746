// The statements of docs/delivery.md, under their numbers, over real sockets.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/WebSockets/FRXWebsocket.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Platform/WebSocket/WebSocketHandshake.h"
#include "Tests/Classes/HTTPServer/HostFixture.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

/// What one instance posts is received by another in the same process: each has a center of its own, and the
/// sockets between them are real.
class Delivery : public HostFixture, public NotificationSink {
 protected:
  struct Arrival {
    std::string name;
    FRXDictionary userInfo;
  };

  Delivery() {
    loop_.runPending();
    NotificationSink::setRegistered(std::shared_ptr<NotificationSink>(std::shared_ptr<void>(), this));
    LocalServiceDirectory::setServiceLookup([this](const std::string& id) { return known(id); });
    FRXWebsocket::acceptUpgrades(loop_);
    server_->republishBonjourWithServiceName("OWN-MTI=/HOST");
    start();
    receiver_ = addPeer(server_->port());
    settings_.pingInterval = std::chrono::milliseconds(0);
    observation_ = receiving_->addObserver(std::nullopt, std::nullopt, [this](const LocalNotification& post) {
      threads_.push_back(std::this_thread::get_id());
      arrivals_.push_back({post.name, post.userInfo});
    });
  }
  ~Delivery() override {
    manager_->stop();
    manager_.reset();
    deaf_.reset();
    server_->stop();
    NotificationSink::setRegistered(nullptr);
    LocalServiceDirectory::setServiceLookup(nullptr);
  }

  // What the sockets tell: events of connections are kept, what arrives goes to the receiver.
  void postLocalNotification(const std::string& name, const FRXDictionary& userInfo,
                             const std::optional<std::string>&) override {
    events_.emplace_back(name, *userInfo.at("frxId").asText());
  }
  void postIncomingNotification(const FRXNotification& notification, const std::string& session) override {
    receiving_->postIncomingNotification(notification, session);
  }
  void repostNotificationsToService(const std::string& serviceId) override {
    sending_->repostNotificationsToService(serviceId);
  }

  std::shared_ptr<FRXNetService> addPeer(std::uint16_t port) {
    peers_.push_back(std::make_shared<FRXNetService>("127.0.0.1", port, "PEER-" + std::to_string(port)));
    return peers_.back();
  }
  std::shared_ptr<FRXNetService> known(const std::string& id) const {
    const auto found =
        std::find_if(peers_.begin(), peers_.end(), [&](const auto& peer) { return peer->serviceId() == id; });
    return found == peers_.end() ? nullptr : *found;
  }
  void connect(const std::shared_ptr<FRXNetService>& peer) {
    manager_->setConnectionSettings(settings_);
    manager_->connectToService(peer);
    ASSERT_TRUE(waitFor(loop_, [&] { return manager_->isConnectedToService(peer->serviceId()); }));
  }
  void disconnect(const std::shared_ptr<FRXNetService>& peer) {
    manager_->disconnectFromService(peer);
    ASSERT_TRUE(waitForEvent(FRXDisconnectedNotification, peer));
  }
  bool waitForEvent(const std::string& name, const std::shared_ptr<FRXNetService>& peer) {
    return waitFor(loop_, [&] {
      return std::find(events_.begin(), events_.end(), std::pair(name, peer->serviceId())) != events_.end();
    });
  }
  void post(const std::string& name, FRXDictionary userInfo = {}, bool repost = false,
            const std::optional<std::string>& filter = std::nullopt) {
    sending_->postOutgoingNotification(name, userInfo, filter, repost);
  }
  bool waitForArrivals(std::size_t count) {
    return waitFor(loop_, [&] { return arrivals_.size() >= count; });
  }
  /// Everything posted before this has arrived, or never will.
  void sync() {
    const std::size_t before = arrivals_.size();
    post("SYNC");
    ASSERT_TRUE(waitFor(loop_, [&] { return arrivals_.size() > before && arrivals_.back().name == "SYNC"; }));
    arrivals_.pop_back();
  }
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& arrival : arrivals_) result.push_back(arrival.name);
    return result;
  }

  /// A peer that accepts a socket and then reads nothing, until it goes.
  std::shared_ptr<FRXNetService> addDeafPeer() {
    deaf_ = std::make_unique<ScriptedHTTPServer>([this](ScriptedConnection& connection) {
      const std::string request = connection.readRequest();
      const std::string field = "Sec-WebSocket-Key: ";
      const std::size_t key = request.find(field) + field.size();
      connection.send(
          "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
          "Sec-WebSocket-Accept: " +
          webSocketAcceptKey(request.substr(key, request.find("\r\n", key) - key)) + "\r\n\r\n");
      while (!leaves_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      connection.reset();
    });
    return addPeer(deaf_->port());
  }
  static FRXDictionary bulk() { return {{"p", std::string(60 * 1024, 'x')}}; }

  const LogRecording log_;
  ScriptedResolver resolver_;
  NotificationDispatcher sendersDispatcher_, receiversDispatcher_;
  std::vector<std::shared_ptr<FRXNetService>> peers_;
  std::vector<std::pair<std::string, std::string>> events_;
  std::vector<Arrival> arrivals_;
  std::vector<std::thread::id> threads_;
  WebSocketClientRequest settings_;
  std::atomic<bool> leaves_{false};
  std::unique_ptr<ScriptedHTTPServer> deaf_;
  std::shared_ptr<FRXNetService> receiver_;
  std::shared_ptr<FRXWebsocketConnectionManager> manager_ = FRXWebsocketConnectionManager::make(
      {.mainLoop = &loop_,
       .makeClient = [this](
                         const WebSocketClientRequest& request,
                         FRXError* error) { return WebSocketClient::make(request, resolver_, loop_, error); },
       .currentServices = [this] { return peers_; },
       .idForServiceName = [](const std::string&) { return std::nullopt; },
       .localFRXService = [] { return nullptr; },
       .refreshDiscovery = {}});
  std::shared_ptr<FRXNotificationCenter> sending_ =
      FRXNotificationCenter::make({.mainLoop = &loop_,
                                   .dispatcher = &sendersDispatcher_,
                                   .broadcaster = [this] { return manager_; },
                                   .serviceWithId = {}});
  std::shared_ptr<FRXNotificationCenter> receiving_ = FRXNotificationCenter::make(
      {.mainLoop = &loop_, .dispatcher = &receiversDispatcher_, .broadcaster = {}, .serviceWithId = {}});
  FRXNotificationCenter::Observation observation_;
};

TEST_F(Delivery, S1APeerGetsEverythingInTheOrderOfPosting) {
  connect(receiver_);
  constexpr int count = 600;
  for (int i = 0; i < count; ++i) {
    if (i % 3 == 0) {
      manager_->broadcastMessage(
          {FRXMessageType::FRXMessageTypeNotification, "N" + std::to_string(i), std::nullopt, std::nullopt},
          receiver_->serviceId());
    } else {
      post("N" + std::to_string(i));
    }
    if (i % 50 == 0) loop_.runPending();
  }
  ASSERT_TRUE(waitForArrivals(count));
  std::vector<std::string> expected;
  for (int i = 0; i < count; ++i) expected.push_back("N" + std::to_string(i));
  EXPECT_EQ(names(), expected);
}

TEST_F(Delivery, S2ASlowPeerDelaysNoOther) {
  connect(receiver_);
  connect(addDeafPeer());
  constexpr std::size_t count = 100;  // 6 MB: more than the kernel takes, less than the limit
  for (std::size_t i = 0; i < count; ++i) post("N", bulk());
  EXPECT_TRUE(waitForArrivals(count));
  EXPECT_TRUE(manager_->isConnectedToService(peers_[1]->serviceId()));
  leaves_ = true;
}

TEST_F(Delivery, S3ANotificationCarriesItsSenderAndTheSendersTime) {
  connect(receiver_);
  post("N");
  ASSERT_TRUE(waitForArrivals(1));
  EXPECT_EQ(arrivals_[0].userInfo.at("sender"), FRXValue("OWN-MTI=/HOST"));
  ASSERT_NE(arrivals_[0].userInfo.at("timestamp").asDate(), nullptr);
}

TEST_F(Delivery, S4APeerThatIsNotConnectedGetsNothingLater) {
  post("MISSED");
  connect(receiver_);
  sync();
  EXPECT_TRUE(arrivals_.empty());
}

TEST_F(Delivery, S5WhatABrokenConnectionHeldIsLostAndTheBreakIsTold) {
  const auto deaf = addDeafPeer();
  connect(deaf);
  for (int i = 0; i < 50; ++i) post("LOST", bulk());
  leaves_ = true;
  EXPECT_TRUE(waitForEvent(FRXConnectionFailedWithErrorNotification, deaf));
  EXPECT_FALSE(manager_->isConnectedToService(deaf->serviceId()));
}

TEST_F(Delivery, S6APeerThatDoesNotReadLosesItsConnection) {
  settings_.maxSendQueue = std::size_t{1} << 20;
  connect(receiver_);
  const auto deaf = addDeafPeer();
  connect(deaf);
  // The kernel takes some MiB on its behalf before anything waits here.
  for (int i = 0; i < 600 && manager_->isConnectedToService(deaf->serviceId()); ++i) {
    post("N", bulk());
    ASSERT_TRUE(waitForArrivals(static_cast<std::size_t>(i) + 1)) << "the other peer gets all";
  }
  EXPECT_TRUE(waitForEvent(FRXConnectionFailedWithErrorNotification, deaf));
  EXPECT_TRUE(manager_->isConnectedToService(receiver_->serviceId()));
  leaves_ = true;
}

TEST_F(Delivery, S7AMessageAboveTheReceiversLimitEndsTheConnection) {
  connect(receiver_);
  post("TOO LONG", {{"p", std::string((std::size_t{4} << 20) + 1, 'x')}});
  EXPECT_TRUE(waitForEvent(FRXDisconnectedNotification, receiver_));
  EXPECT_TRUE(arrivals_.empty());
  EXPECT_TRUE(log_->mentions(LogLevel::Verbose, "cleanly closed with code: 1009"));
  connect(receiver_);
  sync();
}

TEST_F(Delivery, S8WhatJsonCannotCarryIsSentToNobody) {
  connect(receiver_);
  post("N", {{"when", FRXDate{}}}, true);
  disconnect(receiver_);
  connect(receiver_);
  sync();
  EXPECT_TRUE(arrivals_.empty());
}

TEST_F(Delivery, S9EveryNewConnectionGetsTheLatestOfEachKeptName) {
  post("KEPT", {{"v", 1}}, true, "x");
  post("KEPT", {{"v", 2}}, true, "y");
  post("KEPT", {{"v", 3}}, false);
  post("OTHER", {{"v", 4}}, true);
  connect(receiver_);
  sync();
  EXPECT_EQ(names(), (std::vector<std::string>{"KEPT", "OTHER"}));
  EXPECT_EQ(arrivals_[0].userInfo.at("v"), FRXValue(2));
  EXPECT_EQ(arrivals_[0].userInfo.at("filter"), FRXValue("y"));
}

TEST_F(Delivery, S10WhatIsKeptArrivesAsItWasPosted) {
  connect(receiver_);
  post("KEPT", {{"v", 1}}, true);
  ASSERT_TRUE(waitForArrivals(1));
  disconnect(receiver_);
  clock_.advance(std::chrono::hours(1));
  connect(receiver_);
  ASSERT_TRUE(waitForArrivals(2));
  EXPECT_EQ(arrivals_[0].userInfo, arrivals_[1].userInfo) << "the timestamp included";
}

TEST_F(Delivery, S11ALostConnectionIsOpenedAgainAtTheNextTick) {
  manager_->start();
  ASSERT_TRUE(waitFor(loop_, [&] { return manager_->isConnectedToService(receiver_->serviceId()); }));
  server_->stop();
  ASSERT_TRUE(waitFor(loop_, [&] { return !manager_->isConnectedToService(receiver_->serviceId()); }));
  server_->setPort(static_cast<std::uint16_t>(receiver_->port()));
  start();
  clock_.advance(std::chrono::seconds(15), loop_);
  EXPECT_TRUE(waitFor(loop_, [&] { return manager_->isConnectedToService(receiver_->serviceId()); }));
}

TEST_F(Delivery, S12OnlyWhatIsKeptComesMoreThanOnce) {
  connect(receiver_);
  post("KEPT", {}, true);
  post("ONCE");
  sync();
  for (int i = 0; i < 3; ++i) {
    events_.clear();
    disconnect(receiver_);
    connect(receiver_);
    sync();
  }
  const auto all = names();
  EXPECT_EQ(std::count(all.begin(), all.end(), "KEPT"), 4);
  EXPECT_EQ(std::count(all.begin(), all.end(), "ONCE"), 1);
}

TEST_F(Delivery, S13CopiesCarryTheSameIdNameSenderAndTime) {
  class Ids final : public FRXMessageSentDelegate {
   public:
    void frxMessageWasSent(const FRXWebsocketMessage& message,
                           const std::shared_ptr<FRXNetService>&) override {
      ids.push_back(message.id().value_or(""));
    }
    std::vector<std::string> ids;
  };
  const auto sent = std::make_shared<Ids>();
  manager_->setDelegate(sent);
  connect(receiver_);
  post("KEPT", {}, true);
  ASSERT_TRUE(waitForArrivals(1));
  disconnect(receiver_);
  connect(receiver_);
  ASSERT_TRUE(waitForArrivals(2));
  ASSERT_EQ(sent->ids.size(), 2U);
  EXPECT_EQ(sent->ids[0], sent->ids[1]);
  EXPECT_EQ(arrivals_[0].name, arrivals_[1].name);
  EXPECT_EQ(arrivals_[0].userInfo.at("timestamp"), arrivals_[1].userInfo.at("timestamp"));
  EXPECT_EQ(arrivals_[0].userInfo.at("sender"), arrivals_[1].userInfo.at("sender"));
}

TEST_F(Delivery, S14ObserversAreCalledOnTheMainThreadOneAfterAnother) {
  connect(receiver_);
  for (int i = 0; i < 20; ++i) post("N");
  ASSERT_TRUE(waitForArrivals(20));
  EXPECT_TRUE(std::all_of(threads_.begin(), threads_.end(),
                          [](std::thread::id id) { return id == std::this_thread::get_id(); }));
}

TEST_F(Delivery, S15ThePostersOwnObserversAreNotCalled) {
  int called = 0;
  const auto own = sending_->addObserver("N", std::nullopt, [&](const LocalNotification&) { ++called; });
  connect(receiver_);
  post("N");
  ASSERT_TRUE(waitForArrivals(1));
  EXPECT_EQ(called, 0);
}

std::size_t openDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

TEST_F(Delivery, ReconnectingTwoHundredTimesLeavesNothingBehind) {
  const auto reconnect = [this] {
    clock_.advance(std::chrono::seconds(1), loop_);  // no burst of dials, which would be spread in time
    connect(receiver_);
    post("KEPT", {{"p", std::string(1000, 'x')}}, true);
    sync();
    events_.clear();
    disconnect(receiver_);
    ASSERT_TRUE(waitFor(loop_, [&] { return log_->mentions(LogLevel::Verbose, "Websocket closed: "); }));
    arrivals_.clear();
    threads_.clear();
    log_->clear();
  };
  for (int i = 0; i < 50; ++i) reconnect();
  const std::size_t descriptors = openDescriptors();
  const std::size_t memory = mallinfo2().uordblks;
  for (int i = 0; i < 200; ++i) reconnect();
  EXPECT_TRUE(waitFor(loop_, [&] { return openDescriptors() <= descriptors; }));
  // With a sanitizer's allocator there are no counts to compare; it reports leaks by itself.
  EXPECT_LT(mallinfo2().uordblks, memory + 100 * 1024) << "500 bytes a reconnect would be too much";
}

}  // namespace
}  // namespace ferrox::test
