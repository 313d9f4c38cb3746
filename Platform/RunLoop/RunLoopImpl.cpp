#include "Platform/RunLoop/RunLoopImpl.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <exception>
#include <limits>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

int checked(int descriptor, const char* what) {
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), what);
  return descriptor;
}

Clock::Instant later(Clock::Instant from, Clock::Duration delay) {
  delay = std::max(delay, Clock::Duration::zero());
  return delay > Clock::Instant::max() - from ? Clock::Instant::max() : from + delay;
}

void watch(int epollDescriptor, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  checked(epoll_ctl(epollDescriptor, EPOLL_CTL_ADD, descriptor, &event), "epoll_ctl");
}

}  // namespace

void RunLoop::Impl::runGuarded(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& exception) {
    FRX_LOG_ERROR(std::string("A task of the run loop failed: ") + exception.what());
  } catch (...) {
    FRX_LOG_ERROR("A task of the run loop failed.");
  }
}

RunLoop::Impl::Impl(const Clock& clockToUse) : clock(clockToUse) {
  epollDescriptor = checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
  eventDescriptor = checked(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "eventfd");
  timerDescriptor = checked(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC), "timerfd_create");
  watch(epollDescriptor, eventDescriptor);
  watch(epollDescriptor, timerDescriptor);
}

RunLoop::Impl::~Impl() {
  close(timerDescriptor);
  close(eventDescriptor);
  close(epollDescriptor);
}

void RunLoop::Impl::post(Task task) {
  const MutexLock lock(mutex);
  tasks.emplace_back(nextSequence++, std::move(task));
  if (isIdle()) signal();
}

void RunLoop::Impl::addTimer(const std::shared_ptr<Timer::Entry>& entry, Clock::Duration delay) {
  const Clock::Instant deadline = later(clock.now(), delay);
  const MutexLock lock(mutex);
  entry->deadline = deadline;
  insert(entry);
  if (isIdle()) armTimer();
}

void RunLoop::Impl::removeTimer(Timer::Entry& entry) {
  std::shared_ptr<const Timer::Action> released;
  const MutexLock lock(mutex);
  timers.erase({entry.deadline, entry.sequence});
  released.swap(entry.action);
}

void RunLoop::Impl::insert(const std::shared_ptr<Timer::Entry>& entry) {
  entry->sequence = nextSequence++;
  timers.emplace(TimerKey{entry->deadline, entry->sequence}, entry);
}

std::size_t RunLoop::Impl::turn(bool stoppable) {
  std::uint64_t upTo = 0;
  {
    const MutexLock lock(mutex);
    consumeSignal();
    upTo = nextSequence;
  }
  std::size_t count = 0;
  const auto mayGoOn = [this, stoppable] { return !stoppable || !stopRequested.load(); };
  while (mayGoOn() && runOneTask(upTo)) ++count;
  const Clock::Instant now = clock.now();
  while (mayGoOn() && runOneTimer(now, upTo)) ++count;
  return count;
}

bool RunLoop::Impl::runOneTask(std::uint64_t upTo) {
  Task task;
  {
    const MutexLock lock(mutex);
    if (tasks.empty() || tasks.front().first >= upTo) return false;
    task = std::move(tasks.front().second);
    tasks.pop_front();
  }
  runGuarded(task);
  return true;
}

bool RunLoop::Impl::runOneTimer(Clock::Instant now, std::uint64_t upTo) {
  std::shared_ptr<const Timer::Action> action;
  {
    const MutexLock lock(mutex);
    action = takeDueTimer(now, upTo);
  }
  if (action == nullptr) return false;
  runGuarded(*action);
  return true;
}

std::shared_ptr<const Timer::Action> RunLoop::Impl::takeDueTimer(Clock::Instant now, std::uint64_t upTo) {
  auto due = timers.begin();
  while (due != timers.end() && due->first.first <= now && due->first.second >= upTo) ++due;
  if (due == timers.end() || due->first.first > now) return nullptr;
  const std::shared_ptr<Timer::Entry> entry = std::move(due->second);
  timers.erase(due);
  if (!entry->repeats) {
    entry->valid = false;
    return std::exchange(entry->action, nullptr);
  }
  const auto missed = (now - entry->deadline) / entry->interval;
  entry->deadline = later(entry->deadline, (missed + 1) * entry->interval);
  insert(entry);
  return entry->action;
}

