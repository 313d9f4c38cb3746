// One thread that waits for sockets and timers on behalf of all outgoing connections.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Base/Mutex.h"
#include "Platform/Net/FileDescriptor.h"

namespace ferrox {

/// Runs short, non-blocking steps. What a step throws is logged and dropped.
class IOThread {
 public:
  using Task = std::function<void()>;
  using Id = std::uint64_t;
  using Duration = std::chrono::steady_clock::duration;

  IOThread();
  /// Ends the thread; what is still waiting is dropped without being run.
  ~IOThread();
  IOThread(const IOThread&) = delete;
  IOThread& operator=(const IOThread&) = delete;

  /// The process's thread, started on first use and never ended.
  static IOThread& shared();

  /// Runs `task` later, never inside this call, in the order of posting. Thread: any
  void post(Task task);
  bool isCurrentThread() const { return std::this_thread::get_id() == thread_.get_id(); }

  /// Calls `ready` whenever one of `events` (those of epoll) or an error is pending on the descriptor, until
  /// `unwatch`, which has to come before the descriptor is closed. Thread: this one
  Id watch(int descriptor, std::uint32_t events, Task ready);
  void unwatch(Id id);

  /// Calls `action` once after `delay`, unless cancelled before. Thread: this one
  Id startTimer(Duration delay, Task action);
  void cancelTimer(Id id);

 private:
  struct Watch {
    int descriptor;
    Task ready;
  };
  using TimePoint = std::chrono::steady_clock::time_point;

  void run();
  void wake();
  void runPosted();
  void runTimers();
  void waitForEvents();
  int millisecondsToNextTimer() const;

  FileDescriptor epoll_;
  FileDescriptor wakeUp_;
  std::atomic<bool> stopping_{false};

  Mutex mutex_;
  std::vector<Task> posted_ FRX_GUARDED_BY(mutex_);

  // Touched by the thread alone.
  Id nextId_ = 1;
  std::map<Id, std::shared_ptr<Watch>> watches_;
  std::map<std::pair<TimePoint, Id>, Task> timers_;
  std::map<Id, TimePoint> timerDeadlines_;

  std::thread thread_;
};

}  // namespace ferrox
