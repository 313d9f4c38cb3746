// Opening files on threads that must not wait for a disk.
#pragma once

#include <string>
#include <string_view>

namespace ferrox {

/// Opens the regular file `relative` beneath the directory `root` for reading where that takes no disk: every
/// directory on the way is in memory, nothing below `root` is mounted from elsewhere, and the file system is
/// one of those that keep their files on this machine. Symbolic links are followed under the same rules. -1
/// whenever it cannot be told at once, a file that does not exist included: `RootedPath::openRegularFile`
/// then finds out. Programs that have a say in every opening (fanotify(7)) are waited for.
/// `relative` must be confined (`RootedPath::isConfined`). Thread: any
[[nodiscard]] int openRegularFileFromCache(const std::string& root, std::string_view relative);

}  // namespace ferrox
