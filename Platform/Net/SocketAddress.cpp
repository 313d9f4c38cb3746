#include "Platform/Net/SocketAddress.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

namespace ferrox {
namespace {

/// Copies, because the storage's type must not be read through another one.
template <typename Native>
Native nativeAs(const sockaddr_storage& storage) {
  Native result{};
  std::memcpy(&result, &storage, sizeof result);
  return result;
}

SocketAddress fromIPv4(in_addr address, in_port_t portInNetworkOrder) {
  sockaddr_in native{};
  native.sin_family = AF_INET;
  native.sin_port = portInNetworkOrder;
  native.sin_addr = address;
  return SocketAddress::fromNative(reinterpret_cast<const sockaddr*>(&native), sizeof native);
}

/// Service records keep host names upper-cased, a scope in them included, while interface names are
/// case-sensitive: so a name that fits in another case counts when no exact one does.
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

/// The zone is an interface's name or its index in decimal (RFC 4007 section 11).
std::optional<std::uint32_t> scopeFromText(const std::string& text) {
  if (text.empty()) return std::nullopt;
  if (const unsigned index = if_nametoindex(text.c_str()); index != 0) return index;
  if (const unsigned index = interfaceIndexIgnoringCase(text); index != 0) return index;
  std::uint32_t number = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc() || end != text.data() + text.size() || number == 0) return std::nullopt;
  return number;
}

}  // namespace

std::optional<SocketAddress> SocketAddress::fromText(std::string_view text, std::uint16_t port) {
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  const std::size_t percent = text.find('%');
  const std::string host(text.substr(0, percent));
  if (in_addr address{};
      percent == std::string_view::npos && inet_pton(AF_INET, host.c_str(), &address) == 1) {
    return fromIPv4(address, htons(port));
  }
  sockaddr_in6 native{};
  native.sin6_family = AF_INET6;
  native.sin6_port = htons(port);
  if (inet_pton(AF_INET6, host.c_str(), &native.sin6_addr) != 1) return std::nullopt;
  if (percent != std::string_view::npos) {
    const std::optional<std::uint32_t> scope = scopeFromText(std::string(text.substr(percent + 1)));
    if (!scope) return std::nullopt;
    native.sin6_scope_id = *scope;
  }
  return fromNative(reinterpret_cast<const sockaddr*>(&native), sizeof native);
}

SocketAddress SocketAddress::fromNative(const sockaddr* address, socklen_t length) {
  SocketAddress result;
  if (address == nullptr || length < sizeof(sa_family_t)) return result;
  std::memcpy(&result.storage_, address, std::min<std::size_t>(length, sizeof result.storage_));
  const sa_family_t family = result.storage_.ss_family;
  if (family == AF_INET && length >= sizeof(sockaddr_in)) {
    result.length_ = sizeof(sockaddr_in);
    return result;
  }
  if (family != AF_INET6 || length < sizeof(sockaddr_in6)) return SocketAddress();
  const auto native = nativeAs<sockaddr_in6>(result.storage_);
  if (IN6_IS_ADDR_V4MAPPED(&native.sin6_addr)) {
    in_addr inner{};
    std::memcpy(&inner, native.sin6_addr.s6_addr + 12, sizeof inner);
    return fromIPv4(inner, native.sin6_port);
  }
  result.length_ = sizeof(sockaddr_in6);
  return result;
}

std::string SocketAddress::hostText() const {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (storage_.ss_family == AF_INET) {
    const auto native = nativeAs<sockaddr_in>(storage_);
    inet_ntop(AF_INET, &native.sin_addr, text.data(), text.size());
    return text.data();
  }
  if (storage_.ss_family != AF_INET6) return {};
  const auto native = nativeAs<sockaddr_in6>(storage_);
  inet_ntop(AF_INET6, &native.sin6_addr, text.data(), text.size());
  std::string result = text.data();
  if (native.sin6_scope_id != 0) {
    std::array<char, IF_NAMESIZE> name{};
    const bool named = if_indextoname(native.sin6_scope_id, name.data()) != nullptr;
    result += "%";
    result += named ? std::string(name.data()) : std::to_string(native.sin6_scope_id);
  }
  return result;
}

std::uint16_t SocketAddress::port() const {
  if (storage_.ss_family == AF_INET) return ntohs(nativeAs<sockaddr_in>(storage_).sin_port);
  if (storage_.ss_family == AF_INET6) return ntohs(nativeAs<sockaddr_in6>(storage_).sin6_port);
  return 0;
}

void SocketAddress::setPort(std::uint16_t port) {
  // Both families keep the port at the same place (RFC 3493 section 3.3).
  static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
  if (storage_.ss_family != AF_INET && storage_.ss_family != AF_INET6) return;
  const in_port_t inNetworkOrder = htons(port);
  std::memcpy(reinterpret_cast<char*>(&storage_) + offsetof(sockaddr_in, sin_port), &inNetworkOrder,
              sizeof inNetworkOrder);
}

bool SocketAddress::isLoopback() const {
  if (storage_.ss_family == AF_INET) {
    return (ntohl(nativeAs<sockaddr_in>(storage_).sin_addr.s_addr) >> 24) == 127;
  }
  if (storage_.ss_family != AF_INET6) return false;
  const auto native = nativeAs<sockaddr_in6>(storage_);
  return IN6_IS_ADDR_LOOPBACK(&native.sin6_addr);
}

bool SocketAddress::isLinkLocal() const {
  if (storage_.ss_family == AF_INET) {
    return (ntohl(nativeAs<sockaddr_in>(storage_).sin_addr.s_addr) >> 16) == 0xa9fe;
  }
  if (storage_.ss_family != AF_INET6) return false;
  const auto native = nativeAs<sockaddr_in6>(storage_);
  return IN6_IS_ADDR_LINKLOCAL(&native.sin6_addr);
}

bool SocketAddress::operator==(const SocketAddress& other) const {
  if (storage_.ss_family != other.storage_.ss_family || port() != other.port()) return false;
  if (storage_.ss_family == AF_INET) {
    return nativeAs<sockaddr_in>(storage_).sin_addr.s_addr ==
           nativeAs<sockaddr_in>(other.storage_).sin_addr.s_addr;
  }
  if (storage_.ss_family != AF_INET6) return true;
  const auto mine = nativeAs<sockaddr_in6>(storage_);
  const auto theirs = nativeAs<sockaddr_in6>(other.storage_);
  return IN6_ARE_ADDR_EQUAL(&mine.sin6_addr, &theirs.sin6_addr) && mine.sin6_scope_id == theirs.sin6_scope_id;
}

}  // namespace ferrox
