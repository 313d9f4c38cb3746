#include <fmt/format.h>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Platform/DNSSD/InterfacePolicy.h"

namespace ferrox::command {
namespace {

std::string families(const dnssd::NetworkInterface& interface) {
  if (interface.hasIPv4 && interface.hasIPv6) return "IPv4 and IPv6";
  if (interface.hasIPv4) return "IPv4";
  return interface.hasIPv6 ? "IPv6" : "no address";
}

std::string reasonAgainst(const dnssd::NetworkInterface& interface, const DNSSDConfiguration& configuration,
                          const dnssd::InterfaceSelection& selection) {
  if (!interface.up) return "down or without a carrier";
  if (!interface.hasIPv4 && !interface.hasIPv6) return "no address";
  if (!interface.multicast && !interface.loopback) return "cannot carry multicast";
  for (const std::string& name : selection.permittedNames) {
    if (name == interface.name) return "loopback, not needed beside the others";
  }
  return configuration.allowedInterfaces.empty() ? "virtual, left out by default; name it with --interface"
                                                 : "not among those named with --interface";
}

}  // namespace

Examination examineInterfaces(const DNSSDConfiguration& configuration,
                              const std::vector<dnssd::NetworkInterface>& present) {
  Examination out{"interfaces", "Network interfaces", {}};
  const dnssd::InterfaceSelection selection = dnssd::InterfacePolicy(configuration).select(present);
  bool reachesOthers = false;
  for (const dnssd::NetworkInterface& interface : present) {
    const bool used = selection.uses(interface.index);
    reachesOthers = reachesOthers || (used && !interface.loopback);
    const std::string reason =
        used ? families(interface) : reasonAgainst(interface, configuration, selection);
    out.findings.push_back({used ? Verdict::Good : Verdict::Note,
                            fmt::format("{} is {}: {}", interface.name, used ? "used" : "not used", reason),
                            {{"interface", interface.name}, {"used", used}, {"reason", reason}}});
  }
  for (const std::string& wanted : configuration.allowedInterfaces) {
    bool exists = false;
    for (const auto& interface : present) {
      exists = exists || dnssd::matchesInterfacePattern(interface.name, wanted);
    }
    if (exists) continue;
    out.findings.push_back(
        {Verdict::Bad, fmt::format("there is no interface {}", wanted), {{"interface", wanted}}});
  }
  if (selection.inUse.empty()) {
    out.findings.push_back({Verdict::Bad, "no interface is left that discovery could use", {}});
  } else if (!reachesOthers) {
    out.findings.push_back(
        {Verdict::Note, "only loopback is used: nodes of this machine meet, no others", {}});
  }
  return out;
}

}  // namespace ferrox::command
