#include "Tests/Support/BlackHole.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "Platform/Net/SocketAddress.h"

namespace ferrox::test {
namespace {

int boundSocket(const std::string& address, std::uint16_t& port) {
  const auto where = SocketAddress::fromText(address, 0);
  if (!where) throw std::invalid_argument("not an address: " + address);
  const int socket = ::socket(where->native()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_storage bound{};
  socklen_t size = sizeof(bound);
  if (::bind(socket, where->native(), where->nativeLength()) != 0 ||
      ::getsockname(socket, reinterpret_cast<sockaddr*>(&bound), &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "bind to " + address);
  }
  port = SocketAddress::fromNative(reinterpret_cast<const sockaddr*>(&bound), size).port();
  return socket;
}

// Whether a further attempt was still answered; the attempt stays open.
bool isAnswered(const std::string& address, std::uint16_t port, std::vector<int>& sockets) {
  const auto where = SocketAddress::fromText(address, port);
  const int socket = ::socket(where->native()->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockets.push_back(socket);
  if (::connect(socket, where->native(), where->nativeLength()) == 0) return true;
  pollfd waiting{socket, POLLOUT, 0};
  return ::poll(&waiting, 1, 100) > 0;
}

}  // namespace

BlackHole::BlackHole(const std::string& address) {
  sockets_.push_back(boundSocket(address, port_));
  ::listen(sockets_.front(), 0);
  constexpr int mostAttempts = 32;
  for (int i = 0; i < mostAttempts; ++i) {
    if (!isAnswered(address, port_, sockets_)) return;
  }
  throw std::runtime_error("the listener's queue does not fill");
}

BlackHole::~BlackHole() {
  for (const int socket : sockets_) ::close(socket);
}

std::uint16_t unusedPort(const std::string& address) {
  std::uint16_t port = 0;
  ::close(boundSocket(address, port));
  return port;
}

}  // namespace ferrox::test
