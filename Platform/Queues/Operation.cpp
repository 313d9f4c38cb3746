#include "Platform/Queues/Operation.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace ferrox {

void Operation::cancel() {
  if (cancelled_.load()) return;
  willChangeValueForKey("isCancelled");
  cancelled_ = true;
  didChangeValueForKey("isCancelled");
}

bool Operation::isCancelled() const { return cancelled_.load(); }

void Operation::addDependency(std::shared_ptr<Operation> other) {
  assert(other != nullptr && other.get() != this);
  const MutexLock lock(mutex_);
  dependencies_.push_back(std::move(other));
}

std::vector<std::shared_ptr<Operation>> Operation::dependencies() const {
  const MutexLock lock(mutex_);
  return dependencies_;
}

void Operation::willChangeValueForKey(std::string_view key) {
  for (const auto& observer : observers()) observer->operationWillChangeValue(*this, key);
}

void Operation::didChangeValueForKey(std::string_view key) {
  for (const auto& observer : observers()) observer->operationDidChangeValue(*this, key);
}

void Operation::addObserver(const std::shared_ptr<OperationObserver>& observer) {
  const MutexLock lock(mutex_);
  std::erase_if(observers_, [](const auto& known) { return known.expired(); });
  const auto same = [&](const auto& known) { return known.lock() == observer; };
  if (std::none_of(observers_.begin(), observers_.end(), same)) observers_.push_back(observer);
}

void Operation::releaseDependencies() {
  std::vector<std::shared_ptr<Operation>> released;
  const MutexLock lock(mutex_);
  released.swap(dependencies_);
}

std::vector<std::shared_ptr<OperationObserver>> Operation::observers() const {
  std::vector<std::shared_ptr<OperationObserver>> result;
  const MutexLock lock(mutex_);
  for (const auto& known : observers_) {
    if (auto observer = known.lock()) result.push_back(std::move(observer));
  }
  return result;
}

}  // namespace ferrox
