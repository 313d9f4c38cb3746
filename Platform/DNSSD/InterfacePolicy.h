// Which network interfaces discovery uses.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/Base/Export.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/DNSSD/NetworkInterface.h"

namespace ferrox::dnssd {

/// True when `name` equals `pattern`, or begins with it where the pattern ends in "*".
FRX_EXPORT bool matchesInterfacePattern(std::string_view name, std::string_view pattern);

/// Real interfaces and tunnels are used; loopback only when it was asked for by name or nothing else is up,
/// so that two nodes on a machine without a network still meet. Thread: any
class FRX_EXPORT InterfacePolicy {
 public:
  explicit InterfacePolicy(const DNSSDConfiguration& configuration);

  InterfaceSelection select(const std::vector<NetworkInterface>& present) const;

 private:
  bool isListed(const NetworkInterface& interface) const;
  bool permits(const NetworkInterface& interface) const;

  std::vector<std::string> allowed_;
  std::vector<std::string> denied_;
  /// With the list a host left untouched, a bridge that carries the default route is the machine's network.
  bool defaultRouteExempts_ = false;
};

}  // namespace ferrox::dnssd
