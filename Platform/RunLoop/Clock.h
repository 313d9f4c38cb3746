// Time as the library sees it, so that tests can advance it.
#pragma once

#include <chrono>

#include "Platform/Base/Export.h"

namespace ferrox {

/// A source of time.
/// Thread: any
class FRX_EXPORT Clock {
 public:
  using Instant = std::chrono::steady_clock::time_point;
  using Duration = std::chrono::nanoseconds;

  virtual ~Clock() = default;

  /// Monotonic time, for intervals and deadlines.
  virtual Instant now() const = 0;
  /// Calendar time, for stamps that people and peers read.
  virtual std::chrono::system_clock::time_point calendarNow() const = 0;
  /// True when instants pass by themselves. A loop over a clock that a test advances never sleeps on it.
  virtual bool advancesByItself() const { return true; }

  /// The machine's clocks.
  static const Clock& system();
};

}  // namespace ferrox
