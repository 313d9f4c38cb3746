#include "Classes/Discovery/FRXPeerAddress.h"

#include <charconv>
#include <utility>

#include "Classes/Discovery/FRXPeerCheck.h"

namespace ferrox {
namespace {

std::optional<std::uint16_t> portFromText(std::string_view text) {
  std::uint16_t port = 0;
  const char* end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, port);
  if (problem != std::errc() || stop != end || port == 0) return std::nullopt;
  return port;
}

bool isIPv6(std::string_view host) { return host.find(':') != std::string_view::npos; }

}  // namespace

std::optional<FRXPeerAddress> FRXPeerAddress::make(std::string_view host, std::uint16_t port) {
  const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (port == 0 || bracketed != (bracketed && isIPv6(host)) || !isPlausibleHostName(host)) {
    return std::nullopt;
  }
  return FRXPeerAddress(std::string(host), port);
}

std::optional<FRXPeerAddress> FRXPeerAddress::fromText(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  const bool hasPort =
      colon != std::string_view::npos && (text.find(':') == colon || (colon > 0 && text[colon - 1] == ']'));
  if (!hasPort) return make(text);
  const std::optional<std::uint16_t> port = portFromText(text.substr(colon + 1));
  return port ? make(text.substr(0, colon), *port) : std::nullopt;
}

std::string FRXPeerAddress::url(std::string_view path) const {
  std::string host = host_;
  if (isIPv6(host)) {
    if (const std::size_t percent = host.find('%'); percent != std::string::npos) {
      host.replace(percent, 1, "%25");
    }
    host = "[" + host + "]";
  }
  return "http://" + host + ":" + std::to_string(port_) + std::string(path);
}

}  // namespace ferrox
