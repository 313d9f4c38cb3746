#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Platform/RunLoop/Timer.h"
#include "Tests/Support/ManualClock.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox {
namespace {

using namespace std::chrono_literals;

struct TimerTest : testing::Test {
  test::ManualClock clock;
  RunLoop loop{clock};
};

TEST_F(TimerTest, FiresOnceWhenItsTimeHasCome) {
  int fired = 0;
  const auto timer = Timer::scheduleOnce(loop, 5s, [&] { ++fired; });
  clock.advance(4999ms, loop);
  EXPECT_EQ(fired, 0);
  EXPECT_TRUE(timer->isValid());
  clock.advance(1ms, loop);
  EXPECT_EQ(fired, 1);
  EXPECT_FALSE(timer->isValid());
  clock.advance(100s, loop);
  EXPECT_EQ(fired, 1);
}

TEST_F(TimerTest, FiresByDeadlineAndThenByTheOrderOfScheduling) {
  std::string order;
  const auto c = Timer::scheduleOnce(loop, 3s, [&] { order += 'c'; });
  const auto a = Timer::scheduleOnce(loop, 1s, [&] { order += 'a'; });
  const auto d = Timer::scheduleOnce(loop, 3s, [&] { order += 'd'; });
  const auto b = Timer::scheduleOnce(loop, 2s, [&] { order += 'b'; });
  clock.advance(10s, loop);
  EXPECT_EQ(order, "abcd");
}

TEST_F(TimerTest, RepeatsInItsRhythm) {
  std::vector<Clock::Instant> times;
  const Clock::Instant start = clock.now();
  const auto timer = Timer::scheduleRepeating(loop, 3s, [&] { times.push_back(clock.now()); });
  for (int i = 0; i < 9; ++i) clock.advance(1s, loop);
  EXPECT_EQ(times, (std::vector<Clock::Instant>{start + 3s, start + 6s, start + 9s}));
}

TEST_F(TimerTest, ALateRepeatingTimerFiresOnceAndKeepsItsRhythm) {
  int fired = 0;
  const auto timer = Timer::scheduleRepeating(loop, 3s, [&] { ++fired; });
  clock.advance(10s, loop);
  EXPECT_EQ(fired, 1);
  clock.advance(1999ms, loop);
  EXPECT_EQ(fired, 1);
  clock.advance(1ms, loop);
  EXPECT_EQ(fired, 2);
}

TEST_F(TimerTest, IsNotCalledAfterInvalidation) {
  const auto timer = Timer::scheduleOnce(loop, 1s, [] { FAIL(); });
  timer->invalidate();
  timer->invalidate();
  EXPECT_FALSE(timer->isValid());
  clock.advance(5s, loop);
}

TEST_F(TimerTest, IsNotCalledAfterDestruction) {
  auto timer = Timer::scheduleRepeating(loop, 1s, [] { FAIL(); });
  timer.reset();
  clock.advance(5s, loop);
}

TEST_F(TimerTest, ATimerThatIsDueCanStillBeInvalidatedByAnEarlierOne) {
  std::unique_ptr<Timer> second;
  const auto first = Timer::scheduleOnce(loop, 1s, [&] { second->invalidate(); });
  second = Timer::scheduleOnce(loop, 2s, [] { FAIL(); });
  clock.advance(5s, loop);
}

TEST_F(TimerTest, MayInvalidateItselfInItsAction) {
  int fired = 0;
  std::unique_ptr<Timer> timer;
  auto held = std::make_shared<int>(7);
  const std::weak_ptr<int> captured = held;
  timer = Timer::scheduleRepeating(loop, 1s, [&, held = std::move(held)] {
    timer->invalidate();
    fired += *held - 6;
  });
  clock.advance(1s, loop);
  clock.advance(5s, loop);
  EXPECT_EQ(fired, 1);
  EXPECT_TRUE(captured.expired()) << "an ended timer lets go of what its action holds";
}

TEST_F(TimerTest, MayDestroyItselfInItsAction) {
  int fired = 0;
  std::unique_ptr<Timer> timer;
  timer = Timer::scheduleRepeating(loop, 1s, [&] {
    timer.reset();
    ++fired;
  });
  clock.advance(1s, loop);
  clock.advance(5s, loop);
  EXPECT_EQ(fired, 1);
}

TEST_F(TimerTest, ANegativeDelayMeansTheNextTurn) {
  int fired = 0;
  const auto timer = Timer::scheduleOnce(loop, -5s, [&] { ++fired; });
  EXPECT_EQ(fired, 0);
  EXPECT_EQ(loop.runPending(), 1U);
  EXPECT_EQ(fired, 1);
}

TEST_F(TimerTest, AnEndlessDelayNeverFires) {
  const auto once = Timer::scheduleOnce(loop, Clock::Duration::max(), [] { FAIL(); });
  const auto repeating = Timer::scheduleRepeating(loop, Clock::Duration::max(), [] { FAIL(); });
  clock.advance(24h * 365, loop);
  EXPECT_TRUE(once->isValid());
}

TEST_F(TimerTest, AnActionThatSchedulesAtOnceDoesNotKeepTheTurnFromEnding) {
  std::vector<std::unique_ptr<Timer>> timers;
  std::function<void()> again = [&] { timers.push_back(Timer::scheduleOnce(loop, 0s, again)); };
  again();
  EXPECT_EQ(loop.runPending(), 1U);
  EXPECT_EQ(loop.runPending(), 1U);
}

TEST_F(TimerTest, AZeroIntervalIsRaisedToTheSmallestOne) {
  int fired = 0;
  const auto timer = Timer::scheduleRepeating(loop, 0s, [&] { ++fired; });
  EXPECT_EQ(loop.runPending(), 0U);
  clock.advance(Timer::minimumInterval, loop);
  EXPECT_EQ(fired, 1);
}

TEST(Timer, OutlivesItsLoopQuietly) {
  auto loop = std::make_unique<RunLoop>();
  const auto timer = Timer::scheduleOnce(*loop, 1h, [] { FAIL(); });
  loop.reset();
  timer->invalidate();
  EXPECT_FALSE(timer->isValid());
}

TEST(Timer, FiresOnTheMachinesClock) {
  RunLoop loop;
  int fired = 0;
  const auto start = std::chrono::steady_clock::now();
  const auto timer = Timer::scheduleRepeating(loop, 10ms, [&] { ++fired; });
  ASSERT_TRUE(loop.runUntil([&] { return fired == 3; }, test::patience));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
}

TEST(Timer, AnEarlierOneScheduledFromAnotherThreadWakesTheLoop) {
  RunLoop loop;
  bool fired = false;
  const auto late = Timer::scheduleOnce(loop, 1h, [] { FAIL(); });
  std::unique_ptr<Timer> early;
  std::thread scheduler([&] { early = Timer::scheduleOnce(loop, 5ms, [&] { fired = true; }); });
  EXPECT_TRUE(loop.runUntil([&] { return fired; }, test::patience));
  scheduler.join();
}

TEST(Timer, MayBeScheduledAndInvalidatedByManyThreadsAtOnce) {
  RunLoop loop;
  loop.startThread();
  std::atomic<int> fired{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 300; ++i) {
        auto kept = Timer::scheduleRepeating(loop, 1ms, [&] { ++fired; });
        auto dropped = Timer::scheduleOnce(loop, std::chrono::microseconds(i), [] {});
        dropped->invalidate();
        if (i % 50 == 0) std::this_thread::yield();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const auto last = Timer::scheduleRepeating(loop, 1ms, [&] { ++fired; });
  const int before = fired;
  EXPECT_TRUE(test::waitFor([&] { return fired > before; }));
  loop.stopThread();
}

}  // namespace
}  // namespace ferrox
