#include "Platform/WebSocket/WebSocketURL.h"

#include <algorithm>
#include <boost/url/parse.hpp>
#include <string_view>
#include <utility>

#include "Platform/Base/Utf8.h"
#include "Platform/Net/HostName.h"
#include "Platform/Net/SocketAddress.h"
#include "Platform/WebSocket/WebSocketClient.h"

namespace ferrox {
namespace {

constexpr std::uint16_t defaultPort = 80;
constexpr std::size_t maxLength = 8192;

bool isPrintableAscii(char c) { return c > ' ' && c < '\x7F'; }

// RFC 3987 section 3.1: what is not ASCII is escaped byte by byte.
std::string escapedBeyondAscii(std::string_view text) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      escaped += c;
    } else {
      escaped += {'%', digits[byte >> 4], digits[byte & 15]};
    }
  }
  return escaped;
}

bool isZone(std::string_view zone) {
  return !zone.empty() && std::all_of(zone.begin(), zone.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
           c == '.' || c == '_' || c == '~';
  });
}

/// Takes the zone out of "[fe80::1%25eth0]" (RFC 6874; a bare per cent sign is taken too), which the parser
/// does not know. False when what stands there is no zone.
bool takeZone(std::string& url, std::string& zone) {
  const std::size_t open = url.find("//[");
  if (open == std::string::npos) return true;
  const std::size_t close = url.find(']', open);
  const std::size_t mark = url.find('%', open);
  if (close == std::string::npos || mark > close) return true;
  const std::size_t begin = url.compare(mark, 3, "%25") == 0 ? mark + 3 : mark + 1;
  if (begin > close) return false;
  zone = url.substr(begin, close - begin);
  url.erase(mark, close - mark);
  return isZone(zone);
}

}  // namespace

std::optional<WebSocketURL> WebSocketURL::parse(const std::string& text, FRXError* error) {
  const auto bad = [error](std::string why) {
    setError(error, {WebSocketClientErrorDomain, WebSocketClientErrorBadURL, std::move(why)});
    return std::nullopt;
  };
  if (text.size() > maxLength) return bad("The URL is too long");
  if (!isUtf8(text)) return bad("The URL is not UTF-8");
  std::string plain = escapedBeyondAscii(text), zone;
  if (!std::all_of(plain.begin(), plain.end(), isPrintableAscii)) {
    return bad("The URL holds blanks or control characters");
  }
  if (!takeZone(plain, zone)) return bad("The URL names an unusable zone");
  const auto url = boost::urls::parse_uri(plain);
  if (!url) return bad("The text is no URL");
  if (url->scheme_id() != boost::urls::scheme::ws) return bad("Only ws URLs can be opened");
  if (url->has_userinfo()) return bad("The URL must not hold user information");
  if (url->has_fragment()) return bad("The URL must not hold a fragment");
  // The parser takes letters behind a port for a path.
  if (!url->encoded_path().empty() && !url->encoded_path().starts_with('/'))
    return bad("The URL's port is none");
  const bool isIPv6 = url->host_type() == boost::urls::host_type::ipv6;
  if (url->host_type() == boost::urls::host_type::ipvfuture) return bad("The URL names no usable host");
  WebSocketURL parsed;
  parsed.host = isIPv6 ? std::string(url->host_address()) : url->host();
  if (!isUsableHostName(parsed.host) || !isUtf8(parsed.host)) return bad("The URL names no usable host");
  if (!zone.empty()) parsed.host += "%" + zone;
  parsed.port = url->port().empty() ? defaultPort : url->port_number();
  if (parsed.port == 0) return bad("The URL names no usable port");
  parsed.authority = std::string(url->encoded_host()) + ":" + std::to_string(parsed.port);
  parsed.target = url->encoded_path().empty() ? "/" : std::string(url->encoded_path());
  if (url->has_query()) parsed.target.append("?").append(url->encoded_query());
  return parsed;
}

}  // namespace ferrox
