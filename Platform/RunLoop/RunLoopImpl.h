// The inside of a run loop, shared by RunLoop and Timer.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "Platform/Base/Mutex.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox {

/// One timer as its loop sees it.
struct FRX_HIDDEN Timer::Entry {
  std::weak_ptr<RunLoop::Impl> loop;
  Clock::Duration interval{};
  bool repeats = false;

  // Guarded by the loop's mutex. The action is shared so that it survives its own invalidation.
  std::shared_ptr<const Timer::Action> action;
  Clock::Instant deadline{};
  std::uint64_t sequence = 0;
  std::atomic<bool> valid{true};
};

/// A loop is active while its thread works for it and idle otherwise. Only an idle loop has to be woken: an
/// active one looks at its queue again before it sleeps or returns, so a burst of tasks costs one wake-up.
struct FRX_HIDDEN RunLoop::Impl : std::enable_shared_from_this<RunLoop::Impl> {
  explicit Impl(const Clock& clockToUse);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void post(Task task) FRX_EXCLUDES(mutex);
  void addTimer(const std::shared_ptr<Timer::Entry>& entry, Clock::Duration delay) FRX_EXCLUDES(mutex);
  void removeTimer(Timer::Entry& entry) FRX_EXCLUDES(mutex);

  /// Runs the tasks and timers that are due at its beginning; what they add is left to the next turn.
  std::size_t turn(bool stoppable) FRX_EXCLUDES(mutex);
  /// Sleeps until there may be something to do, at most `limit`.
  void wait(std::optional<Clock::Duration> limit) FRX_EXCLUDES(mutex);

  void enter() FRX_EXCLUDES(mutex);
  void leave() FRX_EXCLUDES(mutex);
  void bindToThisThread();
  static void runGuarded(const std::function<void()>& action);
  void discardTasks() FRX_EXCLUDES(mutex);
  /// Lets go of the actions: what a pending timer keeps alive may own the timer.
  void discardTimers() FRX_EXCLUDES(mutex);

  const Clock& clock;
  int epollDescriptor = -1;
  int eventDescriptor = -1;
  int timerDescriptor = -1;
  std::atomic<std::thread::id> owner{};
  std::atomic<bool> stopRequested{false};
  std::thread thread;

  using TimerKey = std::pair<Clock::Instant, std::uint64_t>;

  bool runOneTask(std::uint64_t upTo) FRX_EXCLUDES(mutex);
  bool runOneTimer(Clock::Instant now, std::uint64_t upTo) FRX_EXCLUDES(mutex);
  std::shared_ptr<const Timer::Action> takeDueTimer(Clock::Instant now, std::uint64_t upTo)
      FRX_REQUIRES(mutex);
  void insert(const std::shared_ptr<Timer::Entry>& entry) FRX_REQUIRES(mutex);
  bool isIdle() const FRX_REQUIRES(mutex) { return depth == 0 || waiting; }
  bool hasWork() const FRX_REQUIRES(mutex);
  void signal() FRX_REQUIRES(mutex);
  void consumeSignal() FRX_REQUIRES(mutex);
  void armTimer() FRX_REQUIRES(mutex);

  Mutex mutex;
  std::deque<std::pair<std::uint64_t, Task>> tasks FRX_GUARDED_BY(mutex);
  std::map<TimerKey, std::shared_ptr<Timer::Entry>> timers FRX_GUARDED_BY(mutex);
  std::uint64_t nextSequence FRX_GUARDED_BY(mutex) = 1;
  unsigned depth FRX_GUARDED_BY(mutex) = 0;
  bool waiting FRX_GUARDED_BY(mutex) = false;
  bool signalled FRX_GUARDED_BY(mutex) = false;
  std::optional<Clock::Instant> armedFor FRX_GUARDED_BY(mutex);
};

}  // namespace ferrox
