// Spreads connections that are opened in one instant over a short while.
#pragma once

#include <chrono>
#include <cstddef>

#include "Platform/Base/Export.h"
#include "Platform/RunLoop/Clock.h"

namespace ferrox {

/// After a network change all peers come back at once; dialling them all in the same instant would make each
/// of them wait for all others. The first few of a burst go at once, the rest within a time that grows with
/// the burst, at random, up to a second. Thread: main
class FRX_EXPORT DialSpread {
 public:
  explicit DialSpread(const Clock& clock) : clock_(clock) {}

  /// How long the next connection is to wait.
  std::chrono::milliseconds next();

  static constexpr std::size_t undelayed = 8;
  static constexpr std::chrono::milliseconds spreadEach{5};
  static constexpr std::chrono::milliseconds longest{1000};
  /// Dials further apart belong to different bursts.
  static constexpr std::chrono::milliseconds burstGap{250};

 private:
  const Clock& clock_;
  Clock::Instant last_{};
  std::size_t inBurst_ = 0;
};

}  // namespace ferrox
