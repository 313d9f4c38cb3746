// When both capabilities tell the connected peers what they offer, over the real notification center.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Platform/RunLoop/Timer.h"
#include "Tests/Classes/Notifications/CenterFixture.h"

namespace ferrox::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// What the cases need to know of each capability.
struct Streaming {
  using Capability = FRXStreamingCapability;
  static constexpr const char* notification = "FRXStreamingCapabilityNotif";
  static constexpr const char* key = "streams";
  static bool add(Capability& capability, const std::string& id, bool broadcastChange) {
    auto stream = std::make_shared<FRXStream>();
    stream->setId(id);
    stream->setName("Camera");
    stream->setContentType(std::string(FRXContentTypeMomentsData));
    return capability.addStream(stream, broadcastChange);
  }
  static bool remove(Capability& capability, const std::string& id, bool broadcastChange) {
    return capability.removeStreamWithServedPath("/streams/" + id, broadcastChange);
  }
  static FRXValue offerOf(const std::string& id) {
    return FRXDictionary{{"name", "Camera"},
                         {"port", ScopedLocalServices::port},
                         {"path", "/streams/" + id},
                         {"contentType", "moments-data"}};
  }
};

struct Sharing {
  using Capability = FRXProjectSharingCapability;
  static constexpr const char* notification = "FRXProjectSharingCapabilityNotif";
  static constexpr const char* key = "projects";
  static bool add(Capability& capability, const std::string& id, bool broadcastChange) {
    auto project = std::make_shared<FRXProject>();
    project->setId(id);
    project->setName("Film");
    return capability.addProject(project, broadcastChange);
  }
  static bool remove(Capability& capability, const std::string& id, bool broadcastChange) {
    return capability.removeProjectWithId(id, broadcastChange);
  }
  static FRXValue offerOf(const std::string& id) {
    return FRXDictionary{{"name", "Film"}, {"port", ScopedLocalServices::port}, {"id", id}};
  }
};

template <typename Kind>
class CapabilityBroadcastTests : public testing::Test, protected CenterFixture {
 protected:
  void peerConnects() {
    center->postLocalNotification(FRXConnectedNotification, {{"frxId", "PEER:1"}}, "192.0.2.1:16654");
  }
  void pass(Clock::Duration duration) { clock.advance(duration, loop); }
  std::size_t sent() const { return broadcaster->sent.size(); }

  std::unique_ptr<typename Kind::Capability> capability =
      std::make_unique<typename Kind::Capability>(CapabilityParts{&loop, &dispatcher, center});
};

struct KindNames {
  template <typename Kind>
  static std::string GetName(int) {
    return Kind::key;
  }
};
using Kinds = testing::Types<Streaming, Sharing>;
TYPED_TEST_SUITE(CapabilityBroadcastTests, Kinds, KindNames);

TYPED_TEST(CapabilityBroadcastTests, TellsAllPeersTheOffersAndWhoThisIs) {
  ASSERT_TRUE(TypeParam::add(*this->capability, "A", false));
  this->capability->broadcastCapability();
  ASSERT_EQ(this->sent(), 1U);
  const auto& [message, toService] = this->broadcaster->sent[0];
  EXPECT_EQ(toService, std::nullopt);
  EXPECT_EQ(message.messageType(), FRXMessageType::FRXMessageTypeNotification);
  EXPECT_EQ(message.subject(), TypeParam::notification);
  EXPECT_EQ(message.message(), std::nullopt) << "no filter";
  EXPECT_EQ(message.userInfo(), (FRXDictionary{{TypeParam::key, FRXArray{TypeParam::offerOf("A")}},
                                               {"frxId", ScopedLocalServices::frxId}}));
}

TYPED_TEST(CapabilityBroadcastTests, WithoutOffersTellsAnEmptyList) {
  this->capability->broadcastCapability();
  ASSERT_EQ(this->sent(), 1U);
  EXPECT_EQ(this->broadcaster->sent[0].message.userInfo()->at(TypeParam::key), FRXValue(FRXArray{}));
}

TYPED_TEST(CapabilityBroadcastTests, WithoutAServerTellsNoName) {
  LocalServiceDirectory::setServerSource(nullptr);
  this->capability->broadcastCapability();
  ASSERT_EQ(this->sent(), 1U);
  EXPECT_EQ(this->broadcaster->sent[0].message.userInfo()->at("frxId"), FRXValue(""));
}

TYPED_TEST(CapabilityBroadcastTests, NothingIsKeptForPeersThatComeLater) {
  this->capability->broadcastCapability();
  this->center->repostNotificationsToService("PEER:1");
  EXPECT_EQ(this->sent(), 1U);
}

