// A clock that stands still until a test moves it.
#pragma once

#include <mutex>

#include "Platform/RunLoop/Clock.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::test {

/// Starts at an arbitrary instant, and at 2024-03-01 13:05:09 UTC.
/// Thread: any
class ManualClock : public Clock {
 public:
  Instant now() const override {
    const std::lock_guard lock(mutex_);
    return now_;
  }
  std::chrono::system_clock::time_point calendarNow() const override {
    const std::lock_guard lock(mutex_);
    return calendarNow_;
  }
  bool advancesByItself() const override { return false; }

  void advance(Duration duration) {
    const std::lock_guard lock(mutex_);
    now_ += duration;
    calendarNow_ += std::chrono::duration_cast<std::chrono::system_clock::duration>(duration);
  }
  void setCalendar(std::chrono::system_clock::time_point time) {
    const std::lock_guard lock(mutex_);
    calendarNow_ = time;
  }

  /// Advances, then runs on this thread everything the loop has to do by then.
  void advance(Duration duration, RunLoop& loop) {
    advance(duration);
    while (loop.runPending() > 0) {
    }
  }

 private:
  mutable std::mutex mutex_;
  Instant now_{std::chrono::hours(1000)};
  std::chrono::system_clock::time_point calendarNow_{std::chrono::seconds(1709298309)};
};

}  // namespace ferrox::test
