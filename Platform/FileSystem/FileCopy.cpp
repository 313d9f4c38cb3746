#include "Platform/FileSystem/FileCopy.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <vector>

namespace ferrox {
namespace {

using Outcome = FileCopyResult::Outcome;

// Between two of these somebody may say stop: a fraction of a second on any disk.
constexpr std::uint64_t longestStep = std::uint64_t{32} << 20;
constexpr std::uint64_t smallestReserve = std::uint64_t{1} << 20;
constexpr std::size_t bufferSize = std::size_t{256} << 10;

/// There the server may copy without a byte crossing the network; elsewhere that call is the slower one.
bool isRemote(int file) {
  struct statfs system {};
  if (::fstatfs(file, &system) != 0) return false;
  constexpr std::array<unsigned, 5> kinds = {0x6969 /* NFS */, 0xff534d42 /* CIFS */, 0xfe534d42 /* SMB2 */,
                                             0x65735546 /* FUSE */, 0x00c36400 /* Ceph */};
  return std::find(kinds.begin(), kinds.end(), static_cast<unsigned>(system.f_type)) != kinds.end();
}

class Copy {
 public:
  Copy(int source, int target, const std::function<bool()>& mayContinue)
      : source_(source), target_(target), mayContinue_(mayContinue) {
    struct stat status {};
    // What the kernel makes up on reading has no size.
    if (::fstat(source, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
      const off_t position = std::max(::lseek(source, 0, SEEK_CUR), off_t{0});
      left_ = static_cast<std::uint64_t>(std::max(status.st_size - position, off_t{0}));
    }
  }

  FileCopyResult run() {
    if (shareBlocks()) return {};
    if (!isRemote(target_)) reserve();
    // Neither call tells a failure of one side from one of the other, and not every file knows them: where
    // they stop, for whatever reason, the plain way goes on and finds out.
    const bool mayGoOn =
        (!isRemote(target_) || stepWhilePossible([this](std::size_t count) {
          return ::copy_file_range(source_, nullptr, target_, nullptr, count, 0);
        })) &&
        stepWhilePossible([this](std::size_t count) { return ::sendfile(target_, source_, nullptr, count); });
    return mayGoOn ? copyThroughBuffer() : FileCopyResult{Outcome::Stopped, 0};
  }

 private:
  bool mayContinue() const { return !mayContinue_ || mayContinue_(); }

  bool isOfKnownSize() const { return left_ != std::numeric_limits<std::uint64_t>::max(); }

  /// Takes no time and no room, where the file system can and both positions suit it.
  bool shareBlocks() {
    const off_t from = ::lseek(source_, 0, SEEK_CUR), to = ::lseek(target_, 0, SEEK_CUR);
    if (!isOfKnownSize() || left_ == 0 || from < 0 || to < 0 || !mayContinue()) return false;
    file_clone_range range{};
    range.src_fd = source_;
    range.src_offset = static_cast<__u64>(from);
    range.src_length = left_;
    range.dest_offset = static_cast<__u64>(to);
    if (::ioctl(target_, FICLONERANGE, &range) != 0) return false;
    const auto size = static_cast<off_t>(left_);
    return ::lseek(source_, from + size, SEEK_SET) >= 0 && ::lseek(target_, to + size, SEEK_SET) >= 0;
  }

  /// Blocks that are chosen at once cost a fifth less than those that every write adds to. A disk that has
  /// not enough of them says so later.
  void reserve() {
    if (!isOfKnownSize() || left_ < smallestReserve) return;
    const off_t begin = ::lseek(target_, 0, SEEK_CUR);
    if (begin < 0) return;
    // Even a failure may have reserved a part.
    isReserved_ = true;
    (void)::fallocate(target_, FALLOC_FL_KEEP_SIZE, begin, static_cast<off_t>(left_));
  }

  /// For a source that became shorter in the meantime.
  void releaseUnused() const {
    struct stat status {};
    const off_t end = ::lseek(target_, 0, SEEK_CUR);
    if (isReserved_ && left_ > 0 && ::fstat(target_, &status) == 0 && status.st_size == end) {
      if (::ftruncate(target_, end) != 0) return;
    }
  }

  /// False when it was told to stop.
  template <typename Step>
  bool stepWhilePossible(const Step& step) {
    while (left_ > 0) {
      if (!mayContinue()) return false;
      const ssize_t count = step(static_cast<std::size_t>(std::min(left_, longestStep)));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return true;
      left_ -= static_cast<std::uint64_t>(count);
    }
    return true;
  }

  FileCopyResult copyThroughBuffer() {
    std::vector<char> buffer(left_ > 0 ? bufferSize : 0);
    for (std::uint64_t untilAsked = 0; left_ > 0;) {
      if (untilAsked == 0) {
        if (!mayContinue()) return {Outcome::Stopped, 0};
        untilAsked = longestStep;
      }
      const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left_, buffer.size()));
      const ssize_t count = ::read(source_, buffer.data(), wanted);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return {Outcome::ReadFailed, errno};
      if (count == 0) break;
      const auto size = static_cast<std::size_t>(count);
      if (const int code = write(buffer.data(), size)) return {Outcome::WriteFailed, code};
      left_ -= size;
      untilAsked -= std::min<std::uint64_t>(untilAsked, size);
    }
    releaseUnused();
    return {};
  }

  int write(const char* data, std::size_t size) const {
    while (size > 0) {
      const ssize_t count = ::write(target_, data, size);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return count < 0 ? errno : EIO;
      data += count;
      size -= static_cast<std::size_t>(count);
    }
    return 0;
  }

  const int source_;
  const int target_;
  const std::function<bool()>& mayContinue_;
  std::uint64_t left_ = std::numeric_limits<std::uint64_t>::max();
  bool isReserved_ = false;
};

}  // namespace

FileCopyResult copyFileContent(int source, int target, const std::function<bool()>& mayContinue) {
  return Copy(source, target, mayContinue).run();
}

FileCopyResult flushFileContent(int file, const std::function<bool()>& mayContinue) {
  struct stat status {};
  const off_t end = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
  const auto step = static_cast<off_t>(longestStep);
  // One step is on its way to the disk while the one before it is waited for. Failures show again below.
  for (off_t begin = 0; begin < end; begin += step) {
    if (mayContinue && !mayContinue()) return {Outcome::Stopped, 0};
    (void)::sync_file_range(file, begin, step, SYNC_FILE_RANGE_WRITE);
    if (begin > 0) (void)::sync_file_range(file, begin - step, step, SYNC_FILE_RANGE_WAIT_BEFORE);
  }
  if (mayContinue && !mayContinue()) return {Outcome::Stopped, 0};
  if (::fsync(file) != 0) return {Outcome::WriteFailed, errno};
  return {};
}

}  // namespace ferrox
