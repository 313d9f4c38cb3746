// A loopback port that answers no connection attempt, like a host that drops packets.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ferrox::test {

/// A listener whose queue is full: the kernel drops further attempts without a word.
class BlackHole {
 public:
  explicit BlackHole(const std::string& address = "127.0.0.1");
  ~BlackHole();
  BlackHole(const BlackHole&) = delete;
  BlackHole& operator=(const BlackHole&) = delete;

  std::uint16_t port() const { return port_; }

 private:
  std::vector<int> sockets_;
  std::uint16_t port_ = 0;
};

/// A loopback port on which nothing listens at the moment.
std::uint16_t unusedPort(const std::string& address = "127.0.0.1");

}  // namespace ferrox::test
