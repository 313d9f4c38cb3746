// Base of every queue-run transfer step: the two flags a queue observes, the error, and a place for the
// client's own data.
#pragma once

#include <atomic>
#include <optional>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Base/FRXValue.h"
#include "Platform/Base/Mutex.h"
#include "Platform/Queues/Operation.h"

namespace ferrox {

/// An operation that manages its own execution. A subclass overrides `start`, asks `isStartable` there first,
/// marks itself executing, and ends, on any thread, with `finish`. Once finished it never runs again.
/// Thread: any; the flags are changed by one thread at a time
class FRX_EXPORT FRXConcurrentOperation : public Operation {
 public:
  FRXConcurrentOperation() = default;
  FRXConcurrentOperation(const FRXConcurrentOperation&) = delete;
  FRXConcurrentOperation& operator=(const FRXConcurrentOperation&) = delete;

  /// Does nothing here.
  void start() override {}
  bool isConcurrent() const override { return true; }
  bool isExecuting() const override { return executing_.load(); }
  bool isFinished() const override { return finished_.load(); }

  /// The gate in front of `start` and of every setter that configures the operation: false once it is
  /// cancelled, executing or finished. A cancelled operation is marked finished by being asked, so that its
  /// queue can drop it.
  [[nodiscard]] bool isStartable();

  /// Announce the change, store the flag, announce that it changed; under the keys "isExecuting" and
  /// "isFinished".
  void updateIsExecuting(bool executing);
  void updateIsFinished(bool finished);

  /// No longer executing, then finished, in that order.
  virtual void finish();

  /// The failure; nothing on success and on cancellation. To be read once the operation is finished.
  virtual std::optional<FRXError> error() const;

  /// Whatever the client attaches; never read by the operation.
  FRXDictionary userInfo() const;
  void setUserInfo(FRXDictionary userInfo);

 protected:
  /// Without announcing anything: for constructors only.
  void setIsExecuting(bool executing) { executing_ = executing; }
  void setIsFinished(bool finished) { finished_ = finished; }
  void setError(std::optional<FRXError> error);

 private:
  std::atomic<bool> executing_{false};
  std::atomic<bool> finished_{false};
  mutable Mutex mutex_;
  std::optional<FRXError> error_ FRX_GUARDED_BY(mutex_);
  FRXDictionary userInfo_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox
