#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <vector>

#include "Platform/DNSSD/AvahiPollAdapter.h"

namespace {
/// Of this thread: the reactors of other tests work on threads of their own.
thread_local int systemTimerSettings = 0;
}  // namespace

/// Stands in for the C library's, to count what the reactor asks of the system.
extern "C" int timerfd_settime(int fd, int flags, const itimerspec* value, itimerspec* previous) noexcept {
  ++systemTimerSettings;
  return static_cast<int>(syscall(SYS_timerfd_settime, fd, flags, value, previous));
}

namespace ferrox::dnssd {
namespace {

using namespace std::chrono_literals;

timeval fromNow(std::chrono::milliseconds delay) {
  timeval now{};
  gettimeofday(&now, nullptr);
  const auto microseconds =
      now.tv_usec + std::chrono::duration_cast<std::chrono::microseconds>(delay).count();
  auto seconds = now.tv_sec + microseconds / 1000000;
  auto rest = microseconds % 1000000;
  if (rest < 0) {
    rest += 1000000;
    --seconds;
  }
  return {seconds, rest};
}

class AvahiPollAdapterTest : public testing::Test {
 protected:
  AvahiPollAdapterTest() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair_), 0); }
  ~AvahiPollAdapterTest() override {
    for (const int fd : pair_) close(fd);
  }

  AvahiWatch* watch(AvahiWatchEvent events, std::function<void(AvahiWatch*, AvahiWatchEvent)> action) {
    actions_.push_back(
        std::make_unique<std::function<void(AvahiWatch*, AvahiWatchEvent)>>(std::move(action)));
    return poll()->watch_new(
        poll(), pair_[0], events,
        [](AvahiWatch* watch, int, AvahiWatchEvent event, void* action) {
          (*static_cast<std::function<void(AvahiWatch*, AvahiWatchEvent)>*>(action))(watch, event);
        },
        actions_.back().get());
  }

  AvahiTimeout* timeout(const timeval* when, std::function<void(AvahiTimeout*)> action) {
    timeoutActions_.push_back(std::make_unique<std::function<void(AvahiTimeout*)>>(std::move(action)));
    return poll()->timeout_new(
        poll(), when,
        [](AvahiTimeout* timeout, void* action) {
          (*static_cast<std::function<void(AvahiTimeout*)>*>(action))(timeout);
        },
        timeoutActions_.back().get());
  }

  void send(const char* text) { EXPECT_GT(::send(pair_[1], text, 1, 0), 0); }
  char receive() {
    char byte = 0;
    return recv(pair_[0], &byte, 1, 0) == 1 ? byte : '\0';
  }
  void runFor(std::chrono::milliseconds time) {
    context_.restart();
    context_.run_for(time);
  }
  const AvahiPoll* poll() { return adapter_.poll(); }

  int pair_[2] = {-1, -1};
  boost::asio::io_context context_;
  AvahiPollAdapter adapter_{context_};
  std::vector<std::unique_ptr<std::function<void(AvahiWatch*, AvahiWatchEvent)>>> actions_;
  std::vector<std::unique_ptr<std::function<void(AvahiTimeout*)>>> timeoutActions_;
};

TEST_F(AvahiPollAdapterTest, AWatchIsCalledForEachArrival) {
  std::string received;
  AvahiWatch* made = watch(AVAHI_WATCH_IN, [&](AvahiWatch* self, AvahiWatchEvent event) {
    EXPECT_EQ(event & AVAHI_WATCH_IN, AVAHI_WATCH_IN);
    EXPECT_EQ(poll()->watch_get_events(self), event);
    received += receive();
  });
  send("a");
  runFor(20ms);
  send("b");
  runFor(20ms);
  EXPECT_EQ(received, "ab");
  EXPECT_EQ(poll()->watch_get_events(made), 0);
  poll()->watch_free(made);
}

TEST_F(AvahiPollAdapterTest, AWatchMayBeFreedInsideItsCallback) {
  int calls = 0;
  watch(AVAHI_WATCH_IN, [&](AvahiWatch* self, AvahiWatchEvent) {
    ++calls;
    poll()->watch_free(self);
  });
  send("a");
  runFor(20ms);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(receive(), 'a');  // Avahi's own descriptor is still open
}

