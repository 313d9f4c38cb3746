// The query that peers ask each other.
#pragma once

#include <string_view>

namespace ferrox {

/// Asks for everything that a peer offers.
inline constexpr std::string_view FRXCapabilitiesQuery =
    "{ capabilities { streaming { name path contentType port } projectsharing { name id port } } }";

}  // namespace ferrox
