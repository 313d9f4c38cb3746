#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "Classes/GraphQL/FRXGraphQLInterpreter.h"
#include "Classes/GraphQL/KeptAnswers.h"
#include "Tests/Classes/GraphQL/OfferingHost.h"

namespace ferrox::test {
namespace {

class KeptAnswersTests : public testing::Test, protected OfferingHost {
 protected:
  std::string answer() const {
    std::string document;
    interpreter_.query(std::string(FRXCapabilitiesQuery), [&](const std::string& text) { document = text; });
    return document;
  }
  bool tells(const std::string& text) const { return answer().find(text) != std::string::npos; }

  const FRXGraphQLInterpreter interpreter_;
  KeptAnswers kept_;
};

TEST_F(KeptAnswersTests, AnAnswerIsFoundByItsQueryWhileNothingChanges) {
  const auto project = addProject("P");
  const OffersState state = OffersState::current();
  kept_.keep("{ a }", state, "the answer");
  const auto found = kept_.find("{ a }", OffersState::current());
  ASSERT_TRUE(found);
  EXPECT_EQ(*found, "the answer");
  EXPECT_FALSE(kept_.find("{ b }", state));
  EXPECT_FALSE(kept_.find("", state));
  project->setName("Another");
  EXPECT_FALSE(kept_.find("{ a }", OffersState::current()));
}

TEST_F(KeptAnswersTests, EveryChangeOfAnOfferIsAnsweredAtOnce) {
  const auto project = addProject("P");
  const auto stream = addStream("S", "video-angle");
  const std::vector<std::pair<std::function<void()>, std::string>> changes = {
      {[&] { project->setName("renamed project"); }, "renamed project"},
      {[&] { project->setId("moved-project"); }, "moved-project"},
      {[&] { project->setPort(4711); }, "4711"},
      {[&] { stream->setName("renamed stream"); }, "renamed stream"},
      {[&] { stream->setServedPath("elsewhere"); }, "/streams/elsewhere"},
      {[&] { stream->setContentType("moments-data"); }, "MOMENTS_DATA"},
      {[&] { stream->setPort(4712); }, "4712"},
      {[&] { addProject("one more"); }, "one more"},
      {[&] { addStream("one stream more", "video-angle"); }, "one stream more"}};
  for (const auto& [change, text] : changes) {
    EXPECT_FALSE(tells(text)) << text;
    change();
    EXPECT_TRUE(tells(text)) << text;
  }
  EXPECT_TRUE(streaming().removeStreamWithServedPath("/streams/S"));
  EXPECT_FALSE(tells("elsewhere"));
}

TEST_F(KeptAnswersTests, AnotherSetOfCapabilitiesIsAnotherState) {
  const OffersState nothing = OffersState::current();
  offerProjects();
  const OffersState projects = OffersState::current();
  EXPECT_FALSE(nothing == projects);
  offerStreams();
  EXPECT_FALSE(projects == OffersState::current());
  EXPECT_TRUE(OffersState::current() == OffersState::current());
  RoutingHTTPConnection::forgetDelegates();
  EXPECT_TRUE(nothing == OffersState::current());
}

TEST_F(KeptAnswersTests, ACapabilityInThePlaceOfADestroyedOneIsAnother) {
  class Host : public ListCapabilitiesDelegate {
   public:
    FRXCapabilities capabilities() const override { return {{capability->name(), capability}}; }
    std::shared_ptr<FRXCapability> capability = std::make_shared<FRXProjectSharingCapability>();
  };
  const auto host = std::make_shared<Host>();
  RoutingHTTPConnection::setCapabilitiesDelegate(host);
  for (int i = 0; i < 20; ++i) {
    const OffersState before = OffersState::current();
    host->capability.reset();
    host->capability = std::make_shared<FRXProjectSharingCapability>();
    EXPECT_FALSE(before == OffersState::current());
  }
}

TEST_F(KeptAnswersTests, AnAnswerKeepsNoCapabilityAlive) {
  auto capability = std::make_shared<FRXProjectSharingCapability>();
  const std::weak_ptr<FRXCapability> watched = capability;
  addCapability(capability);
  kept_.keep("{ a }", OffersState::current(), "the answer");
  capability.reset();
  EXPECT_FALSE(watched.expired()) << "the host still has it";
  forgetCapabilities();
  EXPECT_TRUE(watched.expired());
}

TEST_F(KeptAnswersTests, FewAndSmallOnesAreKept) {
  const OffersState state = OffersState::current();
  for (std::size_t i = 0; i <= KeptAnswers::capacity; ++i) kept_.keep(std::to_string(i), state, "answer");
  EXPECT_FALSE(kept_.find("0", state));
  for (std::size_t i = 1; i <= KeptAnswers::capacity; ++i) EXPECT_TRUE(kept_.find(std::to_string(i), state));
  kept_.keep("1", state, "a newer answer");
  EXPECT_EQ(*kept_.find("1", state), "a newer answer");
  EXPECT_TRUE(kept_.find("2", state)) << "the newer answer took the place of the older one";
  kept_.keep("large", state, std::string(KeptAnswers::maxSize, 'x'));
  kept_.keep("too large", state, std::string(KeptAnswers::maxSize + 1, 'x'));
  EXPECT_TRUE(kept_.find("large", state));
  EXPECT_FALSE(kept_.find("too large", state));
}

TEST_F(KeptAnswersTests, NobodyIsToldWhatWasBeforeAChangeThatIsOver) {
  const auto project = addProject("P");
  std::atomic<bool> ends{false};
  std::vector<std::jthread> others;
  for (int i = 0; i < 3; ++i) {
    others.emplace_back([&] {
      while (!ends) EXPECT_TRUE(tells("\"P\""));
    });
  }
  for (int i = 0; i < 2000; ++i) {
    const std::string name = "name " + std::to_string(i) + ".";
    project->setName(name);
    ASSERT_TRUE(tells(name)) << name;
  }
  ends = true;
}

}  // namespace
}  // namespace ferrox::test
