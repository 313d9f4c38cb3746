#include <gtest/gtest.h>

#include <thread>

#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Platform/Base/Json.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox {
namespace {

std::shared_ptr<FRXStream> makeStream(std::string id) {
  auto stream = std::make_shared<FRXStream>();
  stream->setId(std::move(id));
  stream->setName("Camera");
  stream->setContentType(std::string(FRXContentTypeVideoAngle));
  return stream;
}

class FRXStreamingCapabilityTests : public testing::Test {
 protected:
  FRXStreamingCapabilityTests() {
    LocalServiceDirectory::setServerSource([] { return LocalServiceDirectory::LocalServer{"ID", 16654}; });
  }
  ~FRXStreamingCapabilityTests() override { LocalServiceDirectory::setServerSource(nullptr); }

  FRXStreamingCapability capability_;
};

TEST(FRXStream, ServesUnderTheTextThatWasSet) {
  FRXStream stream;
  stream.setServedPath("angle 1");
  EXPECT_EQ(stream.servedPath(), "/streams/angle%201");
  EXPECT_EQ(stream.key(), "/streams/angle 1");
}

TEST(FRXStream, TheJoinPutsExactlyOneSlashAndDropsTheLast) {
  const auto served = [](const std::string& text) {
    FRXStream stream;
    stream.setServedPath(text);
    return stream.servedPath();
  };
  EXPECT_EQ(served("/a"), "/streams/a");
  EXPECT_EQ(served("//a//"), "/streams/a");
  EXPECT_EQ(served("a/b"), "/streams/a/b");
  EXPECT_EQ(served("a@b:c[1]?#%"), "/streams/a@b:c%5B1%5D%3F%23%25");
  EXPECT_EQ(served("\xC3\xA9"), "/streams/%C3%A9");
  EXPECT_EQ(served(""), "/streams");
  EXPECT_EQ(served("/"), "/streams");
}

TEST(FRXStream, WithoutServedPathItServesUnderItsIdForGood) {
  FRXStream stream;
  EXPECT_EQ(stream.servedPath(), std::nullopt);
  stream.setId("");
  EXPECT_EQ(stream.servedPath(), std::nullopt);
  stream.setId("cam A");
  EXPECT_EQ(stream.servedPath(), "/streams/cam%20A");
  stream.setId("other");
  EXPECT_EQ(stream.servedPath(), "/streams/cam%20A");
}

TEST(FRXStream, ASetServedPathWinsOverTheId) {
  FRXStream stream;
  stream.setId("id");
  stream.setServedPath("path");
  EXPECT_EQ(stream.servedPath(), "/streams/path");
  stream.setServedPath(std::nullopt);
  EXPECT_EQ(stream.servedPath(), "/streams/id");
}

TEST_F(FRXStreamingCapabilityTests, HasItsNameAndConstants) {
  EXPECT_EQ(capability_.name(), "streaming");
  EXPECT_EQ(FRXStreamingCapabilityNotification, "FRXStreamingCapabilityNotif");
  EXPECT_EQ(FRXContentTypeVideoAngle, "video-angle");
  EXPECT_EQ(FRXContentTypeMomentsData, "moments-data");
}

TEST_F(FRXStreamingCapabilityTests, AStreamIsStoredUnderItsDecodedServedPath) {
  EXPECT_TRUE(capability_.addStream(makeStream("cam A")));
  EXPECT_TRUE(capability_.availableStreams().contains("/streams/cam A"));
  EXPECT_TRUE(capability_.streamForServedPath("/streams/cam A"));
  EXPECT_FALSE(capability_.streamForServedPath("/streams/cam%20A"));
}

TEST_F(FRXStreamingCapabilityTests, ASecondStreamWithTheSameServedPathLeavesTheFirst) {
  const auto first = makeStream("cam A");
  auto second = makeStream("other");
  second->setServedPath("cam A");
  EXPECT_TRUE(capability_.addStream(first));
  EXPECT_FALSE(capability_.addStream(second));
  EXPECT_EQ(capability_.streamForServedPath("/streams/cam A"), first);
  EXPECT_EQ(second->port(), 0);
}

TEST_F(FRXStreamingCapabilityTests, APortOfZeroBecomesTheServersPort) {
  const auto plain = makeStream("a");
  const auto own = makeStream("b");
  own->setPort(8000);
  EXPECT_TRUE(capability_.addStream(plain));
  EXPECT_TRUE(capability_.addStream(own));
  EXPECT_EQ(plain->port(), 16654);
  EXPECT_EQ(own->port(), 8000);
}

TEST_F(FRXStreamingCapabilityTests, RemovesByTheDecodedServedPathOnly) {
  EXPECT_TRUE(capability_.addStream(makeStream("cam A")));
  EXPECT_FALSE(capability_.removeStreamWithServedPath("/streams/cam%20A"));
  EXPECT_TRUE(capability_.removeStreamWithServedPath("/streams/cam A"));
  EXPECT_FALSE(capability_.removeStreamWithServedPath("/streams/cam A"));
  EXPECT_TRUE(capability_.availableStreams().empty());
}

TEST_F(FRXStreamingCapabilityTests, AnIncompleteStreamIsNotAddedAndLogged) {
  const test::LogRecording log(LogLevel::Warn);
  std::size_t refused = 0;
  auto nameless = makeStream("a");
  nameless->setName(std::nullopt);
  auto kindless = makeStream("b");
  kindless->setContentType(std::nullopt);
  auto pathless = makeStream("");
  auto garbled = makeStream("c");
  garbled->setName("\xFF");
  auto garbledPath = makeStream("\xFF");
  for (const auto& stream :
       {nameless, kindless, pathless, garbled, garbledPath, std::shared_ptr<FRXStream>()}) {
    EXPECT_FALSE(capability_.addStream(stream, true));
    EXPECT_EQ(log->entries().size(), ++refused);
  }
  EXPECT_TRUE(capability_.availableStreams().empty());
}

TEST_F(FRXStreamingCapabilityTests, JsonHoldsFourMembersForEachStream) {
  EXPECT_EQ(capability_.jsonSerializableObject(), FRXValue(FRXArray{}));
  EXPECT_TRUE(capability_.addStream(makeStream("cam A")));
  EXPECT_EQ(capability_.jsonSerializableObject(),
            FRXValue(FRXArray{FRXDictionary{{"name", "Camera"},
                                            {"port", 16654},
                                            {"path", "/streams/cam%20A"},
                                            {"contentType", "video-angle"}}}));
}

TEST_F(FRXStreamingCapabilityTests, AStreamThatBecomesIncompleteLeavesTheJsonWhole) {
  const auto spoiled = makeStream("a");
  EXPECT_TRUE(capability_.addStream(spoiled));
  EXPECT_TRUE(capability_.addStream(makeStream("b")));
  for (const auto& name : {std::optional<std::string>(), std::optional<std::string>("\xC3")}) {
    spoiled->setName(name);
    const FRXValue json = capability_.jsonSerializableObject();
    EXPECT_EQ(json.asArray()->size(), 1U);
    EXPECT_TRUE(writeJson(json));
  }
  spoiled->setName(std::string("a\"\0\n", 4));
  EXPECT_TRUE(writeJson(capability_.jsonSerializableObject()));
  EXPECT_EQ(capability_.jsonSerializableObject().asArray()->size(), 2U);
}

TEST_F(FRXStreamingCapabilityTests, ASnapshotDoesNotChangeWithTheTable) {
  EXPECT_TRUE(capability_.addStream(makeStream("a")));
  const auto before = capability_.availableStreams();
  EXPECT_TRUE(capability_.addStream(makeStream("b")));
  EXPECT_EQ(before.size(), 1U);
  EXPECT_EQ(capability_.availableStreams().size(), 2U);
}

TEST_F(FRXStreamingCapabilityTests, IsReadOnOtherThreadsWhileItChanges) {
  std::thread reader([this] {
    for (int i = 0; i < 500; ++i) {
      EXPECT_LE(capability_.availableStreams().size(), 1U);
      EXPECT_NE(capability_.jsonSerializableObject().asArray(), nullptr);
    }
  });
  for (int i = 0; i < 500; ++i) {
    const auto stream = makeStream("a");
    EXPECT_TRUE(capability_.addStream(stream));
    stream->setName("Other name, too long for a short string");
    EXPECT_TRUE(capability_.removeStreamWithServedPath("/streams/a"));
  }
  reader.join();
}

}  // namespace
}  // namespace ferrox
