// One IPv4 or IPv6 address with port and, for link-local addresses, the interface it is valid on.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"

namespace ferrox {

/// A value. An IPv4 address in IPv6 clothes ("::ffff:10.0.0.7", as dual-stack sockets report it) is kept as
/// the IPv4 address it is. A default one is no address: empty text, port 0. Thread: any
class FRX_EXPORT SocketAddress {
 public:
  SocketAddress() = default;
  /// Nothing unless `text` is an IP literal (an IPv6 one may carry %scope).
  static std::optional<SocketAddress> fromText(std::string_view text, std::uint16_t port);
  /// No address when the family is neither IPv4 nor IPv6 or the length is too short for it.
  static SocketAddress fromNative(const sockaddr* address, socklen_t length);

  /// For example "10.0.0.7" or "fe80::1%eth0"; without the port.
  std::string hostText() const;
  std::uint16_t port() const;
  void setPort(std::uint16_t port);
  bool isIPv6() const { return storage_.ss_family == AF_INET6; }
  bool isLoopback() const;
  bool isLinkLocal() const;

  const sockaddr* native() const { return reinterpret_cast<const sockaddr*>(&storage_); }
  socklen_t nativeLength() const { return length_; }
  bool operator==(const SocketAddress& other) const;

 private:
  sockaddr_storage storage_{};
  socklen_t length_ = 0;
};

}  // namespace ferrox
