#include "Benchmarks/Support/AllocationCount.h"

#include <atomic>
#include <cstddef>

namespace {

std::atomic<std::uint64_t> count{0};

}  // namespace

// The program's own definitions come before those of the C library, whose real ones have these names.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

void* malloc(std::size_t size) {
  count.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
void* calloc(std::size_t items, std::size_t size) {
  count.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(items, size);
}
void* realloc(void* memory, std::size_t size) {
  count.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(memory, size);
}
}

namespace ferrox::bench {

std::uint64_t allocationCount() { return count.load(std::memory_order_relaxed); }

}  // namespace ferrox::bench
