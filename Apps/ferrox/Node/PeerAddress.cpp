#include "Apps/ferrox/Node/PeerAddress.h"

#include <algorithm>
#include <charconv>

#include "Platform/Net/SocketAddress.h"

namespace ferrox::command {
namespace {

std::optional<std::uint16_t> portFromText(std::string_view text) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size() || port == 0) return std::nullopt;
  return port;
}

bool isHostNameByte(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return std::isalnum(byte) != 0 || c == '-' || c == '.' || c == '_' || byte >= 0x80;
}

bool isHostName(std::string_view text) {
  return !text.empty() && text.size() <= 255 && std::all_of(text.begin(), text.end(), isHostNameByte);
}

bool isIPv6Literal(std::string_view text) {
  const auto address = SocketAddress::fromText(text, wellKnownPort);
  return address && address->isIPv6();
}

std::optional<PeerAddress> fromBracketed(std::string_view text) {
  const std::size_t closing = text.find(']');
  if (closing == std::string_view::npos) return std::nullopt;
  PeerAddress address{std::string(text.substr(1, closing - 1))};
  if (!isIPv6Literal(address.host)) return std::nullopt;
  const std::string_view rest = text.substr(closing + 1);
  if (rest.empty()) return address;
  const auto port = rest[0] == ':' ? portFromText(rest.substr(1)) : std::nullopt;
  if (!port) return std::nullopt;
  address.port = *port;
  return address;
}

}  // namespace

std::optional<PeerAddress> PeerAddress::fromText(std::string_view text) {
  if (!text.empty() && text[0] == '[') return fromBracketed(text);
  if (isIPv6Literal(text)) return PeerAddress{std::string(text)};
  const std::size_t colon = text.find(':');
  PeerAddress address{std::string(text.substr(0, colon))};
  if (!isHostName(address.host)) return std::nullopt;
  if (colon == std::string_view::npos) return address;
  const auto port = portFromText(text.substr(colon + 1));
  if (!port) return std::nullopt;
  address.port = *port;
  return address;
}

std::string PeerAddress::text() const {
  const bool bracketed = host.find(':') != std::string::npos;
  return (bracketed ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string PeerAddress::url(std::string_view path) const {
  std::string authority = text();
  if (const std::size_t scope = authority.find('%'); scope != std::string::npos) {
    authority.replace(scope, 1, "%25");
  }
  return "http://" + authority + std::string(path);
}

}  // namespace ferrox::command
