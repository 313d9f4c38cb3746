#include "Classes/Copy/OperationWindow.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Platform/Base/Mutex.h"

namespace ferrox {

// Nobody notices a progress that is so much late.
constexpr auto longestGathering = std::chrono::milliseconds(10);

/// Collects what ends, on whatever thread that is. An operation may announce its end more than once.
/// It is told before the queue is, as it observes the operations first.
class OperationWindow::Observer : public OperationObserver {
 public:
  explicit Observer(std::size_t width) : half_(width / 2) {}

  void watch(const std::shared_ptr<FRXConcurrentOperation>& operation, std::uint64_t number, Failure failure)
      FRX_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    watched_.emplace(operation.get(), Watched{operation, number, failure});
  }

  /// Numbers of those that ended since the last call; waits for one if there is none. Then it stays a moment
  /// for more while enough are left to keep the queue busy, as small files end too fast to wake up for each.
  std::vector<std::uint64_t> take() FRX_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    while (ended_.empty()) changed_.wait(mutex_);
    const auto deadline = std::chrono::steady_clock::now() + longestGathering;
    while (watched_.size() > half_ && !failed_) {
      if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout) break;
    }
    return std::exchange(ended_, {});
  }

  bool hasFailed() const FRX_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return failed_;
  }

  void operationWillChangeValue(Operation&, std::string_view) override {}
  void operationDidChangeValue(Operation& operation, std::string_view key) override FRX_EXCLUDES(mutex_) {
    if (key != "isFinished" || !operation.isFinished()) return;
    for (const Watched& other : didEnd(operation)) other.operation->cancel();
  }

 private:
  struct Watched {
    std::shared_ptr<FRXConcurrentOperation> operation;
    std::uint64_t number = 0;
    Failure failure = Failure::Ignored;
  };

  /// Those that its failure cancels: the last added first, so that none is started in the place of another
  /// that ends by being cancelled.
  std::vector<Watched> didEnd(const Operation& operation) FRX_EXCLUDES(mutex_) {
    std::vector<Watched> others;
    const MutexLock lock(mutex_);
    const auto known = watched_.extract(&operation);
    if (known.empty()) return others;
    const Watched& ended = known.mapped();
    if (ended.failure == Failure::CancelsOthers && ended.operation->error()) {
      failed_ = true;
      for (const auto& [key, other] : watched_) others.push_back(other);
      std::sort(others.begin(), others.end(),
                [](const Watched& a, const Watched& b) { return a.number > b.number; });
    }
    ended_.push_back(ended.number);
    if (ended_.size() == 1 || watched_.size() <= half_ || failed_) changed_.notify_one();
    return others;
  }

  const std::size_t half_;
  mutable Mutex mutex_;
  std::condition_variable_any changed_;
  std::unordered_map<const Operation*, Watched> watched_ FRX_GUARDED_BY(mutex_);
  std::vector<std::uint64_t> ended_ FRX_GUARDED_BY(mutex_);
  bool failed_ FRX_GUARDED_BY(mutex_) = false;
};

OperationWindow::OperationWindow(OperationQueue& queue, std::size_t width, std::function<bool()> isCancelled)
    : queue_(queue),
      width_(width),
      isCancelled_(std::move(isCancelled)),
      observer_(std::make_shared<Observer>(width)) {}

OperationWindow::~OperationWindow() {
  cancelFrom(0);
  for (auto& entry : entries_) entry.second.onEnded = [](FRXConcurrentOperation&) {};
  handleEnded(0);
}

void OperationWindow::add(const std::shared_ptr<FRXConcurrentOperation>& operation, Ended onEnded,
                          Failure failure) {
  handleEnded(width_ - 1);
  const std::uint64_t number = added_++;
  entries_.emplace(number, Entry{operation, std::move(onEnded)});
  observer_->watch(operation, number, failure);
  operation->addObserver(observer_);
  const auto isInVain = [this] { return isCancelled_() || observer_->hasFailed(); };
  if (isInVain()) operation->cancel();
  queue_.addOperation(operation);
  // Whoever cancelled meanwhile did not see it in the queue.
  if (isInVain()) operation->cancel();
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
  for (auto entry = entries_.end(); entry != entries_.lower_bound(count);) {
    --entry;
    entry->second.operation->cancel();
  }
}

}  // namespace ferrox
