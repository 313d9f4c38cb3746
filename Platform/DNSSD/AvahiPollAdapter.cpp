#include "Platform/DNSSD/AvahiPollAdapter.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <ratio>
#include <utility>
#include <vector>

namespace asio = boost::asio;

namespace {

using Descriptor = asio::posix::stream_descriptor;

// Watches are freed inside their own callbacks, so what an outstanding wait needs lives on here.
struct WatchState {
  Descriptor descriptor;
  AvahiWatch* handle = nullptr;
  int fd = -1;  // Avahi's own, as its callback expects it
  int wanted = 0;
  int happened = 0;
  AvahiWatchCallback callback = nullptr;
  void* userdata = nullptr;
  bool dead = false;
  bool waitsToRead = false;
  bool waitsToWrite = false;
};

using Instant = std::chrono::steady_clock::time_point;

// Avahi moves its one timeout with every event that it plans or drops, a dozen times for a packet, and
// setting the system's timer each time cost more than everything else together. So the timer is set when
// Avahi's callback returns, and a wait that is under way is only replaced by an earlier one: when it ends too
// early, or for nothing, it is renewed or forgotten. Each record that was heard plans several events within
// milliseconds of each other, so those of a slot are run together: what mDNS plans to the millisecond it
// scatters by tens of them itself (RFC 6762 section 6).
using Slot = std::chrono::duration<std::int64_t, std::ratio<1, 100>>;
// Before others on this thread have their turn.
constexpr int eventsAtOnce = 256;

struct TimeoutState {
  asio::steady_timer timer;
  AvahiTimeout* handle = nullptr;
  AvahiTimeoutCallback callback = nullptr;
  void* userdata = nullptr;
  std::optional<Instant> due{};
  std::optional<Instant> waitsUntil{};
  unsigned generation = 0;  // a wait that completed before it was replaced must not fire
  bool dead = false;
};

void wait(const std::shared_ptr<TimeoutState>& state);

// As long as it stands, Avahi is at work, and will say more of its timeouts before it returns.
class CallIntoAvahi {
 public:
  CallIntoAvahi() { ++depth; }
  ~CallIntoAvahi() {
    if (--depth != 0) return;
    for (const auto& state : std::exchange(moved, {})) setTimer(state);
  }
  CallIntoAvahi(const CallIntoAvahi&) = delete;
  CallIntoAvahi& operator=(const CallIntoAvahi&) = delete;

  static void didMove(const std::shared_ptr<TimeoutState>& state) {
    if (depth == 0) return setTimer(state);
    if (moved.empty() || moved.back() != state) moved.push_back(state);
  }

 private:
  static void setTimer(const std::shared_ptr<TimeoutState>& state) {
    if (state->dead || !state->due) return;
    if (!state->waitsUntil || *state->due < *state->waitsUntil) wait(state);
  }

  // A stack's callbacks all come on the thread of its own.
  static thread_local int depth;
  static thread_local std::vector<std::shared_ptr<TimeoutState>> moved;
};

thread_local int CallIntoAvahi::depth = 0;
thread_local std::vector<std::shared_ptr<TimeoutState>> CallIntoAvahi::moved;

void arm(const std::shared_ptr<WatchState>& state);

// Several watches may share one socket, and a callback of one may have emptied it: ask again what is true
// now.
int currentEvents(const WatchState& state) {
  pollfd entry{state.fd, static_cast<short>(state.wanted), 0};
  if (::poll(&entry, 1, 0) <= 0) return 0;
  return entry.revents & (state.wanted | POLLERR | POLLHUP);
}

void dispatch(const std::shared_ptr<WatchState>& state) {
  if (state->dead) return;
  state->happened = currentEvents(*state);
  if (state->happened != 0) {
    const CallIntoAvahi call;
    state->callback(state->handle, state->fd, static_cast<AvahiWatchEvent>(state->happened), state->userdata);
  }
  if (state->dead) return;
  state->happened = 0;
  arm(state);
}

void arm(const std::shared_ptr<WatchState>& state) {
  if ((state->wanted & AVAHI_WATCH_IN) != 0 && !state->waitsToRead) {
    state->waitsToRead = true;
    state->descriptor.async_wait(Descriptor::wait_read, [state](const boost::system::error_code& error) {
      state->waitsToRead = false;
      if (!error) dispatch(state);
    });
  }
  if ((state->wanted & AVAHI_WATCH_OUT) != 0 && !state->waitsToWrite) {
    state->waitsToWrite = true;
    state->descriptor.async_wait(Descriptor::wait_write, [state](const boost::system::error_code& error) {
      state->waitsToWrite = false;
      if (!error) dispatch(state);
    });
  }
}

// Avahi gives absolute calendar times; a jump of the clock must not stall the stack, so only the distance
// counts.
std::chrono::microseconds untilTime(const timeval& when) {
  timeval now{};
  gettimeofday(&now, nullptr);
  const auto distance =
      std::chrono::seconds(when.tv_sec - now.tv_sec) + std::chrono::microseconds(when.tv_usec - now.tv_usec);
  return std::max<std::chrono::microseconds>(distance, std::chrono::microseconds(0));
}

// Work that Avahi has only put off until it returns is not held up.
Instant whenToRun(Instant due) {
  if (due <= std::chrono::steady_clock::now()) return due;
  return Instant(std::chrono::ceil<Slot>(due.time_since_epoch()));
}

void fire(const std::shared_ptr<TimeoutState>& state) {
  const CallIntoAvahi call;
  for (int i = 0; i < eventsAtOnce && !state->dead && state->due; ++i) {
    if (*state->due > std::chrono::steady_clock::now()) return;
    state->due.reset();
    state->callback(state->handle, state->userdata);
  }
}

void wait(const std::shared_ptr<TimeoutState>& state) {
  const unsigned generation = ++state->generation;
  state->waitsUntil = state->due;
  state->timer.expires_at(whenToRun(*state->due));
  state->timer.async_wait([state, generation](const boost::system::error_code& error) {
    if (error || state->dead || generation != state->generation) return;
    state->waitsUntil.reset();
    if (!state->due) return;
    if (*state->due > std::chrono::steady_clock::now()) return wait(state);
    fire(state);
  });
}

void schedule(const std::shared_ptr<TimeoutState>& state, const timeval* when) {
  state->due.reset();
  if (when == nullptr) return;
  state->due = std::chrono::steady_clock::now() + untilTime(*when);
  CallIntoAvahi::didMove(state);
}

}  // namespace

