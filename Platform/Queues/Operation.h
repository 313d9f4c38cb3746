// One piece of asynchronous work that a queue starts and whose end the queue observes.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace ferrox {

/// What observes an operation's two flags; implemented by `OperationQueue`.
class OperationObserver {
 public:
  virtual ~OperationObserver() = default;
  /// `key` is "isExecuting" or "isFinished". Called before and after the flag changes, on the thread that
  /// changes it.
  virtual void operationWillChangeValue(class Operation& operation, std::string_view key) = 0;
  virtual void operationDidChangeValue(class Operation& operation, std::string_view key) = 0;
};

/// Base of operations. The queue calls `start()` once; the operation says through the change announcements
/// when it executes and when it is finished. Dependencies are other operations that must be finished (or
/// cancelled and finished) first.
class Operation : public std::enable_shared_from_this<Operation> {
 public:
  virtual ~Operation() = default;

  virtual void start() = 0;
  virtual bool isConcurrent() const { return true; }
  virtual bool isExecuting() const = 0;
  virtual bool isFinished() const = 0;

  /// Marks it cancelled. An operation that runs decides itself how soon it ends; one that was not started is
  /// still started by its queue so that it can mark itself finished. Thread: any
  virtual void cancel();
  bool isCancelled() const;

  /// This operation starts only after `other` is finished. To be called before it is queued.
  void addDependency(std::shared_ptr<Operation> other);
  std::vector<std::shared_ptr<Operation>> dependencies() const;

  /// Equality used by queues and checkers to recognise duplicates; identity unless a subclass says otherwise.
  virtual bool isEqual(const Operation& other) const { return this == &other; }

 protected:
  void willChangeValueForKey(std::string_view key);
  void didChangeValueForKey(std::string_view key);

 private:
  friend class OperationQueue;
  void setObserver(std::weak_ptr<OperationObserver> observer);

  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<Operation>> dependencies_;
  std::weak_ptr<OperationObserver> observer_;
  std::atomic<bool> cancelled_{false};
};

}  // namespace ferrox