bool RunLoop::Impl::hasWork() const {
  if (!tasks.empty()) return true;
  return !timers.empty() && timers.begin()->first.first <= clock.now();
}

void RunLoop::Impl::wait(std::optional<Clock::Duration> limit) {
  {
    const MutexLock lock(mutex);
    if (hasWork()) return;
    armTimer();
    waiting = true;
  }
  int timeout = -1;
  if (limit) {
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(*limit).count();
    timeout = static_cast<int>(std::clamp<std::int64_t>(milliseconds, 0, std::numeric_limits<int>::max()));
  }
  epoll_event event{};
  // An interrupted wait is one more turn with nothing to do.
  (void)epoll_wait(epollDescriptor, &event, 1, timeout);
  const MutexLock lock(mutex);
  waiting = false;
}

void RunLoop::Impl::enter() {
  bindToThisThread();
  const MutexLock lock(mutex);
  ++depth;
}

void RunLoop::Impl::leave() {
  const MutexLock lock(mutex);
  if (--depth > 0) return;
  if (!tasks.empty()) signal();
  armTimer();
}

void RunLoop::Impl::bindToThisThread() {
  std::thread::id expected{};
  const std::thread::id self = std::this_thread::get_id();
  if (owner.compare_exchange_strong(expected, self)) return;
  assert(expected == self && "a run loop is driven by one thread only");
}

void RunLoop::Impl::discardTasks() {
  // What a task holds may post again when it goes, so this takes no lock while it lets go.
  for (;;) {
    std::deque<std::pair<std::uint64_t, Task>> discarded;
    {
      const MutexLock lock(mutex);
      discarded.swap(tasks);
    }
    if (discarded.empty()) return;
  }
}

void RunLoop::Impl::discardTimers() {
  // What an action holds may end other timers when it goes, so this takes no lock while it lets go.
  std::vector<std::shared_ptr<const Timer::Action>> discarded;
  const MutexLock lock(mutex);
  for (const auto& [key, entry] : timers) discarded.push_back(std::exchange(entry->action, nullptr));
  timers.clear();
}

void RunLoop::Impl::signal() {
  if (signalled) return;
  signalled = true;
  const std::uint64_t one = 1;
  const ssize_t written = write(eventDescriptor, &one, sizeof one);
  assert(written == sizeof one);
  (void)written;
}

void RunLoop::Impl::consumeSignal() {
  if (signalled) {
    std::uint64_t ignored = 0;
    (void)!read(eventDescriptor, &ignored, sizeof ignored);
    signalled = false;
  }
  if (armedFor && *armedFor <= clock.now()) {
    // The clock may pass the deadline a moment before the descriptor does; then that wake-up is still to
    // come.
    std::uint64_t ignored = 0;
    if (read(timerDescriptor, &ignored, sizeof ignored) > 0) armedFor.reset();
  }
}

void RunLoop::Impl::armTimer() {
  if (timers.empty() || !clock.advancesByItself()) return;
  const Clock::Instant first = timers.begin()->first.first;
  // An earlier setting is left: it costs one wake-up at most, and nothing when timers come and go.
  if (first == Clock::Instant::max() || (armedFor && *armedFor <= first)) return;
  const auto delay = std::max<Clock::Duration>(first - clock.now(), std::chrono::nanoseconds(1));
  const auto seconds = std::chrono::floor<std::chrono::seconds>(delay);
  itimerspec setting{};
  setting.it_value.tv_sec = static_cast<time_t>(seconds.count());
  setting.it_value.tv_nsec = static_cast<long>((delay - seconds).count());
  timerfd_settime(timerDescriptor, 0, &setting, nullptr);
  armedFor = first;
}

}  // namespace ferrox
