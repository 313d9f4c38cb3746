// What peers offer, as they answered.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Classes/Capabilities/FRXCapabilitiesListing.h"

namespace ferrox {
class FRXNotification;
class HostNameResolver;
class RunLoop;
}  // namespace ferrox

namespace ferrox::command {

/// {"streaming": {serviceId: [{"name", "url"}]}, "projectsharing": {...}}; both members are always there.
FRXValue describe(const FRXCapabilitiesListing::Result& result);

/// How many streams or projects a peer has, by its broadcast; the other kind is absent. Nothing for a
/// notification that is no such broadcast.
struct BroadcastCounts {
  std::optional<std::size_t> streams;
  std::optional<std::size_t> projects;
};
std::optional<BroadcastCounts> countsInBroadcast(const FRXNotification& notification);

/// The same with an address in place of each host name that can be resolved, for players that cannot look
/// names under .local up. `completion` is called once, on the loop. Thread: any
void replaceHostNames(HostNameResolver& resolver, RunLoop& loop, FRXCapabilitiesListing::Result result,
                      std::function<void(FRXCapabilitiesListing::Result)> completion);

}  // namespace ferrox::command
