// The sockets that the transfer library holds for us.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string_view>

namespace ferrox {

/// Tells which socket a transfer uses: the library says so only after its end, but names the local address
/// at any time. Must outlive the library's handles. Thread: the transfer thread
class OpenSockets {
 public:
  void add(int socket) { sockets_.insert(socket); }
  void close(int socket);
  /// The one bound to this local address.
  std::optional<int> find(std::string_view localAddress, std::uint16_t localPort) const;

 private:
  std::set<int> sockets_;
};

}  // namespace ferrox
