#include "Platform/HTTP/Server/RequestRules.h"

#include <algorithm>
#include <array>

namespace ferrox {

namespace {

bool isDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

constexpr std::array<bool, 256> makeHostBytes() {
  std::array<bool, 256> allowed{};
  for (unsigned c = 'a'; c <= 'z'; ++c) allowed[c] = allowed[c - 'a' + 'A'] = true;
  for (unsigned c = '0'; c <= '9'; ++c) allowed[c] = true;
  for (const char c : std::string_view("-._~!$&'()*+,;=%:[]")) allowed[static_cast<unsigned char>(c)] = true;
  return allowed;
}
constexpr std::array<bool, 256> hostBytes = makeHostBytes();

bool isHostByte(char c) { return hostBytes[static_cast<unsigned char>(c)]; }

/// A name or address with an optional port (RFC 9110 section 7.2); no user information.
bool isAuthority(std::string_view text) {
  if (!std::all_of(text.begin(), text.end(), isHostByte)) return false;
  const std::size_t bracket = text.rfind(']');
  const std::size_t colon = text.find(':', bracket == std::string_view::npos ? 0 : bracket);
  if (colon == std::string_view::npos) return true;
  const std::string_view port = text.substr(colon + 1);
  return port.empty() || (isDigits(port) && port.size() <= 5);
}

/// Doubt about where a message ends is answered and the connection closed (RFC 9112 section 6.3).
int judgeFraming(const RequestHead& head) {
  const std::size_t codings = head.count("Transfer-Encoding");
  const std::size_t lengths = head.count("Content-Length");
  if (codings > 1 || lengths > 1 || (codings != 0 && lengths != 0)) return 400;
  if (lengths == 1 && !isDigits(*head.field("Content-Length"))) return 400;
  if (codings == 0) return 0;
  if (head.minorVersion == 0) return 400;
  return equalsIgnoringAsciiCase(*head.field("Transfer-Encoding"), "chunked") ? 0 : 501;
}

int judgeHost(RequestHead& head) {
  const std::size_t hosts = head.count("Host");
  if (hosts > 1 || (hosts == 0 && head.minorVersion > 0)) return 400;
  if (hosts == 0) return 0;
  const std::string_view host = *head.field("Host");
  if (!isAuthority(host)) return 400;
  if (head.authority.empty()) head.authority = host;
  return 0;
}

/// The absolute form names the host itself, and that one counts (RFC 9112 section 3.2.2).
int judgeTarget(RequestHead& head) {
  const std::string_view target = head.target;
  if (target.front() == '/') {
    head.uri = target;
    return 0;
  }
  const std::size_t scheme = target.find("://");
  const bool http =
      scheme != std::string_view::npos && (equalsIgnoringAsciiCase(target.substr(0, scheme), "http") ||
                                           equalsIgnoringAsciiCase(target.substr(0, scheme), "https"));
  if (!http) {
    head.uri = target;
    return head.method == "OPTIONS" || head.method == "CONNECT" ? 0 : 400;
  }
  const std::string_view rest = target.substr(scheme + 3);
  const std::size_t end = std::min(rest.find_first_of("/?#"), rest.size());
  head.authority = rest.substr(0, end);
  if (head.authority.empty() || !isAuthority(head.authority)) return 400;
  if (end == rest.size()) {
    head.uri = "/";
    return 0;
  }
  head.uri = rest.substr(end);
  return head.uri.front() == '/' ? 0 : 400;
}

}  // namespace

int applyRequestRules(RequestHead& head) {
  if (head.target.empty()) return 400;
  if (const int status = judgeFraming(head); status != 0) return status;
  if (const int status = judgeTarget(head); status != 0) return status;
  if (const int status = judgeHost(head); status != 0) return status;
  if (const auto expectation = head.field("Expect"); expectation && head.minorVersion > 0) {
    if (!equalsIgnoringAsciiCase(*expectation, "100-continue")) return 417;
    head.expectsContinue = true;
  }
  return 0;
}

}  // namespace ferrox
