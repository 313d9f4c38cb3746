// The main thread's loop: posted tasks and timers, one after another, on one thread.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "Platform/Base/Export.h"
#include "Platform/RunLoop/Clock.h"

namespace ferrox {

/// Runs tasks and timers on the one thread that drives it. Three ways to drive it:
///  - `run()`: this thread works for the loop until `stop()`;
///  - from a foreign loop: watch `descriptor()` for readability and call `runPending()`;
///  - `startThread()`: a thread of its own.
/// The loop becomes bound to the thread that drives it first.
class FRX_EXPORT RunLoop {
 public:
  using Task = std::function<void()>;

  /// Throws `std::system_error` when the process has no descriptors left.
  explicit RunLoop(const Clock& clock = Clock::system());
  ~RunLoop();
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  /// The process's main loop, made on first use and never destroyed. Thread: any
  static RunLoop& main();

  /// Runs `task` later, never inside this call, in the order of posting. A task that throws is logged and
  /// dropped. Thread: any
  void post(Task task);
  /// Runs `task` now when already on the loop's thread, else posts it (also while no thread has driven the
  /// loop yet). Thread: any
  void postOrRun(Task task);

  /// Works until `stop()`. Thread: becomes the loop's
  void run();
  /// Works until `done()` holds or `timeout` of real time is over; returns whether it held. `done` is asked
  /// at the beginning and after every turn. `stop()` does not end it. Thread: becomes the loop's
  bool runUntil(const std::function<bool()>& done, Clock::Duration timeout);
  /// Ends `run()` after the current task; the next `run()` when none is under way. Tasks that were not run
  /// stay posted. Thread: any
  void stop();

  /// Drives the loop from a thread of its own until `stopThread()`, which waits for it.
  void startThread();
  void stopThread();

  /// Readable (poll, epoll, GLib, Qt) whenever `runPending()` has something to do. Owned by the loop.
  int descriptor() const;
  /// Runs what is due now, without blocking; returns how many tasks and timers ran.
  std::size_t runPending();

  /// True on the loop's thread, and anywhere while no thread has driven it yet. Thread: any
  bool isCurrentThread() const;

  const Clock& clock() const;

 private:
  friend class Timer;
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace ferrox
