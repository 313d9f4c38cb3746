#include "Classes/WebSockets/DialSpread.h"

#include <algorithm>
#include <random>

namespace ferrox {

std::chrono::milliseconds DialSpread::next() {
  const Clock::Instant now = clock_.now();
  if (now - last_ > burstGap) inBurst_ = 0;
  last_ = now;
  if (++inBurst_ <= undelayed) return std::chrono::milliseconds(0);
  static thread_local std::minstd_rand random{std::random_device{}()};
  const auto spread = std::min<std::chrono::milliseconds>(
      longest, spreadEach * static_cast<std::chrono::milliseconds::rep>(inBurst_));
  return std::chrono::milliseconds(
      std::uniform_int_distribution<std::chrono::milliseconds::rep>(0, spread.count())(random));
}

}  // namespace ferrox
