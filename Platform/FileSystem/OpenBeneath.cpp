#include "Platform/FileSystem/OpenBeneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Platform/Net/FileDescriptor.h"

namespace ferrox {
namespace {

bool isLink(int directory, const std::string& name) {
  struct stat status {};
  return ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

/// One component. Its errno for a link is the one that openat2(2) has: openat(2) says ENOTDIR where a folder
/// was wanted, and with O_PATH it opens the link itself.
int openComponent(int directory, const std::string& name, int flags, mode_t mode) {
  const int opened = ::openat(directory, name.c_str(), flags | O_NOFOLLOW, mode);
  if (opened >= 0) {
    struct stat status {};
    if ((flags & O_PATH) == 0 || ::fstat(opened, &status) != 0 || !S_ISLNK(status.st_mode)) return opened;
    ::close(opened);
    errno = ELOOP;
    return -1;
  }
  const int code = errno;
  errno = code == ENOTDIR && isLink(directory, name) ? ELOOP : code;
  return -1;
}

}  // namespace

int openBeneath(int root, std::string_view relative, int flags, mode_t mode) {
  open_how how{};
  how.flags = static_cast<__u64>(static_cast<unsigned>(flags));
  how.mode = (flags & O_CREAT) != 0 ? mode : 0;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  const std::string name(relative.empty() ? "." : relative);
  const auto opened = static_cast<int>(::syscall(SYS_openat2, root, name.c_str(), &how, sizeof how));
  // Some sandboxes answer EPERM to calls they do not know.
  if (opened >= 0 || (errno != ENOSYS && errno != EPERM)) return opened;
  return openBeneathStepwise(root, relative, flags, mode);
}

int openBeneathStepwise(int root, std::string_view relative, int flags, mode_t mode) {
  FileDescriptor directory;
  int current = root;
  while (true) {
    const std::size_t slash = relative.find('/');
    const std::string component(relative.empty() || slash == 0 ? "." : relative.substr(0, slash));
    const bool isLast =
        slash == std::string_view::npos || relative.find_first_not_of('/', slash) == std::string_view::npos;
    if (isLast) {
      // A "/" at the end asks for a directory.
      const int wanted = slash == std::string_view::npos ? flags : flags | O_DIRECTORY;
      return openComponent(current, component, wanted, mode);
    }
    FileDescriptor next(openComponent(current, component, O_PATH | O_DIRECTORY | O_CLOEXEC, 0));
    if (!next.isOpen()) return -1;
    directory = std::move(next);
    current = directory.get();
    relative.remove_prefix(slash + 1);
  }
}

}  // namespace ferrox
