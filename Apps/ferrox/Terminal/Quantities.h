// Amounts and times as people read them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace ferrox::command {

/// "0 B", "999 B", "1.0 kB", "312 MB": powers of ten, as disks are sold.
std::string formattedBytes(std::uint64_t bytes);
/// "0:05", "12:40", "1:02:03".
std::string formattedDuration(std::chrono::seconds duration);

}  // namespace ferrox::command
