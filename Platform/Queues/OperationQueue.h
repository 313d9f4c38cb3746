// Starts operations when their dependencies are finished and a slot is free.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "Platform/Base/Export.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/Queues/Operation.h"

namespace ferrox {

/// Holds operations until they are finished. `start()` is called on the background queue, in the order of
/// adding among those that are ready. Those with `Operation::setStartsOnCurrentThread` are taken in that
/// order too, but started by whoever took them, and so may overtake each other. An operation whose `start()`
/// throws is logged and counts as finished. Destroying the queue cancels what it holds and does not wait: the
/// operations still end by themselves, on the background queue, which has to outlive them. Thread: any
class FRX_EXPORT OperationQueue {
 public:
  /// No explicit limit on how many operations execute at once.
  static constexpr int defaultMaxConcurrentOperationCount = -1;

  explicit OperationQueue(BackgroundQueue& background = BackgroundQueue::shared());
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  /// One that is already in the queue is not added again (WARN); one that is finished leaves at once.
  void addOperation(const std::shared_ptr<Operation>& operation);
  /// Adds it unless an equal operation (see `Operation::isEqual`) is pending or executing; one atomic step.
  /// Returns whether it was added.
  [[nodiscard]] bool addOperationUnlessPresent(const std::shared_ptr<Operation>& operation);

  /// Pending and executing operations, in the order of adding.
  std::vector<std::shared_ptr<Operation>> operations() const;
  std::size_t operationCount() const;
  /// The last added first, so that none is started in the place of one that ends by being cancelled.
  void cancelAllOperations();
  /// Blocks until the queue is empty; never to be called from an operation.
  void waitUntilAllOperationsAreFinished();

  /// 0 starts nothing more; a negative number is no limit.
  void setMaxConcurrentOperationCount(int count);
  int maxConcurrentOperationCount() const;

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace ferrox
