// Starts operations when their dependencies are finished and a slot is free.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/Queues/Operation.h"

namespace ferrox {

/// Holds operations until they are finished. `start()` is called on the background queue, in the order of
/// adding among those that are ready.
/// Thread: any
class OperationQueue {
 public:
  /// No explicit limit on how many operations execute at once.
  static constexpr int defaultMaxConcurrentOperationCount = -1;

  explicit OperationQueue(BackgroundQueue& background = BackgroundQueue::shared());
  ~OperationQueue();

  void addOperation(std::shared_ptr<Operation> operation);
  /// Adds it unless an equal operation (see `Operation::isEqual`) is pending or executing; one atomic step.
  /// Returns whether it was added.
  [[nodiscard]] bool addOperationUnlessPresent(std::shared_ptr<Operation> operation);

  /// Pending and executing operations, in the order of adding.
  std::vector<std::shared_ptr<Operation>> operations() const;
  std::size_t operationCount() const;
  void cancelAllOperations();
  /// Blocks until the queue is empty; never to be called from an operation.
  void waitUntilAllOperationsAreFinished();

  void setMaxConcurrentOperationCount(int count);
  int maxConcurrentOperationCount() const;

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace ferrox
