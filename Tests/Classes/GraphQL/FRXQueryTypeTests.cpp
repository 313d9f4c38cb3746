#include <gtest/gtest.h>

#include <thread>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/GraphQL/FRXQueryType.h"
#include "Tests/Classes/GraphQL/OfferingHost.h"

namespace ferrox::test {
namespace {

/// The content of a leaf.
template <typename Leaf>
Leaf leaf(const GraphQLObject& object, std::string_view property) {
  const GraphQLValue value = object.property(property, {});
  const Leaf* content = std::get_if<Leaf>(&value.storage());
  EXPECT_NE(content, nullptr) << property;
  return content == nullptr ? Leaf() : *content;
}

class FRXQueryTypeTests : public testing::Test, protected OfferingHost {};

TEST_F(FRXQueryTypeTests, EachClassAnswersItsTypeName) {
  EXPECT_EQ(GQLQueryType().typeName(), "Query");
  EXPECT_EQ(GQLCapabilitiesType().typeName(), "Capabilities");
  EXPECT_EQ(GQLStreamingSourceType().typeName(), "StreamingSource");
  EXPECT_EQ(GQLProjectSharingSourceType().typeName(), "ProjectSharingSource");
}

TEST_F(FRXQueryTypeTests, WithoutADelegateOrCapabilitiesBothListsAreAbsent) {
  for (const bool hasDelegate : {true, false}) {
    if (!hasDelegate) RoutingHTTPConnection::forgetDelegates();
    const auto capabilities = GQLQueryType().capabilities();
    EXPECT_FALSE(capabilities->streaming);
    EXPECT_FALSE(capabilities->projectsharing);
    EXPECT_TRUE(capabilities->property("streaming", {}).isNull());
    EXPECT_TRUE(capabilities->property("projectsharing", {}).isNull());
  }
}

TEST_F(FRXQueryTypeTests, ACapabilityWithoutEntriesGivesAnEmptyList) {
  offerStreams();
  const auto capabilities = GQLQueryType().capabilities();
  ASSERT_TRUE(capabilities->streaming);
  EXPECT_TRUE(capabilities->streaming->empty());
  EXPECT_FALSE(capabilities->projectsharing);
}

TEST_F(FRXQueryTypeTests, TheSourcesHoldWhatIsOffered) {
  addStream("cam A", std::string(FRXContentTypeVideoAngle), 65535);
  addProject("P1", 7);
  const auto capabilities = GQLQueryType().capabilities();
  ASSERT_EQ(capabilities->streaming->size(), 1U);
  const auto& stream = *capabilities->streaming->front();
  EXPECT_EQ(leaf<std::string>(stream, "name"), "Stream cam A");
  EXPECT_EQ(leaf<std::string>(stream, "path"), "/streams/cam%20A");
  EXPECT_EQ(leaf<std::string>(stream, "contentType"), "VIDEO_ANGLE");
  EXPECT_EQ(leaf<std::int64_t>(stream, "port"), 65535);
  ASSERT_EQ(capabilities->projectsharing->size(), 1U);
  const auto& project = *capabilities->projectsharing->front();
  EXPECT_EQ(leaf<std::string>(project, "name"), "Project P1");
  EXPECT_EQ(leaf<std::string>(project, "id"), "P1");
  EXPECT_EQ(leaf<std::int64_t>(project, "port"), 7);
}

TEST_F(FRXQueryTypeTests, EveryOtherContentTypeIsMomentsData) {
  for (const char* type : {"moments-data", "VIDEO-ANGLE", "", "of the host's own"}) {
    addStream(type, type);
  }
  const auto capabilities = GQLQueryType().capabilities();
  ASSERT_EQ(capabilities->streaming->size(), 3U) << "one has no path";
  for (const auto& stream : *capabilities->streaming) EXPECT_EQ(stream->contentType, "MOMENTS_DATA");
}

TEST_F(FRXQueryTypeTests, EachCallAnswersForItsMoment) {
  addProject("P1");
  const GQLQueryType query;
  const auto before = query.capabilities();
  addProject("P2");
  EXPECT_EQ(before->projectsharing->size(), 1U);
  EXPECT_EQ(query.capabilities()->projectsharing->size(), 2U);
}

TEST_F(FRXQueryTypeTests, UnknownCapabilitiesAndPropertiesAreSkipped) {
  class Other : public FRXCapability {
   public:
    explicit Other(std::string name) : name_(std::move(name)) {}
    FRXValue jsonSerializableObject() const override { return FRXArray{}; }
    void broadcastCapability() override {}
    std::string name() const override { return name_; }

   private:
    std::string name_;
  };
  addCapability(std::make_shared<Other>("chat"));
  addCapability(std::make_shared<Other>("streaming"));
  const auto capabilities = GQLQueryType().capabilities();
  EXPECT_FALSE(capabilities->streaming) << "not what this library calls streaming";
  EXPECT_TRUE(capabilities->property("chat", {}).isNull());
  EXPECT_TRUE(GQLQueryType().property("other", {}).isNull());
  EXPECT_TRUE(GQLStreamingSourceType().property("id", {}).isNull());
  EXPECT_TRUE(GQLProjectSharingSourceType().property("path", {}).isNull());
}

TEST_F(FRXQueryTypeTests, AnOfferThatBecameIncompleteIsLeftOut) {
  addStream("a", "video-angle");
  const auto spoiled = addStream("b", "video-angle");
  spoiled->setName("\xFF");
  addProject("P1")->setName(std::nullopt);
  const auto capabilities = GQLQueryType().capabilities();
  EXPECT_EQ(capabilities->streaming->size(), 1U);
  EXPECT_TRUE(capabilities->projectsharing->empty());
}

TEST_F(FRXQueryTypeTests, IsReadWhileTheMainThreadChangesTheOffers) {
  offerStreams();
  std::thread reader([] {
    for (int i = 0; i < 300; ++i) EXPECT_LE(GQLQueryType().capabilities()->streaming->size(), 1U);
  });
  for (int i = 0; i < 300; ++i) {
    addStream("a", "video-angle");
    streaming().removeStreamWithServedPath("/streams/a");
  }
  reader.join();
}

}  // namespace
}  // namespace ferrox::test
