// Which programs of this machine have sockets on a port.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace ferrox::command {

struct SocketOwners {
  /// "name (process id)"; other than this process. Programs of other users may be hidden.
  std::set<std::string> programs;
  /// Whether there is such a socket at all, this process's included.
  bool any = false;
};

enum class SocketKind { BoundUDP, ListeningTCP };

SocketOwners ownersOfPort(SocketKind kind, std::uint16_t port);

}  // namespace ferrox::command