TEST_F(AvahiPollAdapterTest, TwoWatchesMayShareOneDescriptor) {
  int reads = 0;
  int writes = 0;
  AvahiWatch* reader =
      watch(AVAHI_WATCH_IN, [&](AvahiWatch*, AvahiWatchEvent) { reads += receive() == 'a'; });
  AvahiWatch* writer = watch(AVAHI_WATCH_OUT, [&](AvahiWatch* self, AvahiWatchEvent) {
    ++writes;
    poll()->watch_update(self, AvahiWatchEvent{});
  });
  ASSERT_TRUE(reader != nullptr && writer != nullptr);
  send("a");
  runFor(20ms);
  EXPECT_EQ(reads, 1);
  EXPECT_EQ(writes, 1);
  poll()->watch_free(reader);
  poll()->watch_free(writer);
}

TEST_F(AvahiPollAdapterTest, AnUpdatedWatchWaitsForWhatIsAskedNow) {
  int calls = 0;
  AvahiWatch* made = watch(AvahiWatchEvent{}, [&](AvahiWatch*, AvahiWatchEvent) {
    ++calls;
    receive();
  });
  send("a");
  runFor(20ms);
  EXPECT_EQ(calls, 0);
  poll()->watch_update(made, AVAHI_WATCH_IN);
  runFor(20ms);
  EXPECT_EQ(calls, 1);
  poll()->watch_free(made);
}

TEST_F(AvahiPollAdapterTest, AFreedWatchIsNeverCalled) {
  AvahiWatch* made = watch(AVAHI_WATCH_IN, [&](AvahiWatch*, AvahiWatchEvent) { ADD_FAILURE(); });
  send("a");
  poll()->watch_free(made);
  runFor(20ms);
}

TEST_F(AvahiPollAdapterTest, AClosedPeerIsReported) {
  bool called = false;
  AvahiWatch* made = watch(AVAHI_WATCH_IN, [&](AvahiWatch* self, AvahiWatchEvent) {
    called = true;
    poll()->watch_update(self, AvahiWatchEvent{});
  });
  shutdown(pair_[1], SHUT_RDWR);
  runFor(20ms);
  EXPECT_TRUE(called);
  poll()->watch_free(made);
}

TEST_F(AvahiPollAdapterTest, ABadDescriptorGivesNoWatch) {
  EXPECT_EQ(poll()->watch_new(
                poll(), -1, AVAHI_WATCH_IN, [](AvahiWatch*, int, AvahiWatchEvent, void*) {}, nullptr),
            nullptr);
}

TEST_F(AvahiPollAdapterTest, TimeoutsFireOnceAtTheirTimeEvenIfItHasPassed) {
  int soon = 0;
  int past = 0;
  int never = 0;
  const timeval soonTime = fromNow(5ms);
  const timeval pastTime = fromNow(-3h);
  const timeval laterTime = fromNow(1h);
  AvahiTimeout* all[] = {timeout(&soonTime, [&](AvahiTimeout*) { ++soon; }),
                         timeout(&pastTime, [&](AvahiTimeout*) { ++past; }),
                         timeout(&laterTime, [&](AvahiTimeout*) { ++never; }),
                         timeout(nullptr, [&](AvahiTimeout*) { ++never; })};
  runFor(40ms);
  EXPECT_EQ(soon, 1);
  EXPECT_EQ(past, 1);
  EXPECT_EQ(never, 0);
  for (AvahiTimeout* made : all) poll()->timeout_free(made);
}

TEST_F(AvahiPollAdapterTest, ATimeoutMayBeSetAgainOrFreedInsideItsCallback) {
  int calls = 0;
  const timeval first = fromNow(1ms);
  timeout(&first, [&](AvahiTimeout* self) {
    if (++calls == 3) return poll()->timeout_free(self);
    const timeval next = fromNow(1ms);
    poll()->timeout_update(self, &next);
  });
  runFor(60ms);
  EXPECT_EQ(calls, 3);
}

TEST_F(AvahiPollAdapterTest, ADisabledOrFreedTimeoutIsSilent) {
  const timeval due = fromNow(0ms);
  AvahiTimeout* disabled = timeout(&due, [&](AvahiTimeout*) { ADD_FAILURE(); });
  AvahiTimeout* freed = timeout(&due, [&](AvahiTimeout*) { ADD_FAILURE(); });
  poll()->timeout_update(disabled, nullptr);
  poll()->timeout_free(freed);
  runFor(20ms);
  poll()->timeout_free(disabled);
}

TEST_F(AvahiPollAdapterTest, APostponedTimeoutFiresOnceAndNotBeforeItsLastTime) {
  const auto begun = std::chrono::steady_clock::now();
  std::vector<std::chrono::steady_clock::duration> fired;
  const timeval first = fromNow(10ms);
  AvahiTimeout* made =
      timeout(&first, [&](AvahiTimeout*) { fired.push_back(std::chrono::steady_clock::now() - begun); });
  const timeval later = fromNow(40ms);
  poll()->timeout_update(made, &later);
  runFor(80ms);
  ASSERT_EQ(fired.size(), 1U);
  EXPECT_GE(fired.front(), 39ms);
  poll()->timeout_free(made);
}

TEST_F(AvahiPollAdapterTest, ATimeoutThatIsBroughtForwardFiresAtTheEarlierTime) {
  int calls = 0;
  const timeval later = fromNow(1h);
  AvahiTimeout* made = timeout(&later, [&](AvahiTimeout*) { ++calls; });
  const timeval soon = fromNow(5ms);
  poll()->timeout_update(made, &soon);
  runFor(40ms);
  EXPECT_EQ(calls, 1);
  poll()->timeout_free(made);
}

TEST_F(AvahiPollAdapterTest, ADisabledTimeoutMayBeSetAgain) {
  int calls = 0;
  const timeval soon = fromNow(5ms);
  AvahiTimeout* made = timeout(&soon, [&](AvahiTimeout*) { ++calls; });
  poll()->timeout_update(made, nullptr);
  runFor(20ms);
  EXPECT_EQ(calls, 0);
  const timeval again = fromNow(5ms);
  poll()->timeout_update(made, &again);
  runFor(40ms);
  EXPECT_EQ(calls, 1);
  poll()->timeout_free(made);
}

TEST_F(AvahiPollAdapterTest, PostponingATimeoutLeavesTheSystemsTimerAlone) {
  const timeval first = fromNow(1h);
  AvahiTimeout* made = timeout(&first, [&](AvahiTimeout*) { ADD_FAILURE(); });
  runFor(1ms);
  const int before = systemTimerSettings;
  ASSERT_GT(before, 0);
  for (int update = 1; update <= 1000; ++update) {
    const timeval later = fromNow(1h + std::chrono::milliseconds(update));
    poll()->timeout_update(made, &later);
  }
  EXPECT_EQ(systemTimerSettings, before);
  poll()->timeout_free(made);
}

TEST_F(AvahiPollAdapterTest, EventsThatFollowCloselyAreRunTogetherAndNoneTooEarly) {
  constexpr int events = 50;
  std::vector<timeval> planned;
  for (int event = 0; event < events; ++event) {
    planned.push_back(fromNow(20ms));
    planned.back().tv_usec += event * 200;
    if (planned.back().tv_usec >= 1000000) {
      planned.back().tv_usec -= 1000000;
      ++planned.back().tv_sec;
    }
  }
  int early = 0;
  std::size_t run = 0;
  AvahiTimeout* made = timeout(planned.data(), [&](AvahiTimeout* self) {
    timeval now{};
    gettimeofday(&now, nullptr);
    // Planned by the calendar's clock and run by the other: what lies between the two readings is no event's.
    if (std::chrono::seconds(planned[run].tv_sec - now.tv_sec) +
            std::chrono::microseconds(planned[run].tv_usec - now.tv_usec) >
        1ms) {
      ++early;
    }
    if (++run < planned.size()) poll()->timeout_update(self, &planned[run]);
  });
  const int before = systemTimerSettings;
  runFor(200ms);
  EXPECT_EQ(run, planned.size());
  EXPECT_EQ(early, 0);
  EXPECT_LE(systemTimerSettings - before, 12);
  poll()->timeout_free(made);
}

TEST_F(AvahiPollAdapterTest, ATimeoutThatIsAlwaysDueLeavesOthersTheirTurn) {
  int calls = 0;
  int callsBeforeTheWatch = 0;
  AvahiWatch* watched = watch(AVAHI_WATCH_IN, [&](AvahiWatch* self, AvahiWatchEvent) {
    callsBeforeTheWatch = calls;
    poll()->watch_update(self, AvahiWatchEvent{});
  });
  const timeval past = fromNow(-1h);
  AvahiTimeout* made = timeout(&past, [&](AvahiTimeout* self) {
    if (++calls == 10) send("a");
    if (calls < 100'000) poll()->timeout_update(self, &past);
  });
  runFor(2s);
  EXPECT_GE(callsBeforeTheWatch, 10);
  EXPECT_LT(callsBeforeTheWatch, 10'000);
  poll()->timeout_free(made);
  poll()->watch_free(watched);
}

}  // namespace
}  // namespace ferrox::dnssd
