// Feeds a queue with very many operations, few of which exist at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>

#include "Classes/Copy/FRXConcurrentOperation.h"
#include "Platform/Queues/OperationQueue.h"

namespace ferrox {

/// Belongs to one thread, which blocks in `add` while the window is full and hears there, and in `wait`,
/// which operations have ended. Thread: one
class OperationWindow {
 public:
  using Ended = std::function<void(FRXConcurrentOperation& operation)>;

  /// At most `width` operations are in the queue. `isCancelled` tells whether what is added is to be
  /// cancelled at once; the canceller of the queue has to make it true first, so that nothing slips through.
  OperationWindow(OperationQueue& queue, std::size_t width, std::function<bool()> isCancelled);
  /// Cancels what has not ended and waits for it.
  ~OperationWindow();
  OperationWindow(const OperationWindow&) = delete;
  OperationWindow& operator=(const OperationWindow&) = delete;

  /// What becomes of the others when an operation ends with an error.
  enum class Failure {
    Ignored,
    /// They are cancelled before the queue can start another one in its place, and so is what is added later.
    CancelsOthers,
  };

  /// Queues it; `onEnded` is called from a later `add`, or from `wait`, when it is finished, and may add
  /// more.
  void add(const std::shared_ptr<FRXConcurrentOperation>& operation, Ended onEnded,
           Failure failure = Failure::Ignored);
  /// Until all have ended.
  void wait();
  /// How many were added so far.
  std::uint64_t addedCount() const { return added_; }
  /// Cancels what was added after the first `count` and has not ended.
  void cancelFrom(std::uint64_t count);

 private:
  class Observer;
  struct Entry {
    std::shared_ptr<FRXConcurrentOperation> operation;
    Ended onEnded;
  };

  void handleEnded(std::size_t allowed);

  OperationQueue& queue_;
  const std::size_t width_;
  const std::function<bool()> isCancelled_;
  const std::shared_ptr<Observer> observer_;
  std::map<std::uint64_t, Entry> entries_;
  std::deque<std::uint64_t> ended_;  ///< not yet handled
  std::uint64_t added_ = 0;
};

}  // namespace ferrox