TYPED_TEST(CapabilityBroadcastTests, AChangeIsToldOnlyOnRequest) {
  EXPECT_TRUE(TypeParam::add(*this->capability, "A", false));
  EXPECT_TRUE(TypeParam::remove(*this->capability, "A", false));
  EXPECT_EQ(this->sent(), 0U);
  EXPECT_TRUE(TypeParam::add(*this->capability, "A", true));
  EXPECT_EQ(this->sent(), 1U);
  EXPECT_TRUE(TypeParam::remove(*this->capability, "A", true));
  ASSERT_EQ(this->sent(), 2U);
  EXPECT_EQ(this->broadcaster->sent[1].message.userInfo()->at(TypeParam::key), FRXValue(FRXArray{}));
}

TYPED_TEST(CapabilityBroadcastTests, AChangeThatIsRefusedIsNotTold) {
  EXPECT_TRUE(TypeParam::add(*this->capability, "A", false));
  EXPECT_FALSE(TypeParam::add(*this->capability, "A", true));
  EXPECT_FALSE(TypeParam::remove(*this->capability, "B", true));
  EXPECT_EQ(this->sent(), 0U);
}

TYPED_TEST(CapabilityBroadcastTests, ThreeConnectionsLeadToOneBroadcastFiveSecondsAfterTheLast) {
  this->peerConnects();
  this->pass(seconds(1));
  this->peerConnects();
  this->pass(seconds(1));
  this->peerConnects();
  this->pass(milliseconds(4999));
  EXPECT_EQ(this->sent(), 0U);
  this->pass(milliseconds(1));
  EXPECT_EQ(this->broadcaster->names(), std::vector<std::string>{TypeParam::notification});
  this->pass(seconds(60));
  EXPECT_EQ(this->sent(), 1U);
}

TYPED_TEST(CapabilityBroadcastTests, TheDelayedBroadcastTellsWhatIsOfferedThen) {
  this->peerConnects();
  ASSERT_TRUE(TypeParam::add(*this->capability, "LATE", false));
  this->pass(seconds(5));
  ASSERT_EQ(this->sent(), 1U);
  EXPECT_EQ(this->broadcaster->sent[0].message.userInfo()->at(TypeParam::key),
            FRXValue(FRXArray{TypeParam::offerOf("LATE")}));
}

TYPED_TEST(CapabilityBroadcastTests, AFiredTimerStaysUntilTheNextConnection) {
  EXPECT_EQ(this->capability->broadcastThrottleTimer(), nullptr);
  this->peerConnects();
  const auto first = this->capability->broadcastThrottleTimer();
  ASSERT_TRUE(first && first->isValid());
  this->pass(seconds(5));
  EXPECT_EQ(this->capability->broadcastThrottleTimer(), first);
  EXPECT_FALSE(first->isValid());
  this->peerConnects();
  EXPECT_NE(this->capability->broadcastThrottleTimer(), first);
  this->pass(seconds(5));
  EXPECT_EQ(this->sent(), 2U);
}

TYPED_TEST(CapabilityBroadcastTests, AConnectionMayBeToldByHand) {
  this->capability->broadcastCapabilitiesUponConnection({FRXConnectedNotification, nullptr, {}});
  this->pass(seconds(5));
  EXPECT_EQ(this->sent(), 1U);
}

TYPED_TEST(CapabilityBroadcastTests, OtherNotificationsLeadToNothing) {
  this->center->postLocalNotification(FRXDisconnectedNotification, {}, "F");
  this->pass(seconds(10));
  EXPECT_EQ(this->sent(), 0U);
  EXPECT_EQ(this->capability->broadcastThrottleTimer(), nullptr);
}

TYPED_TEST(CapabilityBroadcastTests, AfterItsEndNothingIsTold) {
  this->peerConnects();
  this->capability.reset();
  this->peerConnects();
  this->pass(seconds(10));
  EXPECT_EQ(this->sent(), 0U);
}

TYPED_TEST(CapabilityBroadcastTests, MayEndOnAnotherThreadWhilePeersConnect) {
  for (int i = 0; i < 200; ++i) {
    auto capability = std::make_unique<typename TypeParam::Capability>(
        CapabilityParts{&this->loop, &this->dispatcher, this->center});
    std::thread ending([&] { capability.reset(); });
    this->peerConnects();
    this->pass(seconds(5));
    ending.join();
  }
  EXPECT_GE(this->sent(), 200U) << "the one that stays is heard each time";
}

TYPED_TEST(CapabilityBroadcastTests, AConnectionToldOnAnotherThreadIsHeardOnTheMainOne) {
  std::thread([&] { this->peerConnects(); }).join();
  EXPECT_EQ(this->capability->broadcastThrottleTimer(), nullptr);
  this->pass(milliseconds(0));
  EXPECT_NE(this->capability->broadcastThrottleTimer(), nullptr);
  this->pass(seconds(5));
  EXPECT_EQ(this->sent(), 1U);
}

}  // namespace
}  // namespace ferrox::test
