#include "Platform/FileSystem/RootedFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "Platform/Base/PosixError.h"
#include "Platform/FileSystem/OpenBeneath.h"
#include "Platform/FileSystem/RootedPath.h"

namespace ferrox {
namespace {

constexpr int asPlace = O_PATH | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t folderMode = 0777;

std::string_view parentOf(std::string_view relative) {
  const std::size_t slash = relative.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : relative.substr(0, slash);
}

/// mkdir -p of a path of the host's own.
bool makeFoldersOfHost(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    if (::mkdir(path.substr(0, slash).c_str(), folderMode) == 0 || errno == EEXIST) continue;
    // One that exists may answer with the reason for which a new one could not be made there.
    struct stat status {};
    const int code = errno;
    if (::stat(path.substr(0, slash).c_str(), &status) == 0 && S_ISDIR(status.st_mode)) continue;
    errno = code;
    return false;
  }
  return ::mkdir(path.c_str(), folderMode) == 0 || errno == EEXIST;
}

}  // namespace

std::optional<RootedFolder> RootedFolder::make(const std::string& path, FRXError* error) {
  int opened = -1;
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
  } else if (makeFoldersOfHost(path)) {
    opened = ::open(path.c_str(), asPlace | O_NOFOLLOW);
  }
  if (opened < 0) {
    setError(error, posixError(errno, path));
    return std::nullopt;
  }
  return RootedFolder(path, std::make_shared<const FileDescriptor>(opened));
}

bool RootedFolder::makeFolder(std::string_view relative) const {
  const FileDescriptor parent(openBeneath(root_->get(), parentOf(relative), asPlace));
  if (!parent.isOpen()) return false;
  const std::string leaf(leafName(relative));
  if (::mkdirat(parent.get(), leaf.c_str(), folderMode) == 0) return true;
  if (errno != EEXIST) return false;
  const FileDescriptor existing(openBeneath(parent.get(), leaf, asPlace));
  return existing.isOpen();
}

bool RootedFolder::makeFolders(std::string_view relative, FRXError* error) const {
  if (!RootedPath::isConfined(relative)) return fail(ENOENT, relative, error);
  // Most come after the one they stand in.
  if (makeFolder(relative)) return true;
  if (errno != ENOENT) return fail(errno, relative, error);
  std::size_t slash = relative.find('/');
  while (slash != std::string_view::npos) {
    if (!makeFolder(relative.substr(0, slash))) return fail(errno, relative.substr(0, slash), error);
    slash = relative.find('/', slash + 1);
  }
  return makeFolder(relative) || fail(errno, relative, error);
}

DirectoryHandle RootedFolder::openParent(std::string_view relative, FRXError* error) const {
  if (!RootedPath::isConfined(relative)) {
    fail(ENOENT, relative, error);
    return nullptr;
  }
  const std::string_view parent = parentOf(relative);
  if (parent.empty()) return root_;
  const int opened = openBeneath(root_->get(), parent, asPlace);
  if (opened >= 0) return std::make_shared<const FileDescriptor>(opened);
  fail(errno, relative, error);
  return nullptr;
}

std::optional<std::uint64_t> RootedFolder::regularFileSize(std::string_view relative) const {
  const DirectoryHandle parent = openParent(relative);
  if (parent == nullptr) return std::nullopt;
  struct stat status {};
  const std::string leaf(leafName(relative));
  if (::fstatat(parent->get(), leaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  if (!S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(status.st_size);
}

bool RootedFolder::makeEmptyFile(std::string_view relative, FRXError* error) const {
  DirectoryHandle parent = openParent(relative, error);
  if (parent == nullptr) return false;
  auto file = ReplacementFile::createIn(std::move(parent), std::string(leafName(relative)), error);
  return file && file->commit(error);
}

bool RootedFolder::rename(std::string_view from, std::string_view to, FRXError* error) const {
  const DirectoryHandle fromParent = openParent(from, error);
  const DirectoryHandle toParent = fromParent ? openParent(to, error) : nullptr;
  if (toParent == nullptr) return false;
  const std::string fromLeaf(leafName(from));
  const std::string toLeaf(leafName(to));
  return ::renameat(fromParent->get(), fromLeaf.c_str(), toParent->get(), toLeaf.c_str()) == 0 ||
         fail(errno, to, error);
}

bool RootedFolder::removeFile(std::string_view relative, FRXError* error) const {
  const DirectoryHandle parent = openParent(relative, error);
  if (parent == nullptr) return false;
  const std::string leaf(leafName(relative));
  return ::unlinkat(parent->get(), leaf.c_str(), 0) == 0 || fail(errno, relative, error);
}

bool RootedFolder::setModificationTime(std::string_view relative, std::chrono::system_clock::time_point time,
                                       FRXError* error) const {
  const DirectoryHandle parent = openParent(relative, error);
  if (parent == nullptr) return false;
  timespec times[2]{};
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = static_cast<std::time_t>(std::chrono::system_clock::to_time_t(time));
  const std::string leaf(leafName(relative));
  return ::utimensat(parent->get(), leaf.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0 ||
         fail(errno, relative, error);
}

bool RootedFolder::fail(int code, std::string_view relative, FRXError* error) const {
  setError(error, posixError(code, path_ + "/" + std::string(relative)));
  return false;
}

}  // namespace ferrox
