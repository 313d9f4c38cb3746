#include "Platform/FileSystem/RootedPath.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "Platform/FileSystem/CachedOpen.h"
#include "Platform/FileSystem/OpenBeneath.h"
#include "Platform/Net/FileDescriptor.h"

namespace ferrox {
namespace {

int closeKeepingErrno(int descriptor, int code) {
  ::close(descriptor);
  errno = code;
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
  if (links == Links::Follow) {
    return ::open((root_ + "/" + std::string(relative)).c_str(), flags, mode);
  }

  const FileDescriptor root(::open(root_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!root.isOpen()) return -1;
  // A close that succeeds leaves errno alone.
  return openBeneath(root.get(), relative, flags, mode);
}

int RootedPath::openRegularFile(std::string_view relative, Links links) const {
  const int descriptor = open(relative, O_RDONLY | O_NONBLOCK | O_NOCTTY, 0, links);
  if (descriptor < 0) return -1;
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return closeKeepingErrno(descriptor, errno);
  if (!S_ISREG(status.st_mode)) return closeKeepingErrno(descriptor, EISDIR);
  return descriptor;
}

int RootedPath::openCachedRegularFile(std::string_view relative) const {
  return isConfined(relative) ? openRegularFileFromCache(root_, relative) : -1;
}

std::optional<std::uint64_t> RootedPath::regularFileSize(std::string_view relative) const {
  if (!isConfined(relative)) return std::nullopt;
  struct stat status {};
  const std::string path = root_ + "/" + std::string(relative);
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace ferrox
