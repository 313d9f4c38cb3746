// What the listener of a copy decides when free space is short.
#pragma once

#include <condition_variable>

#include "Platform/Base/Mutex.h"

namespace ferrox {

/// The first answer counts, and none once the listener has returned. Thread: any
class LowStorageDecision {
 public:
  /// Whether this answer counts; then `end` has to follow.
  bool begin() FRX_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (stage_ != Stage::Open) return false;
    stage_ = Stage::UnderWay;
    return true;
  }
  void end() FRX_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    stage_ = Stage::Closed;
    changed_.notify_all();
  }
  /// Takes no answer any more, and waits for the end of what another thread has begun.
  void close() FRX_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    while (stage_ == Stage::UnderWay) changed_.wait(mutex_);
    stage_ = Stage::Closed;
  }

 private:
  enum class Stage { Open, UnderWay, Closed };

  Mutex mutex_;
  std::condition_variable_any changed_;
  Stage stage_ FRX_GUARDED_BY(mutex_) = Stage::Open;
};

}  // namespace ferrox