// The two types that Avahi leaves to its poll implementation.
struct AvahiWatch {
  std::shared_ptr<WatchState> state;
};
struct AvahiTimeout {
  std::shared_ptr<TimeoutState> state;
};

namespace {

asio::io_context& contextOf(const AvahiPoll* api) { return *static_cast<asio::io_context*>(api->userdata); }

AvahiWatch* watchNew(const AvahiPoll* api, int fd, AvahiWatchEvent event, AvahiWatchCallback callback,
                     void* userdata) {
  // D-Bus watches one socket twice, the reactor takes each descriptor number once: wait on a duplicate.
  const int duplicate = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (duplicate < 0) return nullptr;
  Descriptor descriptor(contextOf(api));
  boost::system::error_code error;
  descriptor.assign(duplicate, error);
  if (error) {
    ::close(duplicate);
    return nullptr;
  }
  auto state = std::make_shared<WatchState>(WatchState{std::move(descriptor)});
  state->fd = fd;
  state->wanted = event;
  state->callback = callback;
  state->userdata = userdata;
  auto* watch = new AvahiWatch{state};
  state->handle = watch;
  arm(state);
  return watch;
}

void watchUpdate(AvahiWatch* watch, AvahiWatchEvent event) {
  watch->state->wanted = event;
  arm(watch->state);
}

AvahiWatchEvent watchGetEvents(AvahiWatch* watch) {
  return static_cast<AvahiWatchEvent>(watch->state->happened);
}

void watchFree(AvahiWatch* watch) {
  watch->state->dead = true;
  boost::system::error_code ignored;
  watch->state->descriptor.close(ignored);
  delete watch;
}

AvahiTimeout* timeoutNew(const AvahiPoll* api, const timeval* when, AvahiTimeoutCallback callback,
                         void* userdata) {
  auto state = std::make_shared<TimeoutState>(TimeoutState{asio::steady_timer(contextOf(api))});
  state->callback = callback;
  state->userdata = userdata;
  auto* timeout = new AvahiTimeout{state};
  state->handle = timeout;
  schedule(state, when);
  return timeout;
}

void timeoutUpdate(AvahiTimeout* timeout, const timeval* when) { schedule(timeout->state, when); }

void timeoutFree(AvahiTimeout* timeout) {
  timeout->state->dead = true;
  timeout->state->timer.cancel();
  delete timeout;
}

}  // namespace

namespace ferrox::dnssd {

AvahiPollAdapter::AvahiPollAdapter(asio::io_context& context) {
  poll_.userdata = &context;
  poll_.watch_new = watchNew;
  poll_.watch_update = watchUpdate;
  poll_.watch_get_events = watchGetEvents;
  poll_.watch_free = watchFree;
  poll_.timeout_new = timeoutNew;
  poll_.timeout_update = timeoutUpdate;
  poll_.timeout_free = timeoutFree;
}

}  // namespace ferrox::dnssd
