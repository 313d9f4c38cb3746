#include "Platform/DNSSD/InterfacePolicy.h"

#include <algorithm>

namespace ferrox::dnssd {

bool matchesInterfacePattern(std::string_view name, std::string_view pattern) {
  if (pattern.ends_with('*')) return name.starts_with(pattern.substr(0, pattern.size() - 1));
  return name == pattern;
}

namespace {

bool matchesAny(std::string_view name, const std::vector<std::string>& patterns) {
  return std::any_of(patterns.begin(), patterns.end(),
                     [&](const std::string& pattern) { return matchesInterfacePattern(name, pattern); });
}

// Loopback lacks the multicast flag by default and carries multicast all the same.
bool canCarryDiscovery(const NetworkInterface& interface) {
  return interface.up && (interface.multicast || interface.loopback) &&
         (interface.hasIPv4 || interface.hasIPv6);
}

}  // namespace

InterfacePolicy::InterfacePolicy(const DNSSDConfiguration& configuration)
    : allowed_(configuration.allowedInterfaces),
      denied_(configuration.deniedInterfaces),
      defaultRouteExempts_(configuration.deniedInterfaces == DNSSDConfiguration{}.deniedInterfaces) {}

bool InterfacePolicy::isListed(const NetworkInterface& interface) const {
  return !allowed_.empty() && matchesAny(interface.name, allowed_);
}

bool InterfacePolicy::permits(const NetworkInterface& interface) const {
  if (!allowed_.empty() && !isListed(interface)) return false;
  if (!matchesAny(interface.name, denied_)) return true;
  return defaultRouteExempts_ && (interface.hasDefaultRoute || isListed(interface));
}

InterfaceSelection InterfacePolicy::select(const std::vector<NetworkInterface>& present) const {
  InterfaceSelection selection;
  selection.everythingPermitted = true;
  for (const NetworkInterface& interface : present) {
    if (!permits(interface)) {
      selection.everythingPermitted = false;
      continue;
    }
    selection.permittedNames.push_back(interface.name);
    const bool wanted = !interface.loopback || isListed(interface);
    if (wanted && canCarryDiscovery(interface)) selection.inUse.push_back(interface);
  }
  if (!selection.inUse.empty()) return selection;
  for (const NetworkInterface& interface : present) {
    if (interface.loopback && permits(interface) && canCarryDiscovery(interface)) {
      selection.inUse.push_back(interface);
    }
  }
  return selection;
}

}  // namespace ferrox::dnssd
