// What the project copies of a process have done so far, in numbers.
#pragma once

#include <cstdint>

namespace ferrox {

/// Of those copies that were started; all but `running` only grow.
struct FRXCopyStatistics {
  std::uint64_t started = 0;
  std::uint64_t running = 0;    ///< now
  std::uint64_t succeeded = 0;  ///< ended without an error
  std::uint64_t failed = 0;     ///< ended with one
  std::uint64_t cancelled = 0;  ///< ended after `cancel()`, unless they had failed before that
  std::uint64_t files = 0;      ///< brought to their final name, and such that were there already (`resumes`)
  std::uint64_t bytes = 0;      ///< of files and of pieces, each counted when it has arrived whole
};

}  // namespace ferrox
