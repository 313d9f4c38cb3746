// Peers that connect learn of the offers over the sockets that the connection manager opens.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Platform/Notifications/NotificationDispatcher.h"
#include "Platform/RunLoop/Timer.h"
#include "Tests/Classes/Capabilities/SocketFixture.h"

namespace ferrox::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// One center sends, and gets what arrives: the peer is this process's own server.
class BroadcastOverSockets : public SocketFixture {
 protected:
  BroadcastOverSockets() {
    NotificationSink::setRegistered(center_);
    observation_ = center_->addObserver(
        std::string(FRXStreamingCapabilityNotification), std::nullopt,
        [this](const LocalNotification& notification) { arrivals_.push_back(notification.userInfo); });
  }
  ~BroadcastOverSockets() override {
    manager_->stop();
    server_->stop();
    NotificationSink::setRegistered(nullptr);
  }

  static std::shared_ptr<FRXStream> stream(const std::string& id) {
    auto stream = std::make_shared<FRXStream>();
    stream->setId(id);
    stream->setName("Camera");
    stream->setContentType(std::string(FRXContentTypeVideoAngle));
    return stream;
  }
  bool waitForArrivals(std::size_t count) {
    return waitFor(
        loop_, [this, count] { return arrivals_.size() >= count; }, longTime);
  }

  NotificationDispatcher dispatcher_;
  const std::shared_ptr<FRXNotificationCenter> center_ =
      FRXNotificationCenter::make({.mainLoop = &loop_,
                                   .dispatcher = &dispatcher_,
                                   .broadcaster = [this] { return manager_; },
                                   .serviceWithId = {}});
  std::vector<FRXDictionary> arrivals_;
  FRXNotificationCenter::Observation observation_;
  FRXStreamingCapability capability_{{&loop_, &dispatcher_, center_}};
};

TEST_F(BroadcastOverSockets, AllPeersAreToldFiveSecondsAfterTheLastConnected) {
  ASSERT_TRUE(capability_.addStream(stream("cam A")));
  addOwnServer("127.0.0.1");
  addOwnServer("127.0.0.2");
  connectAll();
  clock_.advance(milliseconds(4999), loop_);
  EXPECT_TRUE(capability_.broadcastThrottleTimer()->isValid());
  clock_.advance(milliseconds(1), loop_);
  EXPECT_FALSE(capability_.broadcastThrottleTimer()->isValid());
  ASSERT_TRUE(waitForArrivals(2));
  for (const FRXDictionary& userInfo : arrivals_) {
    EXPECT_EQ(userInfo.at("frxId"), FRXValue("OWN-MTI=/HOST"));
    EXPECT_EQ(userInfo.at("sender"), FRXValue("OWN-MTI=/HOST"));
    EXPECT_EQ(userInfo.at("filter"), FRXValue(""));
    EXPECT_EQ(userInfo.at("streams"), FRXValue(FRXArray{FRXDictionary{{"name", "Camera"},
                                                                      {"port", server_->port()},
                                                                      {"path", "/streams/cam%20A"},
                                                                      {"contentType", "video-angle"}}}));
  }
}

TEST_F(BroadcastOverSockets, AChangeReachesThoseWhoAreConnected) {
  addOwnServer();
  ASSERT_TRUE(capability_.addStream(stream("missed"), true));
  connectAll();
  ASSERT_TRUE(capability_.removeStreamWithServedPath("/streams/missed", true));
  ASSERT_TRUE(waitForArrivals(1));
  EXPECT_EQ(arrivals_[0].at("streams"), FRXValue(FRXArray{}));
}

}  // namespace
}  // namespace ferrox::test
