// One piece of asynchronous work that a queue starts and whose end the queue observes.
#pragma once

#include <atomic>
#include <memory>
#include <string_view>
#include <vector>

#include "Platform/Base/Export.h"
#include "Platform/Base/Mutex.h"

namespace ferrox {

class Operation;

/// What observes an operation's flags; implemented by `OperationQueue`.
class FRX_EXPORT OperationObserver {
 public:
  virtual ~OperationObserver() = default;
  /// `key` is "isExecuting", "isFinished" or "isCancelled". Called before and after the flag changes, on the
  /// thread that changes it.
  virtual void operationWillChangeValue(Operation& operation, std::string_view key) = 0;
  virtual void operationDidChangeValue(Operation& operation, std::string_view key) = 0;
};

/// Base of operations. The queue calls `start()` once; the operation says through the change announcements
/// when it executes and when it is finished. Dependencies are other operations that must be finished first,
/// in whatever queue they are. An operation is made with `std::make_shared`.
class FRX_EXPORT Operation : public std::enable_shared_from_this<Operation> {
 public:
  virtual ~Operation() = default;

  virtual void start() = 0;
  /// False: the operation is over when `start()` returns, without any announcement.
  virtual bool isConcurrent() const { return true; }
  /// The queue asks on its own threads. Thread: any
  virtual bool isExecuting() const = 0;
  virtual bool isFinished() const = 0;

  /// Marks it cancelled. An operation that runs decides itself how soon it ends; one that was not started is
  /// still started by its queue, without regard to its dependencies, so that it can mark itself finished.
  /// Thread: any
  virtual void cancel();
  bool isCancelled() const;

  /// This operation starts only after `other` is finished. To be called before it is queued.
  /// Its queue lets go of its dependencies once it is finished, so that chains do not keep each other alive.
  void addDependency(std::shared_ptr<Operation> other);
  std::vector<std::shared_ptr<Operation>> dependencies() const;

  /// Equality used by queues and checkers to recognise duplicates; identity unless a subclass says otherwise.
  /// Must not call the queue.
  virtual bool isEqual(const Operation& other) const { return this == &other; }

  /// Its queue starts it on whatever thread makes room for it, inside the call that did, which costs no
  /// change of threads: for operations whose start does not block, nor whoever observes them. To be set
  /// before it is queued.
  void setStartsOnCurrentThread(bool starts) { startsOnCurrentThread_ = starts; }
  bool startsOnCurrentThread() const { return startsOnCurrentThread_; }

  /// Tells `observer` of every change of a flag from now on. Held weakly. Thread: any
  void addObserver(const std::shared_ptr<OperationObserver>& observer);

 protected:
  void willChangeValueForKey(std::string_view key);
  void didChangeValueForKey(std::string_view key);

 private:
  friend class OperationQueue;
  std::vector<std::shared_ptr<OperationObserver>> observers() const;
  void releaseDependencies();

  std::atomic<bool> cancelled_{false};
  std::atomic<bool> startsOnCurrentThread_{false};
  mutable Mutex mutex_;
  std::vector<std::shared_ptr<Operation>> dependencies_ FRX_GUARDED_BY(mutex_);
  // The queue it is in, and those of the operations that depend on it.
  std::vector<std::weak_ptr<OperationObserver>> observers_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox
