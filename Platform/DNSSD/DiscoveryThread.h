// The one thread on which discovery lives, with its timers and descriptor watches.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace boost::asio {
class io_context;
}

namespace ferrox::dnssd {

/// Ends what it stands for when destroyed; its action does not run afterwards. Thread: discovery
class Pending {
 public:
  virtual ~Pending() = default;
};

class DiscoveryThread : public std::enable_shared_from_this<DiscoveryThread> {
 public:
  using Task = std::function<void()>;

  static std::shared_ptr<DiscoveryThread> make();
  ~DiscoveryThread();
  DiscoveryThread(const DiscoveryThread&) = delete;
  DiscoveryThread& operator=(const DiscoveryThread&) = delete;

  /// Runs `task` later. Dropped once the thread has ended. A task that throws is logged. Thread: any
  void post(Task task);
  /// Ends the thread after running `last` on it. Waits for at most `patience`; a thread that is stuck by
  /// then (in a call to a hung daemon) is left to end by itself. Returns whether it ended. Thread: any other
  bool finish(Task last, std::chrono::milliseconds patience);
  /// Thread: any
  bool isCurrent() const;

  /// Thread: discovery
  [[nodiscard]] std::unique_ptr<Pending> after(std::chrono::milliseconds delay, Task action);
  /// Calls `action` whenever `descriptor` is readable. The descriptor stays the caller's, and open until the
  /// watch is destroyed. Empty when it cannot be watched. Thread: discovery
  [[nodiscard]] std::unique_ptr<Pending> watchReadable(int descriptor, Task action);
  /// Thread: discovery
  boost::asio::io_context& context();

 private:
  DiscoveryThread();
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ferrox::dnssd
