#include "Platform/HTTP/Server/PageCache.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

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

bool isInPageCache(int descriptor, std::uint64_t offset, std::size_t length) {
  CacheRange range{offset, length};
  CacheCounts counts{};
  if (::syscall(cachestatNumber, descriptor, &range, &counts, 0) != 0) return false;
  const std::uint64_t pages = (offset + length - 1) / pageSize() - offset / pageSize() + 1;
  return counts.cached >= pages;
}

bool bringIntoPageCache(int descriptor, std::uint64_t offset, std::size_t length) {
  const auto skew = static_cast<std::size_t>(offset % pageSize());
  void* base =
      ::mmap(nullptr, length + skew, PROT_READ, MAP_SHARED, descriptor, static_cast<off_t>(offset - skew));
  if (base == MAP_FAILED) return false;
  int result = 0;
  do {
    result = ::madvise(base, length + skew, MADV_POPULATE_READ);
  } while (result != 0 && (errno == EINTR || errno == EAGAIN));
  // Linux before 5.14 does not know it: the pages then come in when they are sent.
  const bool present = result == 0 || errno == EINVAL;
  ::munmap(base, length + skew);
  return present;
}

}  // namespace ferrox
