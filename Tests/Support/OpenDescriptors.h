// What this process holds open, for tests that look for leaks.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

#include "Platform/Net/IOThread.h"

namespace ferrox::test {

/// The iteration's own descriptor is always among them.
inline std::size_t openDescriptorCount() {
  // Made on first use and kept for good: it must not look like a leak of whoever used it first.
  (void)IOThread::shared();
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

}  // namespace ferrox::test
