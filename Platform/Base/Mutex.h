// A mutex that clang's thread-safety analysis knows, so that a member can say what guards it.
#pragma once

#include <mutex>

#if defined(__clang__)
#define FRX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define FRX_THREAD_ANNOTATION(x)
#endif

/// The member may be touched only while that mutex is held.
#define FRX_GUARDED_BY(mutex) FRX_THREAD_ANNOTATION(guarded_by(mutex))
/// The function is called with that mutex held.
#define FRX_REQUIRES(mutex) FRX_THREAD_ANNOTATION(requires_capability(mutex))
/// The function takes that mutex itself.
#define FRX_EXCLUDES(mutex) FRX_THREAD_ANNOTATION(locks_excluded(mutex))

namespace ferrox {

/// `std::mutex` under the analysis. Waits with `std::condition_variable_any::wait(mutex)`.
class FRX_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  void lock() FRX_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() FRX_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a mutex for a scope.
class FRX_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) FRX_THREAD_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.lock();
  }
  ~MutexLock() FRX_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace ferrox
