// How far a peer's clock is from this machine's, as exactly as an answer of the peer allows to tell.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace ferrox::command {

/// By this machine's clock.
using WallTime = std::chrono::time_point<std::chrono::system_clock, std::chrono::milliseconds>;

WallTime wallTimeNow();

/// The peer's clock minus this machine's lies between the two.
struct ClockDifference {
  std::chrono::milliseconds least{0};
  std::chrono::milliseconds most{0};

  /// The peer wrote `stamp`, which stands for the `resolution` behind it, at some moment between `asked` and
  /// `answered`.
  static ClockDifference between(WallTime stamp, std::chrono::milliseconds resolution, WallTime asked,
                                 WallTime answered);
  /// From an HTTP answer's Date, which has a resolution of one second. Nothing when it is no date.
  static std::optional<ClockDifference> fromDate(const std::string& date, WallTime asked, WallTime answered);

  /// The middle of the two, and how far it may be off to either side.
  std::chrono::milliseconds ahead() const;
  std::chrono::milliseconds uncertainty() const;
  /// How far the clocks differ for certain; 0 when they may agree.
  std::chrono::milliseconds atLeast() const;

  /// "agrees with this machine's within 12 ms", "is 37.2 s ahead of this machine's (give or take 0.5 s)".
  std::string words() const;
};

}  // namespace ferrox::command
