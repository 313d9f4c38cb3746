// Whether a stretch of a file is in memory, and bringing it there.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ferrox {

/// Whether all of it surely is in the page cache. Never waits; when the system does not say, the answer is
/// no. Thread: any
bool isInPageCache(int descriptor, std::uint64_t offset, std::size_t length);

/// Brings it in, waiting for the disk; false when part of it is not there (any more). A file that is being
/// truncated cannot end the process here: nothing of a mapping is ever touched by our own code, where it
/// would raise SIGBUS, but only by the kernel on our behalf, which reports the fault. Thread: disk pool
bool bringIntoPageCache(int descriptor, std::uint64_t offset, std::size_t length);

}  // namespace ferrox
