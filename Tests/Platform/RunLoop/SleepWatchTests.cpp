#include <gtest/gtest.h>

#include <vector>

#include "Platform/RunLoop/SleepWatch.h"
#include "Tests/Support/ManualClock.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

struct SleepWatchTests : testing::Test {
  SleepWatchTests() { loop.runPending(); }
  ManualClock clock;
  RunLoop loop{clock};
  std::vector<Clock::Duration> wakes;
  SleepWatch watch{loop, [this](Clock::Duration slept) { wakes.push_back(slept); }};
};

TEST_F(SleepWatchTests, TimeThatPassesWakesNobody) {
  for (int i = 0; i < 20; ++i) clock.advance(SleepWatch::interval, loop);
  clock.advance(10min, loop);
  EXPECT_TRUE(wakes.empty());
}

TEST_F(SleepWatchTests, ASleepIsReportedOnceAfterWaking) {
  clock.setCalendar(clock.calendarNow() + 8h);
  clock.advance(SleepWatch::interval, loop);
  clock.advance(SleepWatch::interval, loop);
  ASSERT_EQ(wakes.size(), 1U);
  EXPECT_EQ(wakes[0], 8h);
}

TEST_F(SleepWatchTests, SmallCorrectionsAndStepsBackAreNoSleep) {
  clock.setCalendar(clock.calendarNow() + 1s);
  clock.advance(SleepWatch::interval, loop);
  clock.setCalendar(clock.calendarNow() - 1h);
  clock.advance(SleepWatch::interval, loop);
  EXPECT_TRUE(wakes.empty());
}

TEST(SleepWatch, MayBeDestroyedByItsHandler) {
  ManualClock clock;
  RunLoop loop(clock);
  loop.runPending();
  std::unique_ptr<SleepWatch> watch;
  watch = std::make_unique<SleepWatch>(loop, [&](Clock::Duration) { watch.reset(); });
  clock.setCalendar(clock.calendarNow() + 1h);
  clock.advance(SleepWatch::interval, loop);
  EXPECT_EQ(watch, nullptr);
}

}  // namespace
}  // namespace ferrox::test
