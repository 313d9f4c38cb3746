#include "Platform/FileSystem/CachedOpen.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "Platform/Net/FileDescriptor.h"

// Headers older than Linux 5.12 do not have it.
#ifndef RESOLVE_CACHED
#define RESOLVE_CACHED 0x20
#endif

namespace ferrox {
namespace {

/// Kernels that know less refuse the call or the flag, which is an answer like any other here.
FileDescriptor openCached(int directory, const std::string& name, int flags, unsigned resolve) {
  open_how how{};
  how.flags = static_cast<__u64>(static_cast<unsigned>(flags | O_CLOEXEC));
  how.resolve = RESOLVE_CACHED | RESOLVE_NO_MAGICLINKS | resolve;
  return FileDescriptor(static_cast<int>(::syscall(SYS_openat2, directory, name.c_str(), &how, sizeof how)));
}

/// Elsewhere opening, or asking for a size, may go over a network or to another program.
bool keepsFilesHere(int directory) {
  constexpr std::array<unsigned long, 5> kinds{EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC, BTRFS_SUPER_MAGIC,
                                               F2FS_SUPER_MAGIC, TMPFS_MAGIC};
  struct statfs system {};
  return ::fstatfs(directory, &system) == 0 &&
         std::find(kinds.begin(), kinds.end(), static_cast<unsigned long>(system.f_type)) != kinds.end();
}

}  // namespace

int openRegularFileFromCache(const std::string& root, std::string_view relative) {
  const FileDescriptor directory = openCached(AT_FDCWD, root, O_PATH | O_DIRECTORY, 0);
  if (!directory.isOpen() || !keepsFilesHere(directory.get())) return -1;
  FileDescriptor file =
      openCached(directory.get(), std::string(relative), O_RDONLY | O_NONBLOCK | O_NOCTTY, RESOLVE_NO_XDEV);
  struct stat status {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return -1;
  return file.release();
}

}  // namespace ferrox
