// Puts questions to the network beside the stack, which then learns from the answers.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "Platform/DNSSD/Session.h"

namespace ferrox::dnssd {

/// Multicasts one question for each record type on every interface and address family in use. The stacks
/// space their own questions ever wider, up to an hour, and cannot be told to ask now. `name` is plain dotted
/// text; one that is no DNS name is not asked for. Thread: discovery
void queryNetwork(const DiscoveryContext& context, std::string_view name,
                  const std::vector<std::uint16_t>& recordTypes);

}  // namespace ferrox::dnssd
