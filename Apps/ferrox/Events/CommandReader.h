// Reads lines from a descriptor on a thread of its own and hands them to a run loop.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Apps/ferrox/Events/LineSplitter.h"

namespace ferrox {
class RunLoop;
}

namespace ferrox::command {

/// Works on pipes, files and terminals alike. Reads on only when the loop has dealt with what was read, so
/// that a flood of lines piles up in the pipe and not in this process.
class CommandReader {
 public:
  struct Listener {
    std::function<void(std::string line)> onLine;
    std::function<void()> onTooLong;
    /// Nothing follows it.
    std::function<void()> onEnd;
  };

  /// `descriptor` is borrowed. The listener is called on the loop. Thread: the loop's, also for destruction;
  /// nothing is called after that.
  CommandReader(int descriptor, RunLoop& loop, Listener listener);
  ~CommandReader();
  CommandReader(const CommandReader&) = delete;
  CommandReader& operator=(const CommandReader&) = delete;

 private:
  struct State;
  void work();
  bool waitForInput() const;
  bool handOver(std::string bytes);

  const int descriptor_;
  const int stopDescriptor_;
  RunLoop& loop_;
  std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace ferrox::command
