// The machine's network interfaces as discovery sees them, and the choice made among them.
#pragma once

#include <string>
#include <vector>

#include "Platform/Base/Export.h"

namespace ferrox::dnssd {

/// One interface as the system describes it at this moment.
struct NetworkInterface {
  int index = 0;
  std::string name;
  bool up = false;  ///< switched on and with a carrier
  bool loopback = false;
  bool multicast = false;
  bool hasIPv4 = false;
  bool hasIPv6 = false;
  bool hasDefaultRoute = false;
  bool operator==(const NetworkInterface&) const = default;
};

/// All interfaces of this network namespace. An empty list when the system does not tell.
FRX_EXPORT std::vector<NetworkInterface> currentNetworkInterfaces();

/// The interfaces that discovery may use, and those it uses now.
struct InterfaceSelection {
  /// Those whose reports count and to which queries are sent now.
  std::vector<NetworkInterface> inUse;
  /// Those an embedded stack may open, whether up or not. Loopback is among them when it may be needed.
  std::vector<std::string> permittedNames;
  /// True when no present interface is left out by a rule, so that a stack may simply use all.
  bool everythingPermitted = false;

  bool uses(int interfaceIndex) const {
    for (const NetworkInterface& interface : inUse) {
      if (interface.index == interfaceIndex) return true;
    }
    return false;
  }
  bool operator==(const InterfaceSelection&) const = default;
};

}  // namespace ferrox::dnssd
