#include "Classes/Copy/FRXConcurrentOperation.h"

#include <utility>

namespace ferrox {
namespace {

constexpr std::string_view executingKey = "isExecuting";
constexpr std::string_view finishedKey = "isFinished";

}  // namespace

bool FRXConcurrentOperation::isStartable() {
  if (isCancelled()) {
    updateIsFinished(true);
    return false;
  }
  return !isFinished() && !isExecuting();
}

void FRXConcurrentOperation::updateIsExecuting(bool executing) {
  willChangeValueForKey(executingKey);
  setIsExecuting(executing);
  didChangeValueForKey(executingKey);
}

void FRXConcurrentOperation::updateIsFinished(bool finished) {
  willChangeValueForKey(finishedKey);
  setIsFinished(finished);
  didChangeValueForKey(finishedKey);
}

void FRXConcurrentOperation::finish() {
  updateIsExecuting(false);
  updateIsFinished(true);
}

std::optional<FRXError> FRXConcurrentOperation::error() const {
  const MutexLock lock(mutex_);
  return error_;
}

void FRXConcurrentOperation::setError(std::optional<FRXError> error) {
  const MutexLock lock(mutex_);
  error_ = std::move(error);
}

FRXDictionary FRXConcurrentOperation::userInfo() const {
  const MutexLock lock(mutex_);
  return userInfo_;
}

void FRXConcurrentOperation::setUserInfo(FRXDictionary userInfo) {
  const MutexLock lock(mutex_);
  userInfo_ = std::move(userInfo);
}

}  // namespace ferrox
