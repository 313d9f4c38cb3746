#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Platform/DNSSD/PublishSession.h"
#include "Tests/Platform/DNSSD/SessionTest.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::dnssd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PublishSessionTest : public test::SessionTest {
 protected:
  void publish(const std::string& name) {
    publication_ = std::make_shared<PublishSession>(
        context_, ServiceRecords{name, "_test._tcp", "local", 1, "txt"},
        PublishSession::Sinks{[this](const std::string& final) { note("published " + final); },
                              [this](const FRXError&) { note("failed"); }});
    begin(publication_);
  }
  void groupEvent(GroupEvent event) {
    onThread([&] {
      ASSERT_NE(backEnd_.group(), nullptr);
      const auto handler = backEnd_.group()->handler;  // the group may go inside the call
      handler(event);
    });
  }
  std::string publishedAs() {
    std::string name;
    onThread([&] {
      if (backEnd_.group() != nullptr) name = backEnd_.group()->records.name;
    });
    return name;
  }

  ferrox::test::LogRecording log_;
  std::shared_ptr<PublishSession> publication_;
};

TEST_F(PublishSessionTest, TheNameIsToldOnceItIsEstablished) {
  publish("NAME");
  EXPECT_THAT(events(), IsEmpty());
  groupEvent(GroupEvent::Established);
  EXPECT_THAT(events(), ElementsAre("published NAME"));
}

TEST_F(PublishSessionTest, AConflictOnTheNetworkLeadsToAnotherName) {
  publish("NAME");
  groupEvent(GroupEvent::Collision);
  ASSERT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME #2"; }));
  groupEvent(GroupEvent::Established);
  EXPECT_THAT(events(), ElementsAre("published NAME #2"));
  EXPECT_TRUE(log_->has(LogLevel::Warn, "The service name NAME is taken; trying NAME #2"));
}

TEST_F(PublishSessionTest, AConflictWithinTheStackDoesTheSame) {
  backEnd_.nextPublishError = PublishError::Collision;
  publish("NAME");
  EXPECT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME #2"; }));
}

TEST_F(PublishSessionTest, ALaterConflictIsToldAgain) {
  publish("NAME");
  groupEvent(GroupEvent::Established);
  groupEvent(GroupEvent::Collision);
  ASSERT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME #2"; }));
  groupEvent(GroupEvent::Established);
  EXPECT_THAT(events(), ElementsAre("published NAME", "published NAME #2"));
}

TEST_F(PublishSessionTest, AnImpossibleRequestFailsForGood) {
  backEnd_.nextPublishError = PublishError::Invalid;
  publish("NAME");
  EXPECT_THAT(events(), ElementsAre("failed"));
  EXPECT_EQ(publishedAs(), "");
}

TEST_F(PublishSessionTest, ATemporaryFailureIsRetried) {
  backEnd_.nextPublishError = PublishError::Temporary;
  publish("NAME");
  EXPECT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME"; }));
  groupEvent(GroupEvent::Failed);
  EXPECT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME"; }));
}

TEST_F(PublishSessionTest, TheReturningStackGetsTheNewestTXTUnderTheNameThatWasWon) {
  publish("NAME");
  groupEvent(GroupEvent::Collision);
  ASSERT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME #2"; }));
  groupEvent(GroupEvent::Established);
  loseStack();
  EXPECT_EQ(publishedAs(), "");
  onThread([this] { publication_->setTXT("newer"); });
  regainStack();
  EXPECT_EQ(publishedAs(), "NAME #2");
  onThread([this] { EXPECT_EQ(backEnd_.group()->records.txt, "newer"); });
  groupEvent(GroupEvent::Established);
  EXPECT_THAT(events(), ElementsAre("published NAME #2"));
}

TEST_F(PublishSessionTest, TXTIsRewrittenInPlaceOrElsePublishedAnew) {
  publish("NAME");
  onThread([this] {
    publication_->setTXT("two");
    EXPECT_THAT(backEnd_.group()->txtUpdates, ElementsAre("two"));
    backEnd_.acceptsTXT = false;
    publication_->setTXT("three");
    EXPECT_EQ(backEnd_.group()->records.txt, "three");
    EXPECT_EQ(backEnd_.openGroups(), 1U);
  });
}

}  // namespace
}  // namespace ferrox::dnssd
