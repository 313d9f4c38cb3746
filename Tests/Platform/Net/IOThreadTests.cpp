#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <vector>

#include "Platform/Net/IOThread.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

class IOThreadTests : public ::testing::Test {
 protected:
  /// Runs `task` on the thread and waits for it.
  void run(const IOThread::Task& task) {
    std::promise<void> done;
    thread_.post([&] {
      task();
      done.set_value();
    });
    done.get_future().wait();
  }

  IOThread thread_;
};

TEST_F(IOThreadTests, TasksRunInTheOrderOfPosting) {
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) thread_.post([&order, i] { order.push_back(i); });
  run([] {});
  ASSERT_EQ(order.size(), 100u);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(IOThreadTests, TimersFireOnceInTheOrderOfTheirDeadlines) {
  std::vector<int> order;
  std::atomic<int> fired{0};
  run([&] {
    for (const int delay : {30, 10, 20}) {
      thread_.startTimer(std::chrono::milliseconds(delay), [&, delay] {
        order.push_back(delay);
        ++fired;
      });
    }
  });
  ASSERT_TRUE(waitFor([&fired] { return fired == 3; }));
  run([&] { EXPECT_EQ(order, (std::vector<int>{10, 20, 30})); });
}

TEST_F(IOThreadTests, CancelledTimerNeverFires) {
  std::atomic<bool> later{false};
  bool cancelled = false;
  run([&] {
    const auto id = thread_.startTimer(5ms, [&cancelled] { cancelled = true; });
    thread_.startTimer(20ms, [&later] { later = true; });
    thread_.cancelTimer(id);
    thread_.cancelTimer(id);
  });
  ASSERT_TRUE(waitFor([&later] { return later.load(); }));
  run([&] { EXPECT_FALSE(cancelled); });
}

TEST_F(IOThreadTests, WatchThatEndedIsNotCalledForADescriptorOfTheSameNumber) {
  int pair[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  int calls = 0;
  run([&] {
    ASSERT_EQ(::send(pair[1], "x", 1, 0), 1);
    const auto first = thread_.watch(pair[0], EPOLLIN, [&calls] { ++calls; });
    thread_.unwatch(first);
  });
  run([] {});
  run([&] { EXPECT_EQ(calls, 0); });
  ::close(pair[0]);
  ::close(pair[1]);
}

TEST_F(IOThreadTests, ThrowingStepIsLoggedAndTheThreadGoesOn) {
  LogRecording log;
  thread_.post([] { throw std::runtime_error("broken step"); });
  bool ran = false;
  run([&ran] { ran = true; });
  EXPECT_TRUE(ran);
  EXPECT_TRUE(log->mentions(LogLevel::Error, "broken step"));
}

TEST_F(IOThreadTests, EndsWithTimersStillWaiting) {
  IOThread brief;
  brief.post([&brief] { brief.startTimer(1h, [] {}); });
}

}  // namespace
}  // namespace ferrox::test
