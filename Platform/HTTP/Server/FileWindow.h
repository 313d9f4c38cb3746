// A stretch of a file in the address space, to be sent but never read by this process.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ferrox {

/// The kernel copies from the mapping on our behalf: where the file has been truncated meanwhile it reports
/// EFAULT, while a read of our own would end the process with SIGBUS. So nothing here, and no user of this
/// class, ever dereferences `data()`.
/// Thread: one at a time
class FileWindow {
 public:
  FileWindow() = default;
  ~FileWindow() { unmap(); }
  FileWindow(const FileWindow&) = delete;
  FileWindow& operator=(const FileWindow&) = delete;

  bool map(int descriptor, std::uint64_t offset, std::size_t length);
  void unmap();
  bool isMapped() const { return base_ != nullptr; }
  const char* data() const { return base_ + skew_; }
  std::size_t length() const { return length_; }
  /// Brings the pages in, waiting for the disk; false when part of the stretch is not there any more.
  bool populate();

 private:
  char* base_ = nullptr;
  std::size_t mappedLength_ = 0;
  std::size_t skew_ = 0;
  std::size_t length_ = 0;
};

/// Whether a stretch of a file is surely in the page cache. Never waits; when the system does not say, the
/// answer is no.
bool isInPageCache(int descriptor, std::uint64_t offset, std::size_t length);

}  // namespace ferrox
