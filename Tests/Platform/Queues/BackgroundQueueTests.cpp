#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <set>
#include <stdexcept>
#include <thread>

#include "Platform/Base/Mutex.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox {
namespace {

TEST(BackgroundQueue, RunsTasksInOrderOnOneThread) {
  std::string order;
  {
    const auto queue = BackgroundQueue::makePool(1);
    for (char c = 'a'; c <= 'j'; ++c) queue->post([&order, c] { order += c; });
  }
  EXPECT_EQ(order, "abcdefghij");
}

TEST(BackgroundQueue, RunsWhatWasPostedBeforeItIsDestroyed) {
  std::atomic<int> ran{0};
  {
    const auto queue = BackgroundQueue::makePool(3);
    BackgroundQueue& posted = *queue;
    for (int i = 0; i < 200; ++i) {
      posted.post([&] {
        ++ran;
        posted.post([&] { ++ran; });
      });
    }
  }
  EXPECT_EQ(ran, 400);
}

TEST(BackgroundQueue, RunsTasksSideBySideUpToItsThreads) {
  const auto queue = BackgroundQueue::makePool(3);
  std::atomic<int> inside{0};
  std::atomic<bool> release{false};
  std::atomic<int> done{0};
  for (int i = 0; i < 4; ++i) {
    queue->post([&] {
      ++inside;
      EXPECT_TRUE(test::waitFor([&] { return release.load(); }));
      --inside;
      ++done;
    });
  }
  EXPECT_TRUE(test::waitFor([&] { return inside == 3; }));
  EXPECT_FALSE(test::waitFor([&] { return inside > 3; }, std::chrono::milliseconds(20)));
  release = true;
  EXPECT_TRUE(test::waitFor([&] { return done == 4; }));
}

TEST(BackgroundQueue, StartsNoMoreThreadsThanItNeeds) {
  const auto queue = BackgroundQueue::makePool(64);
  Mutex mutex;
  std::set<std::thread::id> threads;
  std::atomic<int> done{0};
  for (int i = 0; i < 64; ++i) {
    queue->post([&] {
      {
        const MutexLock lock(mutex);
        threads.insert(std::this_thread::get_id());
      }
      ++done;
    });
    ASSERT_TRUE(test::waitFor([&] { return done == i + 1; }));
  }
  const MutexLock lock(mutex);
  EXPECT_LE(threads.size(), 8U) << "a task that comes when a thread is free starts no other";
  EXPECT_EQ(threads.count(std::this_thread::get_id()), 0U);
}

TEST(BackgroundQueue, SurvivesATaskThatThrows) {
  const test::LogRecording log;
  bool ranNext = false;
  {
    const auto queue = BackgroundQueue::makePool(1);
    queue->post([] { throw std::runtime_error("out of luck"); });
    queue->post([] { throw 1; });
    queue->post([&] { ranNext = true; });
  }
  EXPECT_TRUE(ranNext);
  EXPECT_TRUE(log->mentions(LogLevel::Error, "out of luck"));
}

// Whoever waits for the task does not know whether the thread that posted it has come out of `post`.
TEST(BackgroundQueue, AfterTheLastTaskItMayGoWhilePostReturns) {
  for (int i = 0; i < 500; ++i) {
    auto queue = BackgroundQueue::makePool(1);
    std::promise<void> ran;
    std::thread poster([posted = queue.get(), &ran] { posted->post([&ran] { ran.set_value(); }); });
    ran.get_future().wait();
    queue.reset();
    poster.join();
  }
}

TEST(BackgroundQueue, ZeroThreadsMeansOne) {
  bool ran = false;
  {
    BackgroundQueue::makePool(0)->post([&] { ran = true; });
  }
  EXPECT_TRUE(ran);
}

TEST(BackgroundQueue, TheSharedOneRunsTasksElsewhere) {
  std::atomic<bool> elsewhere{false};
  const auto here = std::this_thread::get_id();
  BackgroundQueue::shared().post([&] { elsewhere = std::this_thread::get_id() != here; });
  EXPECT_TRUE(test::waitFor([&] { return elsewhere.load(); }));
}

}  // namespace
}  // namespace ferrox
