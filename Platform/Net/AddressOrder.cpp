#include "Platform/Net/AddressOrder.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace ferrox {

std::vector<SocketAddress> interleavedByFamily(std::vector<SocketAddress> addresses) {
  std::vector<SocketAddress> first;
  std::vector<SocketAddress> second;
  for (const auto& address : addresses) {
    auto& family = address.isIPv6() == addresses.front().isIPv6() ? first : second;
    if (std::find(family.begin(), family.end(), address) == family.end()) family.push_back(address);
  }
  std::vector<SocketAddress> ordered;
  ordered.reserve(first.size() + second.size());
  for (std::size_t i = 0; i < std::max(first.size(), second.size()); ++i) {
    if (i < first.size()) ordered.push_back(first[i]);
    if (i < second.size()) ordered.push_back(second[i]);
  }
  return ordered;
}

}  // namespace ferrox
