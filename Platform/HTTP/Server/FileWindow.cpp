#include "Platform/HTTP/Server/FileWindow.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#ifndef MADV_POPULATE_READ
#define MADV_POPULATE_READ 22
#endif

namespace ferrox {

namespace {

std::size_t pageSize() {
  static const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

// cachestat(2), Linux 6.5: younger than the C library's headers.
constexpr long cachestatNumber = 451;
struct CacheRange {
  std::uint64_t offset;
  std::uint64_t length;
};
struct CacheCounts {
  std::uint64_t cached, dirty, writeback, evicted, recentlyEvicted;
};

}  // namespace

bool FileWindow::map(int descriptor, std::uint64_t offset, std::size_t length) {
  unmap();
  skew_ = static_cast<std::size_t>(offset % pageSize());
  mappedLength_ = length + skew_;
  void* base =
      ::mmap(nullptr, mappedLength_, PROT_READ, MAP_SHARED, descriptor, static_cast<off_t>(offset - skew_));
  if (base == MAP_FAILED) return false;
  base_ = static_cast<char*>(base);
  length_ = length;
  return true;
}

void FileWindow::unmap() {
  if (base_ != nullptr) ::munmap(base_, mappedLength_);
  base_ = nullptr;
  length_ = 0;
}

bool FileWindow::populate() {
  while (::madvise(base_, mappedLength_, MADV_POPULATE_READ) != 0) {
    if (errno == EINTR || errno == EAGAIN) continue;
    // Linux before 5.14 does not know it: the pages then come in when they are sent.
    return errno == EINVAL;
  }
  return true;
}

bool isInPageCache(int descriptor, std::uint64_t offset, std::size_t length) {
  CacheRange range{offset, length};
  CacheCounts counts{};
  if (::syscall(cachestatNumber, descriptor, &range, &counts, 0) != 0) return false;
  const std::uint64_t pages = (offset + length - 1) / pageSize() - offset / pageSize() + 1;
  return counts.cached >= pages;
}

}  // namespace ferrox
