#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Platform/DNSSD/BrowseSession.h"
#include "Tests/Platform/DNSSD/SessionTest.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::dnssd {
namespace {

using test::added;
using test::eth0IPv4;
using test::eth0IPv6;
using test::loIPv4;
using test::removed;
using testing::ElementsAre;
using testing::IsEmpty;

class BrowseSessionTest : public test::SessionTest {
 protected:
  void browse() {
    begin(std::make_shared<BrowseSession>(context_, "_test._tcp", "local",
                                          [this](const BrowseChanges& changes) {
                                            std::string text;
                                            for (const auto& name : changes.removed) text += "-" + name;
                                            for (const auto& name : changes.added) text += "+" + name;
                                            note(text);
                                          }));
  }
};

TEST_F(BrowseSessionTest, AnInstanceSeenInTwoPlacesIsAddedOnceAndRemovedWithTheLast) {
  browse();
  report("_test._tcp", added(eth0IPv4, "A"));
  report("_test._tcp", added(eth0IPv6, "A"));
  ASSERT_TRUE(waitForEvents(1));
  report("_test._tcp", removed(eth0IPv4, "A"));
  settle();
  EXPECT_THAT(events(), ElementsAre("+A"));
  report("_test._tcp", removed(eth0IPv6, "A"));
  ASSERT_TRUE(waitForEvents(2));
  EXPECT_THAT(events(), ElementsAre("+A", "-A"));
}

TEST_F(BrowseSessionTest, WhatArrivesTogetherIsOneBatch) {
  browse();
  onThread([this] {
    for (const char* name : {"A", "B", "C"}) backEnd_.report("_test._tcp", added(eth0IPv4, name));
  });
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_THAT(events(), ElementsAre("+A+B+C"));
}

TEST_F(BrowseSessionTest, WhatComesAndGoesWithinABatchIsNotReported) {
  browse();
  onThread([this] {
    backEnd_.report("_test._tcp", added(eth0IPv4, "A"));
    backEnd_.report("_test._tcp", removed(eth0IPv4, "A"));
  });
  settle();
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(BrowseSessionTest, ANameThatIsNoTextIsIgnored) {
  browse();
  report("_test._tcp", added(eth0IPv4, "A\xFF"));
  report("_test._tcp", added(eth0IPv4, "\xC3\x9C"));
  ASSERT_TRUE(waitForEvents(1));
  settle();
  EXPECT_THAT(events(), ElementsAre("+\xC3\x9C"));
}

TEST_F(BrowseSessionTest, RemovalOfTheUnknownDoesNothing) {
  browse();
  report("_test._tcp", removed(eth0IPv4, "A"));
  settle();
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(BrowseSessionTest, InterfacesThatAreNotInUseDoNotCountUntilTheyAre) {
  browse();
  report("_test._tcp", added(loIPv4, "A"));
  settle();
  EXPECT_THAT(events(), IsEmpty());
  onThread([this] {
    context_.interfaces.inUse[0].index = 1;
    session_->interfacesChanged();
  });
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_THAT(events(), ElementsAre("+A"));
}

TEST_F(BrowseSessionTest, AfterALossOnlyTheDifferenceIsReported) {
  browse();
  report("_test._tcp", added(eth0IPv4, "STAYS"));
  report("_test._tcp", added(eth0IPv4, "GOES"));
  ASSERT_TRUE(ferrox::test::waitFor([&] { return !events().empty(); }));
  const auto before = events().size();
  loseStack();
  settle();
  EXPECT_EQ(events().size(), before);
  regainStack();
  report("_test._tcp", added(eth0IPv4, "STAYS"));
  report("_test._tcp", {LookupEvent::AllForNow, {}, {}});
  ASSERT_TRUE(waitForEvents(before + 1));
  EXPECT_EQ(events().back(), "-GOES");
}

TEST_F(BrowseSessionTest, AFailedLookupBeginsAnew) {
  browse();
  report("_test._tcp", {LookupEvent::Failed, {}, {}});
  EXPECT_TRUE(ferrox::test::waitFor([&] {
    bool open = false;
    onThread([&] { open = backEnd_.isLookedFor("_test._tcp"); });
    return open;
  }));
}

TEST_F(BrowseSessionTest, AClosedSessionIsSilent) {
  browse();
  onThread([this] {
    backEnd_.report("_test._tcp", added(eth0IPv4, "A"));
    session_->close();
    EXPECT_FALSE(backEnd_.isLookedFor("_test._tcp"));
  });
  settle();
  EXPECT_THAT(events(), IsEmpty());
}

}  // namespace
}  // namespace ferrox::dnssd
