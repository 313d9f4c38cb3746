// Where a peer is asked that announces nothing here: a checked host name or IP address, and a port.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"

namespace ferrox {

/// The port that instances listen on unless told otherwise.
inline constexpr std::uint16_t FRXDefaultPort = 16654;

/// Thread: any
class FRX_EXPORT FRXPeerAddress {
 public:
  /// `host` is a host name or an IP address, an IPv6 one with or without brackets. Nothing for anything
  /// else, and for port 0.
  static std::optional<FRXPeerAddress> make(std::string_view host, std::uint16_t port = FRXDefaultPort);
  /// Reads HOST or HOST:PORT. An IPv6 address needs brackets to be followed by a port.
  static std::optional<FRXPeerAddress> fromText(std::string_view text);

  /// Without brackets.
  const std::string& host() const { return host_; }
  std::uint16_t port() const { return port_; }
  /// "http://HOST:PORT" and `path`; IPv6 addresses in brackets, their scope written as RFC 6874 asks.
  std::string url(std::string_view path) const;

  bool operator==(const FRXPeerAddress&) const = default;

 private:
  FRXPeerAddress(std::string host, std::uint16_t port) : host_(std::move(host)), port_(port) {}
  std::string host_;
  std::uint16_t port_;
};

}  // namespace ferrox
