// An operation that a test ends when it likes.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <utility>

#include "Platform/Queues/Operation.h"

namespace ferrox::test {

/// Starts and then waits for the test to finish it, unless it is made to finish at once.
class TestOperation : public Operation {
 public:
  explicit TestOperation(std::string name = {}, bool finishesAtOnce = false)
      : name_(std::move(name)), finishesAtOnce_(finishesAtOnce) {}

  void start() override {
    ++starts;
    if (onStart) onStart();
    if (isCancelled() || finishesAtOnce_) return setFinished();
    if (!announcesExecuting) return;
    willChangeValueForKey("isExecuting");
    executing_ = true;
    didChangeValueForKey("isExecuting");
  }
  bool isExecuting() const override { return executing_; }
  bool isFinished() const override { return finished_; }
  bool isEqual(const Operation& other) const override {
    const auto* same = dynamic_cast<const TestOperation*>(&other);
    return same == this || (same != nullptr && !name_.empty() && same->name_ == name_);
  }

  void finish() {
    willChangeValueForKey("isExecuting");
    executing_ = false;
    didChangeValueForKey("isExecuting");
    setFinished();
  }

  std::atomic<int> starts{0};
  bool announcesExecuting = true;
  std::function<void()> onStart;

 private:
  void setFinished() {
    willChangeValueForKey("isFinished");
    finished_ = true;
    didChangeValueForKey("isFinished");
  }

  const std::string name_;
  const bool finishesAtOnce_;
  std::atomic<bool> executing_{false};
  std::atomic<bool> finished_{false};
};

}  // namespace ferrox::test
