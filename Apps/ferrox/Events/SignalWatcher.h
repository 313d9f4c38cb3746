// Signals as ordinary events: taken from a descriptor by a thread, handled on a run loop.
#pragma once

#include <csignal>
#include <functional>
#include <initializer_list>
#include <thread>

namespace ferrox {
class RunLoop;
}

namespace ferrox::command {

/// Blocks SIGINT, SIGTERM, SIGHUP and SIGWINCH in the calling thread and those it starts later, and ignores
/// SIGPIPE. Call it in `main` before anything else; a watcher or a signal descriptor then receives them.
void blockSignals();

/// A descriptor from which SIGINT, SIGTERM and SIGHUP are read (signalfd(2)); the caller closes it.
int makeEndSignalDescriptor();

/// Thread: the loop's, also for destruction.
class SignalWatcher {
 public:
  /// `onSignal` is called on the loop with the signal's number. A second SIGINT or SIGTERM while the first
  /// is still being dealt with ends the process at once with status 130: a clean end must never be able to
  /// hang for good.
  SignalWatcher(RunLoop& loop, std::initializer_list<int> signals, std::function<void(int)> onSignal);
  ~SignalWatcher();
  SignalWatcher(const SignalWatcher&) = delete;
  SignalWatcher& operator=(const SignalWatcher&) = delete;

 private:
  void work();

  RunLoop& loop_;
  std::function<void(int)> onSignal_;
  int signalDescriptor_;
  int stopDescriptor_;
  std::thread thread_;
};

}  // namespace ferrox::command
