#include <filesystem>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Doctor/SocketOwners.h"

namespace ferrox::command {

Examination examineResponders() {
  constexpr std::uint16_t multicastDNSPort = 5353;
  Examination out{"responders", "Other multicast DNS on this machine", {}};
  const SocketOwners owners = ownersOfPort(SocketKind::BoundUDP, multicastDNSPort);
  for (const std::string& name : owners.programs) {
    out.findings.push_back(
        {Verdict::Note, name + " shares port 5353; a node works beside it", {{"program", name}}});
  }
  if (!owners.any) {
    out.findings.push_back({Verdict::Good, "no other program uses port 5353", {}});
  } else if (out.findings.empty()) {
    out.findings.push_back(
        {Verdict::Note, "a program of another user shares port 5353; a node works beside it", {}});
  }
  const bool daemon = std::filesystem::exists("/run/avahi-daemon/socket");
  out.findings.push_back({Verdict::Good,
                          daemon ? "the system's discovery daemon runs: --discovery auto uses it"
                                 : "no discovery daemon runs: --discovery auto uses the embedded stack",
                          {{"daemon", daemon}}});
  return out;
}

}  // namespace ferrox::command
