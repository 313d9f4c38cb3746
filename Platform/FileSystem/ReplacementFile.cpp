#include "Platform/FileSystem/ReplacementFile.h"

#include <fcntl.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <limits>
#include <random>
#include <utility>

#include "Platform/Base/PosixError.h"

namespace ferrox {
namespace {

constexpr int attempts = 16;

// A name of its own, whatever the length of the final one, which may leave no room for more.
std::string unguessableName() {
  thread_local std::random_device source;
  const std::uint64_t number = (std::uint64_t{source()} << 32) | source();
  char name[32];
  std::snprintf(name, sizeof name, ".ferrox-%016llx", static_cast<unsigned long long>(number));
  return name;
}

bool isComponent(std::string_view leaf) {
  return !leaf.empty() && leaf != "." && leaf != ".." && leaf.find('/') == std::string_view::npos &&
         leaf.find('\0') == std::string_view::npos;
}

}  // namespace

DirectoryHandle openParentDirectory(const std::string& path, FRXError* error) {
  const std::size_t slash = path.rfind('/');
  const std::string parent = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const int opened = path.find('\0') != std::string::npos
                         ? (errno = EINVAL, -1)
                         : ::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (opened >= 0) return std::make_shared<const FileDescriptor>(opened);
  setError(error, posixError(errno, path));
  return nullptr;
}

std::string_view leafName(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::optional<ReplacementFile> ReplacementFile::create(const std::string& path, FRXError* error) {
  auto directory = openParentDirectory(path, error);
  if (directory == nullptr) return std::nullopt;
  return createIn(std::move(directory), std::string(leafName(path)), error);
}

std::optional<ReplacementFile> ReplacementFile::createIn(DirectoryHandle directory, std::string leaf,
                                                         FRXError* error) {
  ReplacementFile file(std::move(directory), std::move(leaf));
  if (!file.open(error)) return std::nullopt;
  return file;
}

ReplacementFile::ReplacementFile(ReplacementFile&& other) noexcept
    : directory_(std::move(other.directory_)),
      leaf_(std::move(other.leaf_)),
      temporaryName_(std::exchange(other.temporaryName_, {})),
      file_(std::move(other.file_)),
      size_(other.size_),
      preallocated_(other.preallocated_) {}

ReplacementFile& ReplacementFile::operator=(ReplacementFile&& other) noexcept {
  if (this == &other) return *this;
  discard();
  directory_ = std::move(other.directory_);
  leaf_ = std::move(other.leaf_);
  temporaryName_ = std::exchange(other.temporaryName_, {});
  file_ = std::move(other.file_);
  size_ = other.size_;
  preallocated_ = other.preallocated_;
  return *this;
}

bool ReplacementFile::open(FRXError* error) {
  if (!isComponent(leaf_)) return fail(leaf_.empty() ? EISDIR : EINVAL, error);
  std::optional<mode_t> permissions;
  if (!canBeReplaced(permissions, error)) return false;
  for (int attempt = 0; attempt < attempts && !file_.isOpen(); ++attempt) {
    std::string name = unguessableName();
    file_ = FileDescriptor(
        ::openat(directory_->get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (file_.isOpen()) temporaryName_ = std::move(name);
    if (!file_.isOpen() && errno != EEXIST && errno != EINTR) break;
  }
  if (!file_.isOpen()) return fail(errno, error);
  if (permissions && ::fchmod(file_.get(), *permissions) != 0) return fail(errno, error);
  return true;
}

bool ReplacementFile::canBeReplaced(std::optional<mode_t>& permissions, FRXError* error) const {
  struct stat status {};
  if (::fstatat(directory_->get(), leaf_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT || fail(errno, error);
  }
  if (S_ISLNK(status.st_mode)) return true;
  // Renaming over a device or a pipe would do away with it.
  if (!S_ISREG(status.st_mode)) return fail(S_ISDIR(status.st_mode) ? EISDIR : EOPNOTSUPP, error);
  permissions = status.st_mode & 0777;
  return true;
}

bool ReplacementFile::preallocate(std::uint64_t size, FRXError* error) {
  if (size > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) return fail(EFBIG, error);
  // Asked first, since the attempt would fill the disk before it fails.
  struct statfs system {};
  if (::fstatfs(file_.get(), &system) == 0 && system.f_blocks > 0 &&
      size / static_cast<std::uint64_t>(system.f_bsize) > system.f_bfree) {
    return fail(ENOSPC, error);
  }
  int result = 0;
  do {
    result = ::fallocate(file_.get(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size));
  } while (result != 0 && errno == EINTR);
  if (result == 0) {
    preallocated_ = size;
  } else if (errno == ENOSPC || errno == EDQUOT || errno == EFBIG) {
    return fail(errno, error);
  }
  return true;
}

bool ReplacementFile::write(std::string_view bytes, FRXError* error) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(file_.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return fail(count < 0 ? errno : EIO, error);
    size_ += static_cast<std::uint64_t>(count);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool ReplacementFile::setModificationTime(std::chrono::system_clock::time_point time, FRXError* error) {
  const auto sinceEpoch = time.time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  timespec times[2]{};
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = static_cast<std::time_t>(seconds.count());
  times[1].tv_nsec = std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch - seconds).count();
  return ::futimens(file_.get(), times) == 0 || fail(errno, error);
}

bool ReplacementFile::commit(FRXError* error) {
  // What was reserved and not used stays reserved otherwise. A file system that is full may say so as late
  // as here, or when the file is closed.
  const bool isTrimmed = preallocated_ <= size_ || ::ftruncate(file_.get(), static_cast<off_t>(size_)) == 0;
  if (isTrimmed && ::close(file_.release()) == 0 &&
      ::renameat(directory_->get(), temporaryName_.c_str(), directory_->get(), leaf_.c_str()) == 0) {
    temporaryName_.clear();
    directory_.reset();
    return true;
  }
  const int code = errno;
  discard();
  return fail(code, error);
}

void ReplacementFile::discard() {
  file_.reset();
  if (!temporaryName_.empty()) ::unlinkat(directory_->get(), temporaryName_.c_str(), 0);
  temporaryName_.clear();
  directory_.reset();
}

bool ReplacementFile::fail(int code, FRXError* error) const {
  setError(error, posixError(code, leaf_));
  return false;
}

}  // namespace ferrox
