#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"
#include "Tests/Support/ManualClock.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox {
namespace {

using namespace std::chrono_literals;

bool isReadable(int descriptor, std::chrono::milliseconds timeout = 0ms) {
  pollfd watched{descriptor, POLLIN, 0};
  return poll(&watched, 1, static_cast<int>(timeout.count())) == 1;
}

TEST(RunLoop, RunsTasksInTheOrderOfPosting) {
  RunLoop loop;
  std::string order;
  for (char c = 'a'; c <= 'e'; ++c) loop.post([&order, c] { order += c; });
  EXPECT_EQ(order, "");
  EXPECT_EQ(loop.runPending(), 5U);
  EXPECT_EQ(order, "abcde");
  EXPECT_EQ(loop.runPending(), 0U);
}

TEST(RunLoop, LeavesWhatATaskPostsToTheNextTurn) {
  RunLoop loop;
  int runs = 0;
  std::function<void()> again = [&] {
    ++runs;
    loop.post(again);
  };
  loop.post(again);
  EXPECT_EQ(loop.runPending(), 1U);
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(isReadable(loop.descriptor()));
  EXPECT_EQ(loop.runPending(), 1U);
  EXPECT_EQ(runs, 2);
}

TEST(RunLoop, DropsATaskThatThrowsWithAnErrorEntry) {
  test::LogRecording log;
  RunLoop loop;
  bool ranNext = false;
  loop.post([] { throw std::runtime_error("no luck"); });
  loop.post([] { throw 7; });
  loop.post([&] { ranNext = true; });
  EXPECT_EQ(loop.runPending(), 3U);
  EXPECT_TRUE(ranNext);
  EXPECT_TRUE(log->mentions(LogLevel::Error, "no luck"));
  EXPECT_EQ(log->entries().size(), 2U);
}

TEST(RunLoop, DescriptorIsReadableExactlyWhileTasksArePending) {
  RunLoop loop;
  EXPECT_FALSE(isReadable(loop.descriptor()));
  loop.post([] {});
  loop.post([] {});
  EXPECT_TRUE(isReadable(loop.descriptor()));
  loop.runPending();
  EXPECT_FALSE(isReadable(loop.descriptor()));
}

TEST(RunLoop, DescriptorBecomesReadableForATimer) {
  RunLoop loop;
  bool fired = false;
  const auto timer = Timer::scheduleOnce(loop, 20ms, [&] { fired = true; });
  EXPECT_FALSE(isReadable(loop.descriptor()));
  ASSERT_TRUE(isReadable(loop.descriptor(), 5000ms));
  EXPECT_EQ(loop.runPending(), 1U);
  EXPECT_TRUE(fired);
  EXPECT_FALSE(isReadable(loop.descriptor(), 30ms));
}

TEST(RunLoop, RunEndsAfterTheTaskThatStopsIt) {
  RunLoop loop;
  std::string order;
  loop.post([&] {
    order += "a";
    loop.stop();
  });
  loop.post([&] { order += "b"; });
  loop.run();
  EXPECT_EQ(order, "a");
  loop.runPending();
  EXPECT_EQ(order, "ab");
}

TEST(RunLoop, StopBeforeRunEndsThatRunOnly) {
  RunLoop loop;
  loop.stop();
  loop.run();
  bool stopped = false;
  loop.post([&] {
    stopped = true;
    loop.stop();
  });
  loop.run();
  EXPECT_TRUE(stopped);
}

TEST(RunLoop, RunUntilGivesUpAfterItsTimeout) {
  RunLoop loop;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(loop.runUntil([] { return false; }, 30ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
  EXPECT_TRUE(loop.runUntil([] { return true; }, 0ms));
}

TEST(RunLoop, RunUntilIsWokenByAnotherThread) {
  RunLoop loop;
  bool arrived = false;
  std::thread poster([&] { loop.post([&] { arrived = true; }); });
  EXPECT_TRUE(loop.runUntil([&] { return arrived; }, test::patience));
  poster.join();
}

TEST(RunLoop, RunUntilInsideATaskKeepsTheOrder) {
  RunLoop loop;
  std::string order;
  loop.post([&] {
    order += "a";
    loop.runUntil([&] { return order == "ab"; }, test::patience);
    order += "c";
  });
  loop.post([&] { order += "b"; });
  loop.runPending();
  EXPECT_EQ(order, "abc");
}

TEST(RunLoop, RunUntilSurvivesAConditionThatThrows) {
  const test::LogRecording log;
  RunLoop loop;
  EXPECT_FALSE(loop.runUntil([]() -> bool { throw std::runtime_error("bad"); }, 5ms));
}

TEST(RunLoop, HasAThreadOfItsOwn) {
  RunLoop loop;
  loop.startThread();
  std::atomic<bool> onLoop{false};
  std::atomic<bool> ran{false};
  loop.post([&] {
    onLoop = loop.isCurrentThread();
    ran = true;
  });
  ASSERT_TRUE(test::waitFor([&] { return ran.load(); }));
  EXPECT_TRUE(onLoop);
  EXPECT_FALSE(loop.isCurrentThread());
  loop.stopThread();
  loop.startThread();
  ran = false;
  loop.post([&] { ran = true; });
  EXPECT_TRUE(test::waitFor([&] { return ran.load(); }));
  loop.stopThread();
}

TEST(RunLoop, DestructionEndsItsThread) {
  std::atomic<int> runs{0};
  {
    RunLoop loop;
    loop.startThread();
    loop.post([&] { ++runs; });
    ASSERT_TRUE(test::waitFor([&] { return runs == 1; }));
  }
  EXPECT_EQ(runs, 1);
}

TEST(RunLoop, PostOrRunRunsAtOnceOnlyOnTheLoopsThread) {
  RunLoop loop;
  bool ran = false;
  loop.postOrRun([&] { ran = true; });
  EXPECT_FALSE(ran) << "no thread has driven the loop yet";
  loop.runPending();
  EXPECT_TRUE(ran);
  ran = false;
  loop.postOrRun([&] { ran = true; });
  EXPECT_TRUE(ran);
  ran = false;
  std::thread([&] { loop.postOrRun([&] { ran = true; }); }).join();
  EXPECT_FALSE(ran);
  loop.runPending();
  EXPECT_TRUE(ran);
}

TEST(RunLoop, IsCurrentAnywhereUntilDriven) {
  RunLoop loop;
  bool elsewhere = false;
  std::thread([&] { elsewhere = loop.isCurrentThread(); }).join();
  EXPECT_TRUE(elsewhere);
  loop.runPending();
  EXPECT_TRUE(loop.isCurrentThread());
  std::thread([&] { elsewhere = loop.isCurrentThread(); }).join();
  EXPECT_FALSE(elsewhere);
}

TEST(RunLoop, TasksThatPostWhileTheLoopIsDestroyedAreDiscarded) {
  struct PostsAtTheEnd {
    RunLoop* loop;
    explicit PostsAtTheEnd(RunLoop* target) : loop(target) {}
    ~PostsAtTheEnd() {
      loop->post([] { FAIL(); });
    }
  };
  RunLoop loop;
  loop.post([last = std::make_shared<PostsAtTheEnd>(&loop)] { FAIL(); });
}

TEST(RunLoop, TakesTasksFromManyThreadsWithoutLosingAny) {
  RunLoop loop;
  constexpr int threads = 4;
  constexpr int tasksEach = 2000;
  int ran = 0;
  std::vector<int> last(threads, -1);
  bool ordered = true;
  std::vector<std::thread> posters;
  for (int t = 0; t < threads; ++t) {
    posters.emplace_back([&, t] {
      for (int i = 0; i < tasksEach; ++i) {
        loop.post([&, t, i] {
          ordered = ordered && last[static_cast<std::size_t>(t)] == i - 1;
          last[static_cast<std::size_t>(t)] = i;
          ++ran;
        });
      }
    });
  }
  EXPECT_TRUE(loop.runUntil([&] { return ran == threads * tasksEach; }, test::patience));
  for (std::thread& poster : posters) poster.join();
  EXPECT_TRUE(ordered);
}

TEST(RunLoop, MainIsOneLoop) { EXPECT_EQ(&RunLoop::main(), &RunLoop::main()); }

}  // namespace
}  // namespace ferrox
