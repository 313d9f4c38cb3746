#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Doctor/NetworkSurvey.h"
#include "Apps/ferrox/Doctor/ThisMachine.h"
#include "Apps/ferrox/Node/Peer.h"
#include "Platform/DNSSD/TXTRecord.h"

namespace ferrox::command {
namespace {

template <typename Texts>
FRXArray arrayOf(const Texts& texts) {
  FRXArray out;
  for (const std::string& text : texts) out.emplace_back(text);
  return out;
}

struct Announced {
  const AnnouncedNode& node;
  std::vector<std::string> addresses;
  bool onThisMachine = false;
};

FRXDictionary factsOf(const Announced& announced) {
  const AnnouncedNode& node = announced.node;
  FRXDictionary facts{{"serviceName", node.serviceName},
                      {"interfaces", arrayOf(node.interfaces)},
                      {"addresses", arrayOf(announced.addresses)},
                      {"onThisMachine", announced.onThisMachine},
                      {"txtLimit", maxTXTRecordSize}};
  if (!node.hostName.empty()) facts["hostName"] = node.hostName;
  if (node.port) facts["port"] = *node.port;
  if (node.txt) facts["txtBytes"] = node.txt->size();
  return facts;
}

std::string titleOf(const AnnouncedNode& node) {
  std::string interfaces;
  for (const std::string& name : node.interfaces) interfaces += (interfaces.empty() ? "" : ", ") + name;
  return fmt::format("\"{}\" is announced on {}", displayName(std::optional(node.serviceName)), interfaces);
}

// Why no peer can use the announcement; empty when they can.
std::string flawOf(const Announced& announced) {
  const AnnouncedNode& node = announced.node;
  if (!node.port) return ", but nobody tells its host and port";
  if (!FRXPeerAddress::make(node.hostName, *node.port)) return ", but with an unusable host or port";
  return announced.addresses.empty() ? ", but nobody tells the address of " + node.hostName : "";
}

Finding findingOf(const Announced& announced) {
  const AnnouncedNode& node = announced.node;
  const std::string title = titleOf(node);
  if (const std::string flaw = flawOf(announced); !flaw.empty()) {
    return {
        Verdict::Bad, title + flaw, factsOf(announced),
        "answers of that machine get lost or are wrong; restart the node there, and look at its firewall"};
  }
  if (!announced.onThisMachine && hasIdentityOfThisMachine(node.serviceName)) {
    return {Verdict::Bad,
            title + " by another machine with the identity of this one: the two ignore each other",
            factsOf(announced),
            "give each machine an identity of its own: another /etc/machine-id, or --device-uuid"};
  }
  const std::string place = fmt::format("{}: {}:{}", title, node.hostName, *node.port);
  if (!node.txt) {
    return {Verdict::Note, place + "; its TXT record did not arrive", factsOf(announced),
            "peers are met without it; it may be too large for one packet, or get lost"};
  }
  const std::string size =
      fmt::format("{}; its TXT record takes {} of {} bytes", place, node.txt->size(), maxTXTRecordSize);
  if (node.txt->size() <= maxTXTRecordSize) return {Verdict::Good, size, factsOf(announced)};
  return {Verdict::Note, size, factsOf(announced),
          "a record that large may not arrive everywhere; shorten what that node announces"};
}

}  // namespace

Examination examineAnnouncements(const Announcements& announcements,
                                 const std::set<std::string>& ownAddresses) {
  Examination out{"announcements", "Nodes announced on the network", {}};
  for (const AnnouncedNode& node : announcements.nodes()) {
    Announced announced{node, announcements.addressesOf(node.hostName)};
    announced.onThisMachine = std::any_of(
        announced.addresses.begin(), announced.addresses.end(),
        [&](const std::string& address) { return ownAddresses.count(withoutScope(address)) > 0; });
    out.findings.push_back(findingOf(announced));
  }
  if (out.findings.empty()) {
    out.findings.push_back(
        {Verdict::Note,
         "no node is announced",
         {},
         "start one on another machine; if one runs there, see what is said of multicast above"});
  }
  return out;
}

}  // namespace ferrox::command
