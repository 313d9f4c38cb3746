#include "Apps/ferrox/Doctor/MulticastProbe.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/Host/Text.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox::command {
namespace {

constexpr std::uint16_t multicastDNSPort = 5353;
constexpr const char* groupIPv4 = "224.0.0.251";
constexpr const char* groupIPv6 = "ff02::fb";

template <typename Value>
bool set(int descriptor, int level, int option, const Value& value) {
  return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

// Without the scope, which tells nothing between addresses of one interface.
std::string withoutScope(const std::string& address) { return address.substr(0, address.find('%')); }

}  // namespace

MulticastProbe::MulticastProbe(dnssd::NetworkInterface interface, bool overIPv6,
                               std::set<std::string> ownAddresses)
    : interface_(std::move(interface)),
      overIPv6_(overIPv6),
      ownAddresses_(std::move(ownAddresses)),
      marker_("ferrox-doctor-" + text::randomUUID()) {
  descriptor_ = socket(overIPv6_ ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor_ < 0 || !open()) problem_ = std::strerror(errno);
}

MulticastProbe::~MulticastProbe() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

bool MulticastProbe::open() {
  if (!set(descriptor_, SOL_SOCKET, SO_REUSEADDR, 1) || !set(descriptor_, SOL_SOCKET, SO_REUSEPORT, 1)) {
    return false;
  }
  if (overIPv6_ && !set(descriptor_, IPPROTO_IPV6, IPV6_V6ONLY, 1)) return false;
  const auto any = SocketAddress::fromText(overIPv6_ ? "::" : "0.0.0.0", multicastDNSPort);
  if (bind(descriptor_, any->native(), any->nativeLength()) != 0) return false;
  return overIPv6_ ? joinIPv6() : joinIPv4();
}

// Only what arrives for the group on this very interface counts, hence the *_MULTICAST_ALL options.
bool MulticastProbe::joinIPv4() const {
  ip_mreqn group{};
  group.imr_multiaddr.s_addr =
      reinterpret_cast<const sockaddr_in*>(SocketAddress::fromText(groupIPv4, 0)->native())->sin_addr.s_addr;
  group.imr_ifindex = interface_.index;
  return set(descriptor_, IPPROTO_IP, IP_ADD_MEMBERSHIP, group) &&
         set(descriptor_, IPPROTO_IP, IP_MULTICAST_IF, group) &&
         set(descriptor_, IPPROTO_IP, IP_MULTICAST_ALL, 0) &&
         set(descriptor_, IPPROTO_IP, IP_MULTICAST_LOOP, 1) &&
         set(descriptor_, IPPROTO_IP, IP_MULTICAST_TTL, 255);
}

bool MulticastProbe::joinIPv6() const {
  ipv6_mreq group{};
  const auto address = SocketAddress::fromText(groupIPv6, 0);
  group.ipv6mr_multiaddr = reinterpret_cast<const sockaddr_in6*>(address->native())->sin6_addr;
  group.ipv6mr_interface = static_cast<unsigned>(interface_.index);
  return set(descriptor_, IPPROTO_IPV6, IPV6_ADD_MEMBERSHIP, group) &&
         set(descriptor_, IPPROTO_IPV6, IPV6_MULTICAST_IF, interface_.index) &&
         set(descriptor_, IPPROTO_IPV6, IPV6_MULTICAST_ALL, 0) &&
         set(descriptor_, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, 1) &&
         set(descriptor_, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, 255);
}

void MulticastProbe::ask() {
  if (!problem_.empty()) return;
  dnssd::DNSMessage query;
  query.questions.push_back({{"_services", "_dns-sd", "_udp", "local"}, dnssd::recordTypePTR});
  query.questions.push_back({{marker_, "local"}, dnssd::recordTypeA});
  const std::string packet = dnssd::writeDNSMessage(query).value_or("");
  const auto group = SocketAddress::fromText(
      overIPv6_ ? std::string(groupIPv6) + "%" + interface_.name : groupIPv4, multicastDNSPort);
  if (!group || sendto(descriptor_, packet.data(), packet.size(), MSG_NOSIGNAL, group->native(),
                       group->nativeLength()) < 0) {
    problem_ = std::strerror(errno);
  }
}

void MulticastProbe::readAvailable() {
  std::array<char, 9000> buffer;
  for (;;) {
    sockaddr_storage from{};
    socklen_t length = sizeof from;
    const ssize_t count =
        recvfrom(descriptor_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return;
    const auto sender = SocketAddress::fromNative(reinterpret_cast<const sockaddr*>(&from), length);
    take(std::string(buffer.data(), static_cast<std::size_t>(count)), withoutScope(sender.hostText()));
  }
}

void MulticastProbe::take(const std::string& packet, const std::string& sender) {
  const auto message = dnssd::readDNSMessage(packet);
  if (!message) return;
  if (!message->isResponse()) {
    for (const dnssd::DNSQuestion& question : message->questions) {
      heardBack_ = heardBack_ || dnssd::sameDNSName(question.name, {marker_, "local"});
    }
    return;
  }
  if (ownAddresses_.count(sender) > 0) {
    ownMachineAnswers_ = true;
  } else {
    answering_.insert(sender);
  }
}

}  // namespace ferrox::command
