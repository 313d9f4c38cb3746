#include "Platform/Queues/OperationQueue.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <iterator>
#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Platform/Base/Mutex.h"
#include "Platform/Log/Log.h"

namespace ferrox {

/// An operation occupies a slot from the moment its start is posted until it is finished, whether or not it
/// ever says that it executes. What waits for dependencies is filed under them, so that a queue of thousands
/// is not searched at every end.
struct FRX_HIDDEN OperationQueue::Impl : OperationObserver,
                                         std::enable_shared_from_this<OperationQueue::Impl> {
  explicit Impl(BackgroundQueue& queue) : background(queue) {}

  void operationWillChangeValue(Operation&, std::string_view) override {}
  void operationDidChangeValue(Operation& operation, std::string_view key) override;

  bool add(const std::shared_ptr<Operation>& operation, bool unlessPresent) FRX_EXCLUDES(mutex);
  void awaitDependencies(const Operation& operation) FRX_EXCLUDES(mutex);
  void startReady() FRX_EXCLUDES(mutex);
  void run(const std::shared_ptr<Operation>& operation);
  void remove(const Operation& operation) FRX_EXCLUDES(mutex);

  enum class State { Waiting, Ready, Started };
  struct Item {
    std::shared_ptr<Operation> operation;
    std::uint64_t sequence = 0;
    State state = State::Waiting;
    std::size_t unfinishedDependencies = 0;
  };
  using Items = std::list<Item>;

  bool enlist(const std::shared_ptr<Operation>& operation, bool unlessPresent) FRX_EXCLUDES(mutex);
  Item* find(const Operation& operation) FRX_REQUIRES(mutex);
  void makeReady(Item& item) FRX_REQUIRES(mutex);
  void releaseWaiters(const Operation& finished) FRX_REQUIRES(mutex);

  BackgroundQueue& background;
  Mutex mutex;
  std::condition_variable_any changed;
  Items items FRX_GUARDED_BY(mutex);
  std::unordered_map<const Operation*, Items::iterator> index FRX_GUARDED_BY(mutex);
  std::map<std::uint64_t, Item*> ready FRX_GUARDED_BY(mutex);
  // From a dependency to the operations here that wait for it.
  std::unordered_multimap<const Operation*, const Operation*> waiters FRX_GUARDED_BY(mutex);
  std::uint64_t nextSequence FRX_GUARDED_BY(mutex) = 0;
  int running FRX_GUARDED_BY(mutex) = 0;
  int maximum FRX_GUARDED_BY(mutex) = defaultMaxConcurrentOperationCount;
  // Set while there are operations: they outlive the queue's owner, and somebody has to start them.
  std::shared_ptr<Impl> self FRX_GUARDED_BY(mutex);
};

void OperationQueue::Impl::operationDidChangeValue(Operation& operation, std::string_view key) {
  if (key == "isFinished" && operation.isFinished()) {
    remove(operation);
  } else if (key == "isCancelled") {
    const MutexLock lock(mutex);
    if (Item* item = find(operation)) makeReady(*item);
  } else {
    return;
  }
  startReady();
}

bool OperationQueue::Impl::add(const std::shared_ptr<Operation>& operation, bool unlessPresent) {
  if (!enlist(operation, unlessPresent)) return false;
  // Observed before anything is asked, so that no end is missed in between.
  const std::shared_ptr<Impl> me = shared_from_this();
  operation->addObserver(me);
  for (const auto& dependency : operation->dependencies()) dependency->addObserver(me);
  awaitDependencies(*operation);
  if (operation->isFinished()) remove(*operation);
  startReady();
  return true;
}

bool OperationQueue::Impl::enlist(const std::shared_ptr<Operation>& operation, bool unlessPresent) {
  const MutexLock lock(mutex);
  if (index.contains(operation.get())) return false;
  const auto isSame = [&](const Item& item) { return item.operation->isEqual(*operation); };
  if (unlessPresent && std::any_of(items.begin(), items.end(), isSame)) return false;
  items.push_back({operation, nextSequence++});
  index.emplace(operation.get(), std::prev(items.end()));
  self = shared_from_this();
  return true;
}

void OperationQueue::Impl::awaitDependencies(const Operation& operation) {
  const auto dependencies = operation.dependencies();
  const MutexLock lock(mutex);
  Item* item = find(operation);
  if (item == nullptr) return;
  for (const auto& dependency : dependencies) {
    if (dependency->isFinished()) continue;
    waiters.emplace(dependency.get(), &operation);
    ++item->unfinishedDependencies;
  }
  if (item->unfinishedDependencies == 0 || operation.isCancelled()) makeReady(*item);
}

OperationQueue::Impl::Item* OperationQueue::Impl::find(const Operation& operation) {
  const auto found = index.find(&operation);
  return found == index.end() ? nullptr : &*found->second;
}

void OperationQueue::Impl::makeReady(Item& item) {
  if (item.state != State::Waiting) return;
  item.state = State::Ready;
  ready.emplace(item.sequence, &item);
}

void OperationQueue::Impl::startReady() {
  // One that ends as it is started makes room for the next; a row of those must not pile up on one stack.
  thread_local bool isStarting = false;
  std::vector<std::shared_ptr<Operation>> here;
  {
    const MutexLock lock(mutex);
    while (!ready.empty() && (maximum < 0 || running < maximum)) {
      Item& item = *ready.begin()->second;
      ready.erase(ready.begin());
      item.state = State::Started;
      ++running;
      if (item.operation->startsOnCurrentThread() && !isStarting) {
        here.push_back(item.operation);
      } else {
        // Posted under the lock, so that operations start in the order of adding.
        background.post([me = shared_from_this(), operation = item.operation] { me->run(operation); });
      }
    }
  }
  if (here.empty()) return;
  const auto keepsItself = shared_from_this();
  isStarting = true;
  for (const auto& operation : here) run(operation);
  isStarting = false;
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
  // One that announces its end does so to others before this queue, who may have to act before the next
  // starts; its flag alone, which another thread may have set just now, would overtake them.
  if (!failed && operation->isConcurrent()) return;
  remove(*operation);
  startReady();
}

void OperationQueue::Impl::remove(const Operation& operation) {
  // Both may be the last reference, and go when the lock is gone.
  std::shared_ptr<Operation> removed;
  std::shared_ptr<Impl> released;
  {
    const MutexLock lock(mutex);
    releaseWaiters(operation);
    const auto found = index.find(&operation);
    if (found == index.end()) return;
    Item& item = *found->second;
    if (item.state == State::Started) --running;
    if (item.state == State::Ready) ready.erase(item.sequence);
    if (item.unfinishedDependencies > 0) {
      std::erase_if(waiters, [&](const auto& waiter) { return waiter.second == &operation; });
    }
    removed = std::move(item.operation);
    items.erase(found->second);
    index.erase(found);
    if (items.empty()) released.swap(self);
    changed.notify_all();
  }
  removed->releaseDependencies();
}

void OperationQueue::Impl::releaseWaiters(const Operation& finished) {
  const auto [first, last] = waiters.equal_range(&finished);
  for (auto waiter = first; waiter != last; ++waiter) {
    Item* item = find(*waiter->second);
    if (item != nullptr && --item->unfinishedDependencies == 0) makeReady(*item);
  }
  waiters.erase(first, last);
}

OperationQueue::OperationQueue(BackgroundQueue& background) : impl_(std::make_shared<Impl>(background)) {}

OperationQueue::~OperationQueue() { cancelAllOperations(); }

void OperationQueue::addOperation(const std::shared_ptr<Operation>& operation) {
  if (operation == nullptr || !impl_->add(operation, false)) {
    FRX_LOG_WARN("An operation was queued twice, or none was given.");
  }
}

bool OperationQueue::addOperationUnlessPresent(const std::shared_ptr<Operation>& operation) {
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
  const auto all = operations();
  for (auto operation = all.rbegin(); operation != all.rend(); ++operation) (*operation)->cancel();
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
