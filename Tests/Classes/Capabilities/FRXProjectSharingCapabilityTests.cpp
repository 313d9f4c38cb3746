#include <gtest/gtest.h>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox {
namespace {

std::shared_ptr<FRXProject> makeProject(std::optional<std::string> id,
                                        std::optional<std::string> name = "P") {
  auto project = std::make_shared<FRXProject>();
  project->setId(std::move(id));
  project->setName(std::move(name));
  return project;
}

class FRXProjectSharingCapabilityTests : public testing::Test {
 protected:
  FRXProjectSharingCapabilityTests() {
    LocalServiceDirectory::setServerSource([] { return LocalServiceDirectory::LocalServer{"ID", 16654}; });
  }
  ~FRXProjectSharingCapabilityTests() override { LocalServiceDirectory::setServerSource(nullptr); }

  FRXProjectSharingCapability capability_;
};

TEST_F(FRXProjectSharingCapabilityTests, HasItsNameAndConstants) {
  EXPECT_EQ(capability_.name(), "projectsharing");
  EXPECT_EQ(FRXProjectSharingCapabilityNotification, "FRXProjectSharingCapabilityNotif");
  EXPECT_EQ(FRXProjectAddedNotification, "FRXProjectAddedNotif");
  EXPECT_EQ(FRXProjectRemovedNotification, "FRXProjectRemovedNotif");
}

TEST_F(FRXProjectSharingCapabilityTests, AProjectWithoutIdOrNameIsNotAddedAndLogged) {
  const test::LogRecording log(LogLevel::Warn);
  EXPECT_FALSE(capability_.addProject(makeProject("")));
  EXPECT_FALSE(capability_.addProject(makeProject(std::nullopt)));
  EXPECT_FALSE(capability_.addProject(makeProject("id", std::nullopt)));
  EXPECT_FALSE(capability_.addProject(makeProject("\xFF")));
  EXPECT_FALSE(capability_.addProject(makeProject("id", "\xFF")));
  EXPECT_FALSE(capability_.addProject(nullptr));
  EXPECT_EQ(log->entries().size(), 6U);
  EXPECT_TRUE(capability_.availableProjects().empty());
}

TEST_F(FRXProjectSharingCapabilityTests, ATakenIdKeepsTheFirst) {
  const auto first = makeProject("id");
  EXPECT_TRUE(capability_.addProject(first));
  EXPECT_FALSE(capability_.addProject(makeProject("id", "other")));
  EXPECT_EQ(capability_.projectWithId("id"), first);
}

TEST_F(FRXProjectSharingCapabilityTests, APortOfZeroBecomesTheServersPortInJson) {
  EXPECT_EQ(capability_.jsonSerializableObject(), FRXValue(FRXArray{}));
  EXPECT_TRUE(capability_.addProject(makeProject("id")));
  const auto own = makeProject("own");
  own->setPort(9);
  EXPECT_TRUE(capability_.addProject(own));
  EXPECT_EQ(capability_.jsonSerializableObject(),
            FRXValue(FRXArray{FRXDictionary{{"name", "P"}, {"id", "id"}, {"port", 16654}},
                              FRXDictionary{{"name", "P"}, {"id", "own"}, {"port", 9}}}));
}

TEST_F(FRXProjectSharingCapabilityTests, RemovesByTheExactIdOnly) {
  EXPECT_TRUE(capability_.addProject(makeProject("Id")));
  EXPECT_FALSE(capability_.removeProjectWithId("id"));
  EXPECT_TRUE(capability_.removeProjectWithId("Id"));
  EXPECT_FALSE(capability_.removeProjectWithId("Id"));
}

}  // namespace
}  // namespace ferrox
