#include "Platform/DNSSD/NetworkQuery.h"

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/MulticastSocket.h"

namespace ferrox::dnssd {
namespace {

void sendAt(const Place& place, std::string_view packet) {
  if (const auto socket = MulticastSocket::open(place, MulticastSocket::Kind::Shared)) socket->send(packet);
}

}  // namespace

void queryNetwork(const DiscoveryContext& context, std::string_view name,
                  const std::vector<std::uint16_t>& recordTypes) {
  const auto dnsName = dnsNameFromText(name);
  if (!dnsName) return;
  DNSMessage query;
  for (const std::uint16_t type : recordTypes) query.questions.push_back({*dnsName, type, recordClassIN});
  const auto packet = writeDNSMessage(query);
  if (!packet) return;
  for (const NetworkInterface& interface : context.interfaces.inUse) {
    if (interface.hasIPv4) sendAt({interface.index, false}, *packet);
    if (interface.hasIPv6) sendAt({interface.index, true}, *packet);
  }
}

}  // namespace ferrox::dnssd
