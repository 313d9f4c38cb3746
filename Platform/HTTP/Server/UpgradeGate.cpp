#include "Platform/HTTP/Server/UpgradeGate.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>

namespace ferrox {

namespace {

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return result;
}

bool isBracketed(std::string_view host) {
  return host.size() > 2 && host.front() == '[' && host.back() == ']';
}

std::string_view hostOf(std::string_view authority) {
  const std::size_t bracket = authority.rfind(']');
  const std::size_t colon = authority.find(':', bracket == std::string_view::npos ? 0 : bracket);
  return authority.substr(0, colon);
}

bool isAddress(std::string_view host) {
  in6_addr address{};
  if (!isBracketed(host)) return ::inet_pton(AF_INET, std::string(host).c_str(), &address) == 1;
  const std::string_view inner = host.substr(1, host.size() - 2);
  return ::inet_pton(AF_INET6, std::string(inner.substr(0, inner.find('%'))).c_str(), &address) == 1;
}

bool isOwnName(const std::string& host) {
  char name[256] = {};
  if (::gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return false;
  const std::string own = lowered(name);
  return host == own || host == own.substr(0, own.find('.'));
}

/// Origins and authorities with the port that goes without saying left out.
std::string withoutDefaultPort(std::string text, std::string_view port) {
  if (text.ends_with(port)) text.resize(text.size() - port.size());
  return text;
}

bool isOwnOrigin(std::string_view origin, std::string_view authority) {
  const std::string text = lowered(origin), own = lowered(authority);
  if (text.starts_with("http://"))
    return withoutDefaultPort(text.substr(7), ":80") == withoutDefaultPort(own, ":80");
  if (text.starts_with("https://")) {
    return withoutDefaultPort(text.substr(8), ":443") == withoutDefaultPort(own, ":443");
  }
  return false;
}

bool isOriginAllowed(const RequestHead& head, const WebSocketAccess& access) {
  const std::size_t count = head.count("Origin");
  if (count == 0) return true;
  if (count > 1) return false;
  const std::string_view origin = *head.field("Origin");
  const bool listed =
      std::any_of(access.allowedOrigins.begin(), access.allowedOrigins.end(),
                  [&](const std::string& allowed) { return equalsIgnoringAsciiCase(allowed, origin); });
  return listed || isOwnOrigin(origin, head.authority);
}

/// 16 bytes in base64.
bool isKey(std::string_view key) {
  const auto digit = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
  };
  return key.size() == 24 && key.ends_with("==") && std::all_of(key.begin(), key.end() - 2, digit);
}

}  // namespace

bool isTrustedHost(std::string_view authority, const WebSocketAccess& access) {
  std::string host = lowered(hostOf(authority));
  const auto listed = [&](const std::string& allowed) {
    return equalsIgnoringAsciiCase(allowed, host) || equalsIgnoringAsciiCase(allowed, authority);
  };
  if (std::any_of(access.allowedHosts.begin(), access.allowedHosts.end(), listed)) return true;
  if (!isBracketed(host) && host.ends_with('.')) host.pop_back();
  return isAddress(host) || host == "localhost" || host.ends_with(".local") || isOwnName(host);
}

int judgeUpgrade(const RequestHead& head, const WebSocketAccess& access) {
  if (head.method != "GET" || head.hasBody) return 400;
  if (head.count("Sec-WebSocket-Version") != 1 || *head.field("Sec-WebSocket-Version") != "13") return 426;
  if (head.count("Sec-WebSocket-Key") != 1 || !isKey(*head.field("Sec-WebSocket-Key"))) return 400;
  return isTrustedHost(head.authority, access) && isOriginAllowed(head, access) ? 101 : 403;
}

}  // namespace ferrox
