#include "Platform/DNSSD/NetworkInterface.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace ferrox::dnssd {
namespace {

// /proc/net/route: interface, destination, gateway, flags, ..., mask as the eighth column.
void readIPv4DefaultRoutes(std::set<std::string>& names) {
  std::ifstream file("/proc/net/route");
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string name, destination, skipped, mask;
    fields >> name >> destination;
    for (int column = 0; column < 5; ++column) fields >> skipped;
    fields >> mask;
    if (destination == "00000000" && mask == "00000000") names.insert(name);
  }
}

// /proc/net/ipv6_route: destination, its prefix length, ..., interface as the last column. The kernel lists
// an unreachable default through loopback as well.
void readIPv6DefaultRoutes(std::set<std::string>& names) {
  std::ifstream file("/proc/net/ipv6_route");
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string destination, length, field, name;
    fields >> destination >> length;
    while (fields >> field) name = field;
    const bool isDefault = length == "00" && destination.find_first_not_of('0') == std::string::npos;
    if (isDefault && name != "lo") names.insert(name);
  }
}

void note(const ifaddrs& entry, std::map<std::string, NetworkInterface>& found) {
  NetworkInterface& interface = found[entry.ifa_name];
  interface.name = entry.ifa_name;
  const unsigned flags = entry.ifa_flags;
  interface.up = (flags & IFF_UP) != 0 && (flags & IFF_RUNNING) != 0;
  interface.loopback = (flags & IFF_LOOPBACK) != 0;
  interface.multicast = (flags & IFF_MULTICAST) != 0;
  if (entry.ifa_addr == nullptr) return;
  if (entry.ifa_addr->sa_family == AF_INET) interface.hasIPv4 = true;
  if (entry.ifa_addr->sa_family == AF_INET6) interface.hasIPv6 = true;
}

}  // namespace

std::vector<NetworkInterface> currentNetworkInterfaces() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return {};
  std::map<std::string, NetworkInterface> found;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) note(*entry, found);
  freeifaddrs(list);

  std::set<std::string> defaultRoutes;
  readIPv4DefaultRoutes(defaultRoutes);
  readIPv6DefaultRoutes(defaultRoutes);

  std::vector<NetworkInterface> result;
  for (auto& [name, interface] : found) {
    interface.index = static_cast<int>(if_nametoindex(name.c_str()));
    interface.hasDefaultRoute = defaultRoutes.count(name) > 0;
    if (interface.index > 0) result.push_back(interface);
  }
  return result;
}

}  // namespace ferrox::dnssd
