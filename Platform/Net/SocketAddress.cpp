#include "Platform/Net/SocketAddress.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <strings.h>

#include <charconv>
#include <cstring>

namespace ferrox {
namespace {

// Service records keep host names upper-cased, a scope in them included, while interface names are
// case-sensitive: so a name that fits in another case counts when no exact one does.
unsigned interfaceIndexIgnoringCase(const std::string& name) {
  struct if_nameindex* const interfaces = if_nameindex();
  if (interfaces == nullptr) return 0;
  unsigned index = 0;
  for (const auto* entry = interfaces; entry->if_index != 0 && index == 0; ++entry) {
    if (strcasecmp(entry->if_name, name.c_str()) == 0) index = entry->if_index;
  }
  if_freenameindex(interfaces);
  return index;
}

// RFC 4007 section 11: the zone is an interface's name or its index in decimal.
std::optional<std::uint32_t> scopeFromText(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const std::string name(text);
  if (const unsigned index = if_nametoindex(name.c_str()); index != 0) return index;
  if (const unsigned index = interfaceIndexIgnoringCase(name); index != 0) return index;
  std::uint32_t number = 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (code != std::errc{} || end != text.data() + text.size() || number == 0) return std::nullopt;
  return number;
}

const sockaddr_in& asIPv4(const sockaddr_storage& storage) {
  return reinterpret_cast<const sockaddr_in&>(storage);
}
const sockaddr_in6& asIPv6(const sockaddr_storage& storage) {
  return reinterpret_cast<const sockaddr_in6&>(storage);
}

}  // namespace

std::optional<SocketAddress> SocketAddress::fromText(std::string_view text, std::uint16_t port) {
  const auto percent = text.find('%');
  const std::string address(text.substr(0, percent));
  sockaddr_in v4{};
  if (percent == std::string_view::npos && inet_pton(AF_INET, address.c_str(), &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    v4.sin_port = htons(port);
    return fromNative(reinterpret_cast<const sockaddr*>(&v4), sizeof(v4));
  }
  sockaddr_in6 v6{};
  if (address.size() != std::strlen(address.c_str()) ||
      inet_pton(AF_INET6, address.c_str(), &v6.sin6_addr) != 1) {
    return std::nullopt;
  }
  if (percent != std::string_view::npos) {
    const auto scope = scopeFromText(text.substr(percent + 1));
    if (!scope) return std::nullopt;
    v6.sin6_scope_id = *scope;
  }
  v6.sin6_family = AF_INET6;
  v6.sin6_port = htons(port);
  return fromNative(reinterpret_cast<const sockaddr*>(&v6), sizeof(v6));
}

SocketAddress SocketAddress::fromNative(const sockaddr* address, socklen_t length) {
  SocketAddress result;
  if (length <= sizeof(result.storage_)) {
    std::memcpy(&result.storage_, address, length);
    result.length_ = length;
  }
  return result;
}

std::string SocketAddress::hostText() const {
  char text[INET6_ADDRSTRLEN] = {};
  if (storage_.ss_family == AF_INET) {
    inet_ntop(AF_INET, &asIPv4(storage_).sin_addr, text, sizeof(text));
    return text;
  }
  if (!isIPv6()) return {};
  const auto& v6 = asIPv6(storage_);
  inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof(text));
  if (v6.sin6_scope_id == 0) return text;
  char name[IF_NAMESIZE] = {};
  const char* const known = if_indextoname(v6.sin6_scope_id, name);
  return std::string(text) + "%" + (known != nullptr ? name : std::to_string(v6.sin6_scope_id));
}

std::uint16_t SocketAddress::port() const {
  if (storage_.ss_family == AF_INET) return ntohs(asIPv4(storage_).sin_port);
  return isIPv6() ? ntohs(asIPv6(storage_).sin6_port) : std::uint16_t{0};
}

void SocketAddress::setPort(std::uint16_t port) {
  if (storage_.ss_family == AF_INET) reinterpret_cast<sockaddr_in&>(storage_).sin_port = htons(port);
  if (isIPv6()) reinterpret_cast<sockaddr_in6&>(storage_).sin6_port = htons(port);
}

bool SocketAddress::isLoopback() const {
  if (storage_.ss_family == AF_INET) return (ntohl(asIPv4(storage_).sin_addr.s_addr) >> 24) == 127;
  if (!isIPv6()) return false;
  const auto& bytes = asIPv6(storage_).sin6_addr;
  return IN6_IS_ADDR_LOOPBACK(&bytes) || (IN6_IS_ADDR_V4MAPPED(&bytes) && bytes.s6_addr[12] == 127);
}

bool SocketAddress::isLinkLocal() const {
  if (storage_.ss_family == AF_INET) return (ntohl(asIPv4(storage_).sin_addr.s_addr) >> 16) == 0xA9FE;
  return isIPv6() && IN6_IS_ADDR_LINKLOCAL(&asIPv6(storage_).sin6_addr);
}

bool SocketAddress::operator==(const SocketAddress& other) const {
  if (storage_.ss_family != other.storage_.ss_family || port() != other.port()) return false;
  if (storage_.ss_family == AF_INET) {
    return asIPv4(storage_).sin_addr.s_addr == asIPv4(other.storage_).sin_addr.s_addr;
  }
  if (!isIPv6()) return true;
  const auto& a = asIPv6(storage_);
  const auto& b = asIPv6(other.storage_);
  return a.sin6_scope_id == b.sin6_scope_id &&
         std::memcmp(&a.sin6_addr, &b.sin6_addr, sizeof(a.sin6_addr)) == 0;
}

}  // namespace ferrox
