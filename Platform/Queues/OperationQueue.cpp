#include "Platform/Queues/OperationQueue.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <list>
#include <string>
#include <utility>

#include "Platform/Base/Mutex.h"
#include "Platform/Log/Log.h"

namespace ferrox {

/// An operation occupies a slot from the moment its start is posted until it is finished, whether or not it
/// ever says that it executes.
struct OperationQueue::Impl : OperationObserver, std::enable_shared_from_this<OperationQueue::Impl> {
  explicit Impl(BackgroundQueue& queue) : background(queue) {}

  void operationWillChangeValue(Operation&, std::string_view) override {}
  void operationDidChangeValue(Operation& operation, std::string_view key) override;

  bool add(const std::shared_ptr<Operation>& operation, bool unlessPresent) FRX_EXCLUDES(mutex);
  void startReady() FRX_EXCLUDES(mutex);
  void run(const std::shared_ptr<Operation>& operation);
  void remove(const Operation& operation) FRX_EXCLUDES(mutex);
  static bool isReady(const Operation& operation);

  struct Item {
    std::shared_ptr<Operation> operation;
    bool started = false;
  };

  BackgroundQueue& background;
  Mutex mutex;
  std::condition_variable_any changed;
  std::list<Item> items FRX_GUARDED_BY(mutex);
  int running FRX_GUARDED_BY(mutex) = 0;
  int maximum FRX_GUARDED_BY(mutex) = defaultMaxConcurrentOperationCount;
  // Set while there are operations: they outlive the queue's owner, and somebody has to start them.
  std::shared_ptr<Impl> self FRX_GUARDED_BY(mutex);
};

void OperationQueue::Impl::operationDidChangeValue(Operation& operation, std::string_view key) {
  if (key == "isFinished" && operation.isFinished()) {
    remove(operation);
  } else if (key != "isCancelled") {
    return;
  }
  startReady();
}

bool OperationQueue::Impl::add(const std::shared_ptr<Operation>& operation, bool unlessPresent) {
  // Observed before anything is asked, so that no end is missed in between.
  const std::shared_ptr<Impl> me = shared_from_this();
  {
    const MutexLock lock(mutex);
    const auto isSame = [&](const Item& item) {
      return item.operation == operation || (unlessPresent && item.operation->isEqual(*operation));
    };
    if (std::any_of(items.begin(), items.end(), isSame)) return false;
    items.push_back({operation});
    self = me;
  }
  operation->addObserver(me);
  for (const auto& dependency : operation->dependencies()) dependency->addObserver(me);
  if (operation->isFinished()) remove(*operation);
  startReady();
  return true;
}

bool OperationQueue::Impl::isReady(const Operation& operation) {
  if (operation.isCancelled()) return true;
  const auto dependencies = operation.dependencies();
  return std::all_of(dependencies.begin(), dependencies.end(),
                     [](const auto& dependency) { return dependency->isFinished(); });
}

void OperationQueue::Impl::startReady() {
  const MutexLock lock(mutex);
  for (Item& item : items) {
    if (maximum >= 0 && running >= maximum) return;
    if (item.started || !isReady(*item.operation)) continue;
    item.started = true;
    ++running;
    // Posted under the lock, so that operations start in the order of adding.
    background.post([me = shared_from_this(), operation = item.operation] { me->run(operation); });
  }
}

void OperationQueue::Impl::run(const std::shared_ptr<Operation>& operation) {
  bool failed = false;
  try {
    operation->start();
  } catch (const std::exception& exception) {
    failed = true;
    FRX_LOG_ERROR(std::string("An operation could not be started: ") + exception.what());
  } catch (...) {
    failed = true;
    FRX_LOG_ERROR("An operation could not be started.");
  }
  if (!failed && operation->isConcurrent() && !operation->isFinished()) return;
  remove(*operation);
  startReady();
}

void OperationQueue::Impl::remove(const Operation& operation) {
  std::shared_ptr<Operation> removed;
  std::shared_ptr<Impl> released;
  {
    const MutexLock lock(mutex);
    const auto found = std::find_if(items.begin(), items.end(),
                                    [&](const Item& item) { return item.operation.get() == &operation; });
    if (found == items.end()) return;
    if (found->started) --running;
    removed = std::move(found->operation);
    items.erase(found);
    if (items.empty()) released.swap(self);
    changed.notify_all();
  }
}

OperationQueue::OperationQueue(BackgroundQueue& background) : impl_(std::make_shared<Impl>(background)) {}

OperationQueue::~OperationQueue() { cancelAllOperations(); }

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
  if (operation == nullptr || !impl_->add(operation, false)) {
    FRX_LOG_WARN("An operation was queued twice, or none was given.");
  }
}

bool OperationQueue::addOperationUnlessPresent(std::shared_ptr<Operation> operation) {
  return operation != nullptr && impl_->add(operation, true);
}

std::vector<std::shared_ptr<Operation>> OperationQueue::operations() const {
  std::vector<std::shared_ptr<Operation>> result;
  const MutexLock lock(impl_->mutex);
  result.reserve(impl_->items.size());
  for (const Impl::Item& item : impl_->items) result.push_back(item.operation);
  return result;
}

std::size_t OperationQueue::operationCount() const {
  const MutexLock lock(impl_->mutex);
  return impl_->items.size();
}

void OperationQueue::cancelAllOperations() {
  for (const auto& operation : operations()) operation->cancel();
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
  const MutexLock lock(impl_->mutex);
  while (!impl_->items.empty()) impl_->changed.wait(impl_->mutex);
}

void OperationQueue::setMaxConcurrentOperationCount(int count) {
  {
    const MutexLock lock(impl_->mutex);
    impl_->maximum = count;
  }
  impl_->startReady();
}

int OperationQueue::maxConcurrentOperationCount() const {
  const MutexLock lock(impl_->mutex);
  return impl_->maximum;
}

}  // namespace ferrox
