// A node in a process of its own, driven by events and commands as any other program would drive it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Apps/ferrox/Events/LineSplitter.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox::command {

/// One line that a child wrote, and when it arrived here.
struct ChildEvent {
  std::string name;
  FRXValue members;
  std::chrono::steady_clock::time_point arrival;
};

/// Killed, and waited for, when destroyed. Thread: one
class ChildNode {
 public:
  /// Starts this very program as `run --json` with more arguments. Its stderr is this process's. Nothing,
  /// with `problem` saying why, when it cannot be started.
  static std::unique_ptr<ChildNode> spawn(const std::vector<std::string>& arguments, std::string& problem);
  ~ChildNode();
  ChildNode(const ChildNode&) = delete;
  ChildNode& operator=(const ChildNode&) = delete;

  /// Readable when there is something to read; -1 once the child has closed its end.
  int descriptor() const { return output_; }
  /// Takes in what has arrived, without blocking.
  void readAvailable();
  const std::vector<ChildEvent>& events() const { return events_; }

  void send(const FRXDictionary& command);
  void kill(int signalNumber);
  /// The status as waitpid(2) gives it, once the process has ended. Does not block.
  std::optional<int> status();

  std::chrono::steady_clock::time_point startTime() const { return startTime_; }
  pid_t processId() const { return processId_; }

 private:
  ChildNode(pid_t processId, int input, int output);
  void takeLine(const std::string& line);

  pid_t processId_;
  int input_;
  int output_;
  std::optional<int> status_;
  std::chrono::steady_clock::time_point startTime_;
  std::vector<ChildEvent> events_;
  LineSplitter splitter_;
};

}  // namespace ferrox::command
