// What this process holds open, for tests that look for leaks.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace ferrox::test {

/// The iteration's own descriptor is always among them.
inline std::size_t openDescriptorCount() {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

}  // namespace ferrox::test
