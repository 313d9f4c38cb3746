// The listening socket: accepts, and rests a moment when descriptors run out.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <memory>

#include "Platform/Base/FRXError.h"

namespace ferrox {

class NetworkThread;

inline constexpr const char* HTTPServerErrorDomain = "com.ferrox.httpserver.ErrorDomain";

/// Thread: one before `start`, then the network thread it was given
class Listener {
 public:
  using Accepted = std::function<void(int descriptor, const sockaddr_storage& peer)>;

  Listener();
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  /// Binds all addresses of both families, or of IPv4 where there is no IPv6.
  [[nodiscard]] bool bind(std::uint16_t port, FRXError* error);
  std::uint16_t port() const { return port_; }

  /// `accepted` owns the descriptor. Must be closed on the same thread before that one ends.
  void start(NetworkThread& thread, Accepted accepted);
  void close();

 private:
  void wait();
  void acceptAll();
  void rest();

  struct Impl;
  std::unique_ptr<Impl> impl_;
  Accepted accepted_;
  int descriptor_ = -1;
  std::uint16_t port_ = 0;
  /// Since descriptors ran out; said once, not at every attempt.
  bool resting_ = false;
};

}  // namespace ferrox
