// Copying the content of one open file to another, by the kernel where it can.
#pragma once

#include <functional>

namespace ferrox {

struct FileCopyResult {
  enum class Outcome { Copied, Stopped, ReadFailed, WriteFailed } outcome = Outcome::Copied;
  /// errno of a failure.
  int code = 0;
};

/// Copies what `source` holds from its position on to the position of `target`, which must not be opened for
/// appending: as shared blocks or by the server of a network file system where it can, else from one to the
/// other inside the kernel, else through a small buffer. What a regular file grows by in the meantime is not
/// copied. Room for the whole is reserved first where that is possible, without changing the target's size.
/// `mayContinue`, where given, is asked every so many megabytes. After anything but `Copied` a part may have
/// been written.
/// Thread: any; blocks on the disk
FileCopyResult copyFileContent(int source, int target, const std::function<bool()>& mayContinue = nullptr);

/// Waits until what was written to `file` is on the disk. `mayContinue`, where given, is asked every so many
/// megabytes; after `Stopped` the system goes on writing by itself.
/// Thread: any; blocks on the disk
FileCopyResult flushFileContent(int file, const std::function<bool()>& mayContinue = nullptr);

}  // namespace ferrox
