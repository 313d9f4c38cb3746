// Work that may block, away from the main and the network threads.
#pragma once

#include <functional>
#include <memory>

#include "Platform/Base/Export.h"

namespace ferrox {

/// A small pool of threads that runs tasks in the order they came, several at a time.
class FRX_EXPORT BackgroundQueue {
 public:
  using Task = std::function<void()>;

  virtual ~BackgroundQueue() = default;

  /// Runs `task` later on a background thread, never inside this call. Thread: any
  virtual void post(Task task) = 0;

  /// The process-wide queue of default priority, made on first use.
  static BackgroundQueue& shared();
  /// A pool with at most `threads` threads; threads are started when first needed and end with the queue,
  /// which runs what was posted before it is destroyed.
  static std::unique_ptr<BackgroundQueue> makePool(unsigned threads);
};

}  // namespace ferrox
