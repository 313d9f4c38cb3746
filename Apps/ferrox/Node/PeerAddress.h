// Where a peer can be asked for its record: a host and a port, as people write them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ferrox::command {

/// The port at which instances expect each other.
inline constexpr std::uint16_t wellKnownPort = 16654;

struct PeerAddress {
  /// A host name or an IP literal; an IPv6 one without brackets.
  std::string host;
  std::uint16_t port = wellKnownPort;

  /// Reads HOST, HOST:PORT, an IPv6 literal, or [IPv6]:PORT. Nothing for anything else, port 0 included.
  static std::optional<PeerAddress> fromText(std::string_view text);
  /// As read: with brackets where needed, the port always.
  std::string text() const;
  /// http://HOST:PORT/PATH; an IPv6 scope is written as RFC 6874 asks.
  std::string url(std::string_view path) const;

  bool operator==(const PeerAddress&) const = default;
};

}  // namespace ferrox::command
