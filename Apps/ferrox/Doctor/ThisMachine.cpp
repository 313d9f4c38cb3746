#include "Apps/ferrox/Doctor/ThisMachine.h"

#include <ifaddrs.h>
#include <netinet/in.h>

#include <algorithm>

#include "Classes/Utilities/FRXUtilities.h"
#include "Platform/Host/Text.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox::command {

std::string withoutScope(std::string_view address) {
  return std::string(address.substr(0, address.find('%')));
}

std::set<std::string> addressesOfThisMachine() {
  std::set<std::string> out;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return out;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr) continue;
    const int family = entry->ifa_addr->sa_family;
    if (family != AF_INET && family != AF_INET6) continue;
    const socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    out.insert(withoutScope(SocketAddress::fromNative(entry->ifa_addr, length).hostText()));
  }
  freeifaddrs(list);
  return out;
}

bool hasIdentityOfThisMachine(const std::optional<std::string>& serviceName) {
  std::string own = FRXUtilities::currentDeviceUUID().value_or("");
  own.erase(std::remove(own.begin(), own.end(), '-'), own.end());
  const auto theirs = FRXUtilities::deviceIdFromServiceId(serviceName);
  return !own.empty() && theirs && text::equalsIgnoringCase(*theirs, own);
}

}  // namespace ferrox::command
