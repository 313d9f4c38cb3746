// The way from another thread to the main loop, which may end before that thread does.
#pragma once

#include <mutex>

#include "Platform/RunLoop/RunLoop.h"

namespace ferrox {

/// Thread: any
class MainLoopLink {
 public:
  explicit MainLoopLink(RunLoop& loop) : loop_(&loop) {}

  /// Dropped after `close()`.
  void post(RunLoop::Task task) {
    const std::lock_guard lock(mutex_);
    if (loop_ != nullptr) loop_->post(std::move(task));
  }
  void close() {
    const std::lock_guard lock(mutex_);
    loop_ = nullptr;
  }

 private:
  std::mutex mutex_;
  RunLoop* loop_;
};

}  // namespace ferrox
