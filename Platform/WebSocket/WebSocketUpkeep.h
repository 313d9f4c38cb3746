// What the client sockets of a process share on the I/O thread: a buffer to read into, and one timer.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <unordered_set>
#include <vector>

#include "Platform/Net/IOThread.h"

namespace ferrox {

class WebSocketClientConnection;

/// Keeps connections alive and looks after them from time to time; without connections it does nothing.
/// Thread: the I/O thread
class WebSocketUpkeep {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static WebSocketUpkeep& shared();

  void add(std::shared_ptr<WebSocketClientConnection> connection);
  void remove(const std::shared_ptr<WebSocketClientConnection>& connection);
  /// A look is due at `when`, or a little later together with others.
  void lookAt(TimePoint when);

  /// Where whoever reads may put what was received, until it returns.
  std::span<char> readBuffer() { return readBuffer_; }

 private:
  WebSocketUpkeep();
  void look();

  IOThread& thread_;
  std::vector<char> readBuffer_;
  std::unordered_set<std::shared_ptr<WebSocketClientConnection>> connections_;
  std::optional<IOThread::Id> timer_;
  TimePoint timerDue_{};
};

}  // namespace ferrox
