// A thread that moves the bytes of its connections, and sweeps them for deadlines.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "Platform/HTTP/Server/Session.h"

namespace boost::asio {
class io_context;
}

namespace ferrox {

/// Thread: network, unless said otherwise
class NetworkThread {
 public:
  explicit NetworkThread(std::chrono::milliseconds sweepInterval);
  ~NetworkThread();
  NetworkThread(const NetworkThread&) = delete;
  NetworkThread& operator=(const NetworkThread&) = delete;

  void start();
  /// Aborts every session, present and future; tasks still run. Thread: any
  void abortAll();
  /// Runs what is left and waits for the thread; to be called after `abortAll`, when nobody posts any more
  /// what would keep a session. Thread: any but this one
  void join();

  /// Runs `task` later, never inside this call; kept unrun once the thread has ended. Thread: any
  void post(std::function<void()> task);
  bool isCurrent() const;

  /// Runs `task` later, one such task between two looks at the sockets: bulk transfers take turns here, and
  /// a small request waits for one of their steps at most, however many they are.
  void takeTurn(std::function<void()> task);

  /// Keeps `session` alive and sweeps it until `release`.
  void adopt(std::shared_ptr<Session> session);
  void release(Session& session);

  /// The time of the last sweep: exact to one interval, and free.
  Session::Instant now() const { return now_; }
  std::chrono::milliseconds sweepInterval() const { return sweepInterval_; }
  /// True when something that has lasted since `start` has outlived `limit`; never early.
  bool hasExpired(Session::Instant start, std::chrono::milliseconds limit) const {
    return now_ - start >= limit + sweepInterval_;
  }
  /// The value of a `Date` header, made anew once a second.
  const std::string& dateText();

  boost::asio::io_context& context();

 private:
  void postTurn();
  void runTurn();
  void scheduleSweep();
  void sweep();
  void abortSessions();

  struct Impl;
  std::unique_ptr<Impl> impl_;
  const std::chrono::milliseconds sweepInterval_;
  Session::Instant now_;
  std::string dateText_;
  long dateSecond_ = -1;
};

}  // namespace ferrox
