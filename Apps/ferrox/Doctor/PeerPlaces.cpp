#include "Apps/ferrox/Doctor/PeerPlaces.h"

#include <algorithm>

#include "Apps/ferrox/Doctor/Announcements.h"
#include "Apps/ferrox/Doctor/ThisMachine.h"
#include "Apps/ferrox/Node/Peer.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox::command {
namespace {

class Collector {
 public:
  explicit Collector(const std::set<std::string>& ownAddresses) : own_(ownAddresses) {}

  void add(const FRXPeerAddress& address, const std::string& peer, bool given) {
    const auto known = std::find_if(out_.places.begin(), out_.places.end(),
                                    [&](const PeerPlace& place) { return place.address == address; });
    if (known != out_.places.end()) {
      known->announced = known->announced || !given;
    } else if (out_.places.size() == PeerPlaces::most) {
      ++out_.leftOut;
    } else {
      out_.places.push_back({address, peer, given, !given, isOwn(address.host())});
    }
  }

  PeerPlaces result() && { return std::move(out_); }

 private:
  bool isOwn(const std::string& host) const {
    const auto literal = SocketAddress::fromText(host, 0);
    return host == "localhost" || (literal && literal->isLoopback()) || own_.count(withoutScope(host)) > 0;
  }

  const std::set<std::string>& own_;
  PeerPlaces out_;
};

}  // namespace

PeerPlaces placesToTry(const std::vector<FRXPeerAddress>& given, const Announcements& announcements,
                       const std::set<std::string>& ownAddresses) {
  Collector collector(ownAddresses);
  for (const FRXPeerAddress& peer : given) {
    const std::vector<std::string> addresses = announcements.addressesOf(peer.host());
    if (addresses.empty()) collector.add(peer, displayAddress(peer), true);
    for (const std::string& text : addresses) {
      if (const auto address = FRXPeerAddress::make(text, peer.port())) {
        collector.add(*address, displayAddress(peer), true);
      }
    }
  }
  for (const AnnouncedNode& node : announcements.nodes()) {
    for (const std::string& text : announcements.addressesOf(node.hostName)) {
      const auto address = FRXPeerAddress::make(text, node.port.value_or(0));
      if (address) collector.add(*address, node.serviceName, false);
    }
  }
  return std::move(collector).result();
}

std::string displayName(const PeerPlace& place) {
  const std::string address = displayAddress(place.address);
  if (!place.given) return "\"" + displayName(std::optional(place.peer)) + "\" at " + address;
  return place.peer == address ? address : place.peer + " at " + address;
}

}  // namespace ferrox::command
