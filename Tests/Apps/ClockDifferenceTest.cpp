#include <gtest/gtest.h>

#include "Apps/ferrox/Doctor/ClockDifference.h"
#include "Platform/HTTP/Server/HTTPDate.h"

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;

const WallTime noon{std::chrono::seconds(1'795'262'400)};  // 2026-11-21 12:00:00 UTC

std::string dateOf(WallTime time) {
  return httpDate(std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(time)));
}

TEST(ClockDifference, AStampBetweenQuestionAndAnswerMeansThatClocksMayAgree) {
  const auto difference = ClockDifference::between(noon + 5ms, 1ms, noon, noon + 10ms);
  EXPECT_LE(difference.least, 0ms);
  EXPECT_GE(difference.most, 0ms);
  EXPECT_EQ(difference.atLeast(), 0ms);
  EXPECT_EQ(difference.words(), "agrees with this machine's within 6 ms");
}

TEST(ClockDifference, IsAsExactAsTheAnswerWasQuick) {
  const auto difference = ClockDifference::between(noon + 37s, 1ms, noon, noon + 100ms);
  EXPECT_EQ(difference.atLeast(), 37s - 101ms);
  EXPECT_NEAR(static_cast<double>(difference.ahead().count()), 36'950, 1);
  EXPECT_LE(difference.uncertainty(), 51ms);
  EXPECT_EQ(difference.words(), "is 37.0 s ahead of this machine's (give or take 51 ms)");
}

// Whatever the peer's clock shows and whenever within the second it is asked, the bounds hold.
TEST(ClockDifference, ADateToldInWholeSecondsBoundsTheDifferenceWithinASecond) {
  for (const auto truth : {-3600s, -2s, 0s, 1s, 37s}) {
    for (const auto moment : {0ms, 1ms, 499ms, 999ms}) {
      const WallTime asked = noon + moment;
      const auto difference = ClockDifference::fromDate(dateOf(asked + 3ms + truth), asked, asked + 8ms);
      ASSERT_TRUE(difference);
      EXPECT_LE(difference->least, truth);
      EXPECT_GE(difference->most, truth);
      EXPECT_LE(difference->uncertainty(), 505ms);
    }
  }
}

TEST(ClockDifference, BehindAndFarAwayAreToldInLargeUnits) {
  const auto words = [](std::chrono::milliseconds ahead) {
    return ClockDifference::between(noon + ahead, 1ms, noon, noon).words();
  };
  EXPECT_EQ(words(-90s), "is 90.0 s behind this machine's (give or take 1 ms)");
  EXPECT_EQ(words(10min), "is 10.0 min ahead of this machine's (give or take 1 ms)");
  EXPECT_EQ(words(-5h), "is 5.0 h behind this machine's (give or take 1 ms)");
  EXPECT_EQ(words(24h * 365), "is 365.0 days ahead of this machine's (give or take 1 ms)");
}

TEST(ClockDifference, DatesAtTheEndsOfTimeAreTakenAsTheyAre) {
  const auto late = ClockDifference::fromDate("Fri, 31 Dec 9999 23:59:59 GMT", noon, noon);
  ASSERT_TRUE(late);
  EXPECT_GT(late->ahead(), 24h * 365 * 7900);
  const auto early = ClockDifference::fromDate("Thu, 01 Jan 1970 00:00:00 GMT", noon, noon);
  ASSERT_TRUE(early);
  EXPECT_LT(early->ahead(), -(24h * 365 * 56));
}

TEST(ClockDifference, WhatIsNoDateTellsNothing) {
  for (const char* const date : {"", "soon", "Fri, 31 Feb 2026 00:00:00 GMT", "2026-11-21T12:00:00Z"}) {
    EXPECT_FALSE(ClockDifference::fromDate(date, noon, noon)) << date;
  }
}

TEST(ClockDifference, AClockThatWasSetBackBetweenQuestionAndAnswerDoesNoHarm) {
  const auto difference = ClockDifference::between(noon, 1ms, noon + 1s, noon);
  EXPECT_LE(difference.least, difference.most);
}

}  // namespace
}  // namespace ferrox::command
