#include "Apps/ferrox/Node/PeerOffers.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <string_view>
#include <utility>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/Discovery/FRXPeerAddress.h"
#include "Classes/Notifications/FRXNotification.h"
#include "Platform/Net/HostNameResolver.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

using Result = FRXCapabilitiesListing::Result;
constexpr std::chrono::seconds resolutionPatience{3};
constexpr std::string_view scheme = "http://";

std::size_t endOfAuthority(std::string_view url) {
  return std::min(url.find('/', scheme.size()), url.size());
}

std::optional<FRXPeerAddress> addressIn(std::string_view url) {
  return FRXPeerAddress::fromText(url.substr(scheme.size(), endOfAuthority(url) - scheme.size()));
}

/// An IPv4 address where there is one: players seldom take link-local IPv6 addresses.
std::optional<std::string> mostUsable(const std::vector<SocketAddress>& addresses) {
  const auto rank = [](const SocketAddress& address) {
    return (address.isIPv6() ? 1 : 0) + (address.isLinkLocal() ? 2 : 0);
  };
  const auto best = std::min_element(addresses.begin(), addresses.end(),
                                     [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
  return best == addresses.end() ? std::nullopt : std::optional(best->hostText());
}

template <typename Visit>
void visitAccessors(Result& result, const Visit& visit) {
  for (auto& [capability, byService] : result) {
    for (auto& [serviceId, accessors] : byService) {
      for (FRXClientAccessor& accessor : accessors) visit(accessor);
    }
  }
}

/// One look-up for each host. Thread: the loop's
struct Replacement : std::enable_shared_from_this<Replacement> {
  Result result;
  std::map<std::string, std::optional<std::string>> addresses;
  std::size_t missing = 0;
  std::function<void(Result)> completion;

  void take(const std::string& host, const std::vector<SocketAddress>& found) {
    addresses[host] = mostUsable(found);
    if (--missing == 0) finish();
  }
  void finish() {
    visitAccessors(result, [this](FRXClientAccessor& accessor) {
      const std::string& url = accessor.accessURL();
      const auto named = addressIn(url);
      const auto found = named ? addresses[named->host()] : std::nullopt;
      const auto address = found ? FRXPeerAddress::make(*found, named->port()) : std::nullopt;
      if (address) accessor = {accessor.name(), address->url(url.substr(endOfAuthority(url)))};
    });
    completion(std::move(result));
  }
};

}  // namespace

FRXValue describe(const Result& result) {
  FRXDictionary described;
  for (const std::string_view capability : {FRXCapabilityNameStreaming, FRXCapabilityNameProjectSharing}) {
    FRXDictionary services;
    if (const auto found = result.find(capability); found != result.end()) {
      for (const auto& [serviceId, accessors] : found->second) {
        FRXArray offers;
        for (const FRXClientAccessor& accessor : accessors) {
          offers.emplace_back(FRXDictionary{{"name", accessor.name()}, {"url", accessor.accessURL()}});
        }
        services.emplace(serviceId, std::move(offers));
      }
    }
    described.emplace(capability, std::move(services));
  }
  return described;
}

std::optional<BroadcastCounts> countsInBroadcast(const FRXNotification& notification) {
  const auto countOf = [&](std::string_view member) -> std::optional<std::size_t> {
    const auto found = notification.userInfo().find(member);
    const FRXArray* offers = found == notification.userInfo().end() ? nullptr : found->second.asArray();
    return offers == nullptr ? std::nullopt : std::optional(offers->size());
  };
  BroadcastCounts counts;
  if (notification.name() == FRXStreamingCapabilityNotification) counts.streams = countOf("streams");
  if (notification.name() == FRXProjectSharingCapabilityNotification) counts.projects = countOf("projects");
  if (!counts.streams && !counts.projects) return std::nullopt;
  return counts;
}

void replaceHostNames(HostNameResolver& resolver, RunLoop& loop, Result result,
                      std::function<void(Result)> completion) {
  const auto replacement = std::make_shared<Replacement>();
  replacement->result = std::move(result);
  replacement->completion = std::move(completion);
  visitAccessors(replacement->result, [&](const FRXClientAccessor& accessor) {
    if (const auto named = addressIn(accessor.accessURL())) replacement->addresses.try_emplace(named->host());
  });
  replacement->missing = replacement->addresses.size();
  if (replacement->missing == 0) return loop.post([replacement] { replacement->finish(); });
  for (const auto& [host, unknown] : replacement->addresses) {
    resolver.resolve(host, FRXDefaultPort, resolutionPatience,
                     [replacement, &loop, host = host](const std::vector<SocketAddress>& addresses,
                                                       const std::optional<FRXError>&) {
                       loop.post([replacement, host, addresses] { replacement->take(host, addresses); });
                     });
  }
}

}  // namespace ferrox::command
