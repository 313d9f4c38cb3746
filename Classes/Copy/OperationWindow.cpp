#include "Classes/Copy/OperationWindow.h"

#include <condition_variable>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Platform/Base/Mutex.h"

namespace ferrox {

/// Collects what ends, on whatever thread that is. An operation may announce its end more than once.
class OperationWindow::Observer : public OperationObserver {
 public:
  void watch(const Operation& operation, std::uint64_t number) FRX_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    watched_.emplace(&operation, number);
  }

  /// Numbers of those that ended since the last call; waits for one if there is none.
  std::vector<std::uint64_t> take() FRX_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    while (ended_.empty()) changed_.wait(mutex_);
    return std::exchange(ended_, {});
  }

  void operationWillChangeValue(Operation&, std::string_view) override {}
  void operationDidChangeValue(Operation& operation, std::string_view key) override FRX_EXCLUDES(mutex_) {
    if (key != "isFinished" || !operation.isFinished()) return;
    const MutexLock lock(mutex_);
    const auto known = watched_.extract(&operation);
    if (known.empty()) return;
    ended_.push_back(known.mapped());
    changed_.notify_one();
  }

 private:
  Mutex mutex_;
  std::condition_variable_any changed_;
  std::unordered_map<const Operation*, std::uint64_t> watched_ FRX_GUARDED_BY(mutex_);
  std::vector<std::uint64_t> ended_ FRX_GUARDED_BY(mutex_);
};

OperationWindow::OperationWindow(OperationQueue& queue, std::size_t width, std::function<bool()> isCancelled)
    : queue_(queue),
      width_(width),
      isCancelled_(std::move(isCancelled)),
      observer_(std::make_shared<Observer>()) {}

OperationWindow::~OperationWindow() {
  cancelFrom(0);
  for (auto& entry : entries_) entry.second.onEnded = [](FRXConcurrentOperation&) {};
  handleEnded(0);
}

void OperationWindow::add(const std::shared_ptr<FRXConcurrentOperation>& operation, Ended onEnded) {
  handleEnded(width_ - 1);
  const std::uint64_t number = added_++;
  entries_.emplace(number, Entry{operation, std::move(onEnded)});
  observer_->watch(*operation, number);
  operation->addObserver(observer_);
  queue_.addOperation(operation);
  if (isCancelled_()) operation->cancel();
}

void OperationWindow::wait() {
  handleEnded(0);
  // The last ones may have told us before they told their queue.
  queue_.waitUntilAllOperationsAreFinished();
}

void OperationWindow::handleEnded(std::size_t allowed) {
  while (entries_.size() > allowed) {
    if (ended_.empty()) {
      const auto ended = observer_->take();
      ended_.assign(ended.begin(), ended.end());
    }
    // Forgotten before it is told of: what is told may add another one, and so come here again.
    const auto entry = entries_.extract(ended_.front());
    ended_.pop_front();
    entry.mapped().onEnded(*entry.mapped().operation);
  }
}

void OperationWindow::cancelFrom(std::uint64_t count) {
  // A cancelled operation may end at once, but its entry stays until it is handled.
  for (auto entry = entries_.lower_bound(count); entry != entries_.end(); ++entry) {
    entry->second.operation->cancel();
  }
}

}  // namespace ferrox
