#include <fmt/format.h>

#include <algorithm>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Platform/DNSSD/InterfacePolicy.h"

namespace ferrox::command {
namespace {

std::string families(const dnssd::NetworkInterface& interface) {
  if (interface.hasIPv4 && interface.hasIPv6) return "IPv4 and IPv6";
  if (interface.hasIPv4) return "IPv4";
  return interface.hasIPv6 ? "IPv6" : "no address";
}

bool isListed(const dnssd::NetworkInterface& interface, const std::vector<std::string>& patterns) {
  return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
    return dnssd::matchesInterfacePattern(interface.name, pattern);
  });
}

std::string reasonFor(const dnssd::NetworkInterface& interface, const DNSSDConfiguration& configuration) {
  if (isListed(interface, configuration.allowedInterfaces)) return "named with --interface";
  if (interface.loopback) return "no other is up";
  return isListed(interface, configuration.deniedInterfaces) ? "virtual, but with the default route"
                                                             : "up and able to carry multicast";
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

FRXDictionary factsOf(const dnssd::NetworkInterface& interface, bool used, const std::string& reason) {
  return {{"interface", interface.name},
          {"used", used},
          {"reason", reason},
          {"up", interface.up},
          {"multicast", interface.multicast},
          {"hasIPv4", interface.hasIPv4},
          {"hasIPv6", interface.hasIPv6},
          {"defaultRoute", interface.hasDefaultRoute}};
}

Finding findingOfUsed(const dnssd::NetworkInterface& interface, const std::string& reason) {
  return {Verdict::Good, fmt::format("{} is used: {}; {}", interface.name, reason, families(interface)),
          factsOf(interface, true, reason)};
}

Finding findingOfUnused(const dnssd::NetworkInterface& interface, const std::string& reason) {
  return {Verdict::Note, fmt::format("{} is not used: {}", interface.name, reason),
          factsOf(interface, false, reason)};
}

void addMissing(const DNSSDConfiguration& configuration, const std::vector<dnssd::NetworkInterface>& present,
                Examination& out) {
  for (const std::string& wanted : configuration.allowedInterfaces) {
    const bool exists = std::any_of(present.begin(), present.end(), [&](const auto& interface) {
      return dnssd::matchesInterfacePattern(interface.name, wanted);
    });
    if (exists) continue;
    out.findings.push_back({Verdict::Bad,
                            fmt::format("there is no interface {}", wanted),
                            {{"interface", wanted}},
                            "name one of those above with --interface, or none at all"});
  }
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
    out.findings.push_back(
        used ? findingOfUsed(interface, reasonFor(interface, configuration))
             : findingOfUnused(interface, reasonAgainst(interface, configuration, selection)));
  }
  addMissing(configuration, present, out);
  if (selection.inUse.empty()) {
    out.findings.push_back({Verdict::Bad,
                            "no interface is left that discovery could use",
                            {},
                            "connect this machine to a network, or allow an interface with --interface"});
  } else if (!reachesOthers) {
    out.findings.push_back(
        {Verdict::Note, "only loopback is used: nodes of this machine meet, no others", {}});
  }
  return out;
}

}  // namespace ferrox::command
