// One process-wide place for an object that a higher layer hands to a lower one.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace ferrox {

/// The object of interface `Role` in use, if any. Thread: any
template <typename Role>
class Registration {
 public:
  static std::shared_ptr<Role> current() {
    const std::lock_guard lock(instance().mutex_);
    return instance().object_;
  }
  static void set(std::shared_ptr<Role> object) {
    // Swapped, so that the former object is destroyed outside the lock.
    const std::lock_guard lock(instance().mutex_);
    instance().object_.swap(object);
  }

 private:
  // Never destroyed, so that what ends late in the process may still ask.
  static Registration& instance() {
    static Registration& registration = *new Registration;
    return registration;
  }

  std::mutex mutex_;
  std::shared_ptr<Role> object_;
};

}  // namespace ferrox
