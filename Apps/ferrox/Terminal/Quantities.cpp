#include "Apps/ferrox/Terminal/Quantities.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace ferrox::command {

std::string formattedBytes(std::uint64_t bytes) {
  constexpr std::array<std::string_view, 7> units{"B", "kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) return fmt::format("{} B", bytes);
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  // What would be rounded up to four digits is shown in the next unit.
  for (; value >= 999.5 && unit + 1 < units.size(); ++unit) value /= 1000;
  return fmt::format("{:.{}f} {}", value, value < 9.95 ? 1 : 0, units[unit]);
}

std::string formattedDuration(std::chrono::seconds duration) {
  const auto seconds = std::max<std::int64_t>(0, duration.count());
  if (seconds < 3600) return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
  return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

}  // namespace ferrox::command
