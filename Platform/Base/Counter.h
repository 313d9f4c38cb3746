// A number that only grows, for statistics.
#pragma once

#include <atomic>
#include <cstdint>

namespace ferrox {

/// One addition each, without any order towards other memory: cheap enough to be left on for ever.
/// Thread: any
class Counter {
 public:
  void add(std::uint64_t amount = 1) { value_.fetch_add(amount, std::memory_order_relaxed); }
  std::uint64_t value() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::uint64_t> value_{0};
};

/// How many are there now, of those that came and those that went. The two are not read in one instant.
inline std::uint64_t presentCount(const Counter& came, const Counter& went) {
  const std::uint64_t gone = went.value();
  const std::uint64_t all = came.value();
  return all > gone ? all - gone : 0;
}

}  // namespace ferrox
