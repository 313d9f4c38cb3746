#include "Classes/Discovery/FRXPeerCheck.h"

#include <algorithm>

#include "Classes/Discovery/FRXNetService.h"
#include "Platform/Host/Text.h"
#include "Platform/Net/HostName.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox {
namespace {

bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

// The general delimiters of RFC 3986 section 2.2, "%", and what no URL may hold literally. A backslash is
// left: mDNS stacks write the bytes of a label that are not letters or digits as \DDD.
bool endsHostOfURL(char c) { return std::string_view(":/?#[]@%<>\"^`{|}").find(c) != std::string_view::npos; }

/// C1 controls, the line and paragraph separators and the no-break and ideographic blanks, in UTF-8.
bool holdsUnicodeBlankOrControl(std::string_view utf8) {
  for (std::size_t i = 0; i + 1 < utf8.size(); ++i) {
    const auto first = static_cast<unsigned char>(utf8[i]);
    const auto second = static_cast<unsigned char>(utf8[i + 1]);
    if (first == 0xC2 && second >= 0x80 && second <= 0xA0) return true;
    if (i + 2 >= utf8.size()) continue;
    const auto third = static_cast<unsigned char>(utf8[i + 2]);
    if (first == 0xE2 && second == 0x80 && (third <= 0x8F || third == 0xA8 || third == 0xA9)) return true;
    if (first == 0xE3 && second == 0x80 && third == 0x80) return true;
  }
  return false;
}

}  // namespace

bool isPlausibleHostName(std::string_view hostName) {
  if (!isUsableHostName(hostName)) return false;
  if (SocketAddress::fromText(hostName, 0)) return true;
  if (std::any_of(hostName.begin(), hostName.end(), endsHostOfURL)) return false;
  return text::isValidUtf8(hostName) && !holdsUnicodeBlankOrControl(hostName);
}

std::optional<std::string> whyNotAPeer(const FRXNetService& service) {
  if (!service.hostName()) return "no host name";
  if (!isPlausibleHostName(*service.hostName())) return "implausible host name";
  if (service.port() < 1 || service.port() > 65535) return "port outside 1..65535";
  const std::optional<std::string> name = service.name();
  if (!name || name->empty()) return "no service name";
  if (name->size() > maxPeerNameSize || std::any_of(name->begin(), name->end(), isControl)) {
    return "implausible service name";
  }
  return std::nullopt;
}

}  // namespace ferrox
