// What lives on one accepted socket: an HTTP connection, later perhaps a WebSocket.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

namespace ferrox {

/// Bound for life to one network thread, which calls everything here.
/// Thread: network
class Session : public std::enable_shared_from_this<Session> {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  Session() = default;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  virtual ~Session() = default;

  /// `bytes` arrived in the space given to the channel; 0 when the peer has ended its side.
  virtual void didReceive(std::size_t bytes) = 0;
  virtual void didBecomeWritable() = 0;
  /// The socket is of no more use.
  virtual void didFail() = 0;
  /// Called every now and then, so that deadlines need no timer each.
  virtual void sweep(Instant now) = 0;
  /// The server stops: close without ceremony.
  virtual void abort() = 0;
};

}  // namespace ferrox
