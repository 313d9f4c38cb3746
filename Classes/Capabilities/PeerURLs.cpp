#include "Classes/Capabilities/PeerURLs.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "Classes/Discovery/FRXPeerCheck.h"
#include "Classes/Utilities/PercentCoding.h"

namespace ferrox {
namespace {

/// Longer than any request line that servers accept.
constexpr std::size_t longestURL = 8192;

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f'); }

/// What may stand in path and query (RFC 3986 sections 3.3 and 3.4), "%" apart.
bool standsForItself(char c) {
  constexpr std::string_view marks = "-._~!$&'()*+,;=:@/?";
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         marks.find(c) != std::string_view::npos;
}

bool isPathAndQuery(std::string_view text) {
  if (!text.empty() && text.front() != '/') return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (standsForItself(text[i])) continue;
    if (text[i] != '%' || i + 2 >= text.size() || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2])) {
      return false;
    }
    i += 2;
  }
  return true;
}

/// Nothing for what cannot name a host.
std::string hostOfURL(std::string_view hostName) {
  const bool isBracketed = hostName.starts_with('[') && hostName.ends_with(']');
  if (isBracketed) hostName = hostName.substr(1, hostName.size() - 2);
  if (hostName.find(':') == std::string_view::npos) {
    const bool isName = !isBracketed && isPlausibleHostName(hostName);
    return isName ? percentEncoded(hostName, PercentSet::Host) : std::string();
  }
  // Records hold zones in upper case, so that an interface of that name may not exist here.
  const std::size_t percent = hostName.find('%');
  if (!isPlausibleHostName(hostName.substr(0, percent))) return {};
  std::string host = "[" + std::string(hostName.substr(0, percent));
  if (percent != std::string_view::npos) {
    std::string_view zone = hostName.substr(percent + 1);
    if (zone.starts_with("25") && isBracketed) zone.remove_prefix(2);
    if (zone.empty() || zone.find('/') != std::string_view::npos ||
        !isPathAndQuery("/" + std::string(zone))) {
      return {};
    }
    host.append("%25").append(zone);
  }
  return host + "]";
}

}  // namespace

std::optional<std::string> portOfPeer(const FRXValue* port) {
  constexpr std::int64_t highest = std::numeric_limits<std::uint16_t>::max();
  if (port == nullptr || port->isNull()) return "(null)";
  if (const std::int64_t* number = port->asInteger()) {
    return *number >= 0 && *number <= highest ? std::optional(std::to_string(*number)) : std::nullopt;
  }
  if (const double* number = port->asDouble()) {
    const bool isPort = *number >= 0 && *number <= highest && *number == std::floor(*number);
    return isPort ? std::optional(std::to_string(static_cast<std::int64_t>(*number))) : std::nullopt;
  }
  const std::string* text = port->asText();
  if (text == nullptr) return std::nullopt;
  std::uint16_t number = 0;
  const char* end = text->data() + text->size();
  const auto [stop, problem] = std::from_chars(text->data(), end, number);
  return problem == std::errc() && stop == end ? std::optional(std::to_string(number)) : std::nullopt;
}

PeerURLs::PeerURLs(std::string_view hostName) {
  const std::string host = hostOfURL(hostName);
  if (!host.empty()) beginning_ = "http://" + host + ":";
}

std::optional<std::string> PeerURLs::url(std::string_view port, std::string_view path) const {
  if (beginning_.empty() || !isPathAndQuery(path)) return std::nullopt;
  const std::size_t size = beginning_.size() + port.size() + path.size();
  if (size > longestURL) return std::nullopt;
  std::string url;
  url.reserve(size);
  url.append(beginning_).append(port).append(path);
  return url;
}

}  // namespace ferrox
