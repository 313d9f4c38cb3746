#include "Platform/DNSSD/MulticastSocket.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace ferrox::dnssd {
namespace {

constexpr std::uint16_t mdnsPort = 5353;
constexpr const char* groupIPv4 = "224.0.0.251";
constexpr const char* groupIPv6 = "ff02::fb";

template <class Value>
bool setOption(int fd, int level, int name, const Value& value) {
  return ::setsockopt(fd, level, name, &value, sizeof value) == 0;
}

// RFC 6762 section 11: packets carry a time to live of 255.
bool prepareIPv4(int fd, int interfaceIndex, MulticastSocket::Kind kind) {
  ip_mreqn request{};
  request.imr_ifindex = interfaceIndex;
  inet_pton(AF_INET, groupIPv4, &request.imr_multiaddr);
  const int hops = kind == MulticastSocket::Kind::ThisHostOnly ? 0 : 255;
  if (!setOption(fd, IPPROTO_IP, IP_MULTICAST_IF, request)) return false;
  if (!setOption(fd, IPPROTO_IP, IP_MULTICAST_TTL, hops)) return false;
  if (!setOption(fd, IPPROTO_IP, IP_MULTICAST_LOOP, 1)) return false;
  return kind != MulticastSocket::Kind::Shared || (setOption(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, request) &&
                                                   setOption(fd, IPPROTO_IP, IP_MULTICAST_ALL, 0));
}

bool prepareIPv6(int fd, int interfaceIndex, MulticastSocket::Kind kind) {
  ipv6_mreq request{};
  request.ipv6mr_interface = static_cast<unsigned>(interfaceIndex);
  inet_pton(AF_INET6, groupIPv6, &request.ipv6mr_multiaddr);
  const int hops = kind == MulticastSocket::Kind::ThisHostOnly ? 0 : 255;
  if (!setOption(fd, IPPROTO_IPV6, IPV6_V6ONLY, 1)) return false;
  if (!setOption(fd, IPPROTO_IPV6, IPV6_MULTICAST_IF, interfaceIndex)) return false;
  if (!setOption(fd, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, hops)) return false;
  if (!setOption(fd, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, 1)) return false;
  return kind != MulticastSocket::Kind::Shared || (setOption(fd, IPPROTO_IPV6, IPV6_JOIN_GROUP, request) &&
                                                   setOption(fd, IPPROTO_IPV6, IPV6_MULTICAST_ALL, 0));
}

bool bindTo(int fd, bool ipv6, std::uint16_t port) {
  if (ipv6) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    return ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool prepare(int fd, const Place& place, MulticastSocket::Kind kind) {
  const bool ownPort = kind == MulticastSocket::Kind::OneShot;
  if (!ownPort &&
      (!setOption(fd, SOL_SOCKET, SO_REUSEADDR, 1) || !setOption(fd, SOL_SOCKET, SO_REUSEPORT, 1))) {
    return false;
  }
  const bool prepared =
      place.ipv6 ? prepareIPv6(fd, place.interfaceIndex, kind) : prepareIPv4(fd, place.interfaceIndex, kind);
  return prepared && bindTo(fd, place.ipv6, ownPort ? 0 : mdnsPort);
}

}  // namespace

std::unique_ptr<MulticastSocket> MulticastSocket::open(const Place& place, Kind kind) {
  const int fd = ::socket(place.ipv6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return nullptr;
  std::unique_ptr<MulticastSocket> made(new MulticastSocket(fd, place));
  if (!prepare(fd, place, kind)) return nullptr;
  return made;
}

MulticastSocket::~MulticastSocket() {
  const int reason = errno;
  ::close(descriptor_);
  errno = reason;
}

bool MulticastSocket::send(std::string_view packet) {
  if (place_.ipv6) {
    sockaddr_in6 group{};
    group.sin6_family = AF_INET6;
    group.sin6_port = htons(mdnsPort);
    group.sin6_scope_id = static_cast<std::uint32_t>(place_.interfaceIndex);
    inet_pton(AF_INET6, groupIPv6, &group.sin6_addr);
    return ::sendto(descriptor_, packet.data(), packet.size(), MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&group), sizeof group) >= 0;
  }
  sockaddr_in group{};
  group.sin_family = AF_INET;
  group.sin_port = htons(mdnsPort);
  inet_pton(AF_INET, groupIPv4, &group.sin_addr);
  return ::sendto(descriptor_, packet.data(), packet.size(), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&group), sizeof group) >= 0;
}

std::optional<std::string> MulticastSocket::receive(SocketAddress* from) {
  std::array<char, 9000> buffer;
  sockaddr_storage sender{};
  socklen_t length = sizeof sender;
  ssize_t size = -1;
  do {
    size = ::recvfrom(descriptor_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&sender),
                      &length);
  } while (size < 0 && errno == EINTR);
  if (size < 0) return std::nullopt;
  if (from != nullptr) *from = SocketAddress::fromNative(reinterpret_cast<const sockaddr*>(&sender), length);
  return std::string(buffer.data(), static_cast<std::size_t>(size));
}

}  // namespace ferrox::dnssd
