#include "Platform/RunLoop/SleepWatch.h"

#include <utility>

#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox {

SleepWatch::SleepWatch(RunLoop& loop, std::function<void(Clock::Duration)> didWake)
    : clock_(loop.clock()),
      didWake_(std::move(didWake)),
      lastInstant_(clock_.now()),
      lastCalendar_(clock_.calendarNow()),
      timer_(Timer::scheduleRepeating(loop, interval, [this] { compare(); })) {}

SleepWatch::~SleepWatch() = default;

void SleepWatch::compare() {
  const Clock::Instant instant = clock_.now();
  const auto calendar = clock_.calendarNow();
  const auto passed = instant - lastInstant_;
  const auto slept = std::chrono::duration_cast<Clock::Duration>(calendar - lastCalendar_) - passed;
  lastInstant_ = instant;
  lastCalendar_ = calendar;
  // The handler may destroy this watch.
  if (slept < shortestSleep) return;
  const auto didWake = didWake_;
  didWake(slept);
}

}  // namespace ferrox
