#include "Platform/FileSystem/RootedPath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace ferrox {
namespace {

int closeKeepingErrno(int descriptor, int code) {
  ::close(descriptor);
  errno = code;
  return -1;
}

int openat2Beneath(int root, const std::string& relative, int flags, mode_t mode) {
  open_how how{};
  how.flags = static_cast<__u64>(static_cast<unsigned>(flags));
  how.mode = (flags & O_CREAT) != 0 ? mode : 0;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  return static_cast<int>(::syscall(SYS_openat2, root, relative.c_str(), &how, sizeof how));
}

/// For kernels before 5.6 and for sandboxes that do not know the call: one component at a time.
int openComponents(int root, std::string_view relative, int flags, mode_t mode) {
  int directory = ::dup(root);
  while (directory >= 0) {
    const std::size_t slash = relative.find('/');
    const std::string component(relative.substr(0, slash));
    const bool isLast = relative.find_first_not_of('/', component.size()) == std::string_view::npos;
    const int wanted = isLast ? flags | O_NOFOLLOW : O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    const int next = ::openat(directory, component.empty() ? "." : component.c_str(), wanted, mode);
    // A link in the middle is ENOTDIR to the kernel; say the same as openat2 does.
    struct stat status {};
    const bool isLink = next < 0 && errno == ENOTDIR && !isLast &&
                        ::fstatat(directory, component.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                        S_ISLNK(status.st_mode);
    const int code = isLink ? ELOOP : errno;
    closeKeepingErrno(directory, code);
    if (next < 0 || isLast) return next;
    directory = next;
    relative.remove_prefix(slash + 1);
  }
  return -1;
}

}  // namespace

RootedPath::RootedPath(std::string root) : root_(std::move(root)) {}

bool RootedPath::isConfined(std::string_view relative) {
  if (relative.empty() || relative.front() == '/' || relative.find('\0') != std::string_view::npos) {
    return false;
  }
  while (true) {
    const std::size_t slash = relative.find('/');
    if (relative.substr(0, slash) == "..") return false;
    if (slash == std::string_view::npos) return true;
    relative.remove_prefix(slash + 1);
  }
}

int RootedPath::open(std::string_view relative, int flags, mode_t mode, Links links) const {
  if (!isConfined(relative)) {
    errno = ENOENT;
    return -1;
  }
  flags |= O_CLOEXEC;
  const std::string name(relative);
  if (links == Links::Follow) return ::open((root_ + "/" + name).c_str(), flags, mode);

  const int root = ::open(root_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (root < 0) return -1;
  int opened = openat2Beneath(root, name, flags, mode);
  if (opened < 0 && (errno == ENOSYS || errno == EPERM)) opened = openComponents(root, name, flags, mode);
  const int code = errno;
  closeKeepingErrno(root, code);
  return opened;
}

int RootedPath::openRegularFile(std::string_view relative, Links links) const {
  const int descriptor = open(relative, O_RDONLY | O_NONBLOCK | O_NOCTTY, 0, links);
  if (descriptor < 0) return -1;
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return closeKeepingErrno(descriptor, errno);
  if (!S_ISREG(status.st_mode)) return closeKeepingErrno(descriptor, EISDIR);
  return descriptor;
}

std::optional<std::uint64_t> RootedPath::regularFileSize(std::string_view relative) const {
  if (!isConfined(relative)) return std::nullopt;
  struct stat status {};
  const std::string path = root_ + "/" + std::string(relative);
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace ferrox
