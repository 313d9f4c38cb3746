// Notices that the machine slept: calendar time went on while monotonic time stood still.
#pragma once

#include <functional>
#include <memory>

#include "Platform/RunLoop/Clock.h"

namespace ferrox {

class RunLoop;
class Timer;

/// Compares the loop's two clocks every few seconds. A calendar that is set forward looks like sleep as well,
/// which costs those who listen a check that they could have spared.
/// Thread: main
class SleepWatch {
 public:
  static constexpr Clock::Duration interval = std::chrono::seconds(5);
  /// Clocks that are merely corrected drift apart by less.
  static constexpr Clock::Duration shortestSleep = std::chrono::seconds(2);

  /// `didWake` runs on the main thread, at most `interval` after the machine woke up, until this is
  /// destroyed.
  SleepWatch(RunLoop& loop, std::function<void(Clock::Duration slept)> didWake);
  ~SleepWatch();
  SleepWatch(const SleepWatch&) = delete;
  SleepWatch& operator=(const SleepWatch&) = delete;

 private:
  void compare();

  const Clock& clock_;
  const std::function<void(Clock::Duration)> didWake_;
  Clock::Instant lastInstant_;
  std::chrono::system_clock::time_point lastCalendar_;
  std::unique_ptr<Timer> timer_;
};

}  // namespace ferrox
