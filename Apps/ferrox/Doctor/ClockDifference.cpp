#include "Apps/ferrox/Doctor/ClockDifference.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "Platform/HTTP/Server/HTTPDate.h"

namespace ferrox::command {
namespace {

using std::chrono::milliseconds;

// In the largest unit of which there are at least two.
std::string spoken(milliseconds duration) {
  struct Unit {
    std::string_view name;
    double milliseconds;
  };
  constexpr std::array<Unit, 4> units{
      {{"days", 86'400'000}, {"h", 3'600'000}, {"min", 60'000}, {"s", 1'000}}};
  const auto count = static_cast<double>(duration.count());
  for (const Unit& unit : units) {
    const bool fits = count >= 2 * unit.milliseconds || (unit.name == "s" && count >= unit.milliseconds);
    if (fits) return fmt::format("{:.1f} {}", count / unit.milliseconds, unit.name);
  }
  return fmt::format("{} ms", duration.count());
}

}  // namespace

WallTime wallTimeNow() { return std::chrono::floor<milliseconds>(std::chrono::system_clock::now()); }

ClockDifference ClockDifference::between(WallTime stamp, milliseconds resolution, WallTime asked,
                                         WallTime answered) {
  // A clock that was set back meanwhile tells nothing; the later of its two times is the better bound.
  const WallTime latest = std::max(asked, answered);
  // Both times were cut off to whole milliseconds.
  return {stamp - latest - milliseconds(1), stamp + resolution - asked};
}

std::optional<ClockDifference> ClockDifference::fromDate(const std::string& date, WallTime asked,
                                                         WallTime answered) {
  const auto time = timeOfHTTPDate(date);
  if (!time) return std::nullopt;
  return between(WallTime(std::chrono::seconds(*time)), std::chrono::seconds(1), asked, answered);
}

milliseconds ClockDifference::ahead() const { return (least + most) / 2; }

milliseconds ClockDifference::uncertainty() const { return (most - least + milliseconds(1)) / 2; }

milliseconds ClockDifference::atLeast() const {
  if (least > milliseconds(0)) return least;
  return most < milliseconds(0) ? -most : milliseconds(0);
}

std::string ClockDifference::words() const {
  if (atLeast() == milliseconds(0)) {
    return fmt::format("agrees with this machine's within {}", spoken(std::max(-least, most)));
  }
  return fmt::format("is {} {} this machine's (give or take {})", spoken(std::chrono::abs(ahead())),
                     ahead() > milliseconds(0) ? "ahead of" : "behind", spoken(uncertainty()));
}

}  // namespace ferrox::command
