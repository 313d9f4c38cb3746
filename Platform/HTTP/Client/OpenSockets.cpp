#include "Platform/HTTP/Client/OpenSockets.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "Platform/Net/SocketAddress.h"

namespace ferrox {
namespace {

SocketAddress localAddressOf(int socket) {
  sockaddr_storage address{};
  socklen_t size = sizeof(address);
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return {};
  return SocketAddress::fromNative(reinterpret_cast<const sockaddr*>(&address), size);
}

// The zone is left out: the port tells sockets of one address apart.
bool isHost(const SocketAddress& address, std::string_view text) {
  const auto host = address.hostText();
  return std::string_view(host).substr(0, host.find('%')) == text.substr(0, text.find('%'));
}

}  // namespace

void OpenSockets::close(int socket) {
  sockets_.erase(socket);
  ::close(socket);
}

std::optional<int> OpenSockets::find(std::string_view localAddress, std::uint16_t localPort) const {
  const auto found = std::find_if(sockets_.begin(), sockets_.end(), [&](int socket) {
    const auto address = localAddressOf(socket);
    return address.port() == localPort && isHost(address, localAddress);
  });
  if (found == sockets_.end()) return std::nullopt;
  return *found;
}

}  // namespace ferrox
