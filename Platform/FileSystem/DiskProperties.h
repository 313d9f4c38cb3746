// What there is to know of the disk below a path.
#pragma once

#include <cstdint>
#include <string>

namespace ferrox {

/// Bytes that are free for this user on the file system of `path`; 0 when it cannot be told.
/// Thread: any; may block
[[nodiscard]] std::uint64_t freeBytesOfDisk(const std::string& path);

/// Whether names that differ only in letter case are the same in a folder made at or beneath `path`, as far
/// as the file system tells: looked up at the nearest folder above that exists. Nothing is written to find
/// out. A file system of a kind that is unknown counts as telling them apart. Thread: any; may block
[[nodiscard]] bool foldsCaseBelow(const std::string& path);

}  // namespace ferrox
