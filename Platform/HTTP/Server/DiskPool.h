// A few threads for work that may wait for a disk.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace ferrox {

/// Threads are started when first needed. Thread: any
class DiskPool {
 public:
  explicit DiskPool(std::size_t threads);
  ~DiskPool();
  DiskPool(const DiskPool&) = delete;
  DiskPool& operator=(const DiskPool&) = delete;

  /// Runs `job` soon; dropped, with what it owns, when the pool has stopped.
  void submit(std::function<void()> job);
  /// Drops what waits and waits for what runs.
  void stop();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ferrox
