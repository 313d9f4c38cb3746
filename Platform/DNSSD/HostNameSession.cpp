#include "Platform/DNSSD/HostNameSession.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/NetworkQuery.h"

namespace ferrox::dnssd {

using namespace std::chrono_literals;

namespace {

constexpr auto graceForOtherFamily = 75ms;
// A host that returns after a partition announces nothing, so a name without an answer is asked for again.
constexpr auto patienceWithoutAnswer = 1s;

std::optional<SocketAddress> ipv4Address(const std::string& rdata) {
  sockaddr_in native{};
  native.sin_family = AF_INET;
  std::memcpy(&native.sin_addr, rdata.data(), sizeof native.sin_addr);
  const std::uint32_t value = ntohl(native.sin_addr.s_addr);
  if (value == INADDR_ANY || value >= 0xE0000000U) return std::nullopt;
  return SocketAddress::fromNative(reinterpret_cast<const sockaddr*>(&native), sizeof native);
}

std::optional<SocketAddress> ipv6Address(const std::string& rdata, int interfaceIndex) {
  sockaddr_in6 native{};
  native.sin6_family = AF_INET6;
  std::memcpy(&native.sin6_addr, rdata.data(), sizeof native.sin6_addr);
  if (IN6_IS_ADDR_UNSPECIFIED(&native.sin6_addr) || IN6_IS_ADDR_MULTICAST(&native.sin6_addr)) {
    return std::nullopt;
  }
  // An IPv4 address in disguise would slip past the rules for those.
  if (IN6_IS_ADDR_V4MAPPED(&native.sin6_addr)) return std::nullopt;
  if (IN6_IS_ADDR_LINKLOCAL(&native.sin6_addr)) {
    native.sin6_scope_id = static_cast<std::uint32_t>(interfaceIndex);
  }
  return SocketAddress::fromNative(reinterpret_cast<const sockaddr*>(&native), sizeof native);
}

std::optional<SocketAddress> addressFromSighting(const Sighting& sighting) {
  if (sighting.what.size() == sizeof(in_addr)) return ipv4Address(sighting.what);
  if (sighting.what.size() == sizeof(in6_addr)) {
    return ipv6Address(sighting.what, sighting.place.interfaceIndex);
  }
  return std::nullopt;
}

bool isLoopbackInterface(const InterfaceSelection& interfaces, int index) {
  return std::any_of(
      interfaces.inUse.begin(), interfaces.inUse.end(),
      [index](const NetworkInterface& interface) { return interface.index == index && interface.loopback; });
}

}  // namespace

std::vector<SocketAddress> addressesFromSightings(const std::vector<Sighting>& sightings,
                                                  const InterfaceSelection& interfaces) {
  std::vector<SocketAddress> result;
  for (const Sighting& sighting : sightings) {
    const auto address = addressFromSighting(sighting);
    if (!address) continue;
    // Nobody on the network may send us to our own ports.
    if (address->isLoopback() && !isLoopbackInterface(interfaces, sighting.place.interfaceIndex)) continue;
    if (std::find(result.begin(), result.end(), *address) == result.end()) result.push_back(*address);
  }
  return result;
}

HostNameSession::HostNameSession(DiscoveryContext& context, std::string name, Preference preference)
    : context_(context),
      name_(std::move(name)),
      preference_(std::move(preference)),
      ipv4_(
          context,
          [this](BackEnd& backEnd, BackEnd::LookupHandler handler) {
            return backEnd.watchRecord(name_, recordTypeA, std::move(handler));
          },
          [this] { addressesChanged(); }),
      ipv6_(
          context,
          [this](BackEnd& backEnd, BackEnd::LookupHandler handler) {
            return backEnd.watchRecord(name_, recordTypeAAAA, std::move(handler));
          },
          [this] { addressesChanged(); }),
      lastAsked_(std::chrono::steady_clock::now()),
      lastQueried_(lastAsked_) {
  lookupsStarted();
}

void HostNameSession::ask(std::chrono::milliseconds timeout, Completion completion) {
  lastAsked_ = std::chrono::steady_clock::now();
  const bool known = !addresses().empty();
  if (known && !grace_) {
    context_.thread.post([completion = std::move(completion), result = addresses()] { completion(result); });
    return;
  }
  waiting_.push_back({std::move(completion), nullptr});
  const auto entry = std::prev(waiting_.end());
  entry->deadline = context_.thread.after(timeout, [this, entry] { answer(entry); });
  if (!known && lastAsked_ - lastQueried_ > patienceWithoutAnswer) refresh();
}

void HostNameSession::lookupsStarted() {
  lastQueried_ = std::chrono::steady_clock::now();
  ipv4_.open();
  ipv6_.open();
}

void HostNameSession::lookupsStopped() {
  ipv4_.suspend();
  ipv6_.suspend();
}

void HostNameSession::refresh() {
  lastQueried_ = std::chrono::steady_clock::now();
  queryNetwork(context_, name_, {recordTypeA, recordTypeAAAA});
}

void HostNameSession::close() {
  ipv4_.close();
  ipv6_.close();
  grace_.reset();
  answerAll();
}

void HostNameSession::addressesChanged() {
  if (waiting_.empty() || grace_ || addresses().empty()) return;
  grace_ = context_.thread.after(graceForOtherFamily, [this] {
    const auto finished = std::move(grace_);
    answerAll();
  });
}

void HostNameSession::answerAll() {
  while (!waiting_.empty()) answer(waiting_.begin());
}

void HostNameSession::answer(std::list<Waiting>::iterator waiting) {
  const Waiting answered = std::move(*waiting);
  waiting_.erase(waiting);
  answered.completion(addresses());
}

std::vector<SocketAddress> HostNameSession::addresses() const {
  auto sightings = ipv6_.sightings().inOrder(context_.interfaces);
  const auto ipv4 = ipv4_.sightings().inOrder(context_.interfaces);
  sightings.insert(sightings.end(), ipv4.begin(), ipv4.end());
  const std::vector<int> preferred = preference_ ? preference_() : std::vector<int>{};
  std::stable_partition(sightings.begin(), sightings.end(), [&](const Sighting& sighting) {
    return std::find(preferred.begin(), preferred.end(), sighting.place.interfaceIndex) != preferred.end();
  });
  return addressesFromSightings(sightings, context_.interfaces);
}

}  // namespace ferrox::dnssd
