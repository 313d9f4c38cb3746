// The order in which the addresses of one host are tried.
#pragma once

#include <vector>

#include "Platform/Net/SocketAddress.h"

namespace ferrox {

/// Without duplicates, the families taking turns, beginning with that of the first address and keeping the
/// order within each family (RFC 8305 section 4): so that a family that does not work costs one attempt's
/// head start and no more. Thread: any
std::vector<SocketAddress> interleavedByFamily(std::vector<SocketAddress> addresses);

}  // namespace ferrox
