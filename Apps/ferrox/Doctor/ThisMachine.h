// By what this machine is told from others: its IP addresses, and the identity that its nodes carry.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace ferrox::command {

/// Without scopes, which tell nothing between addresses of one machine. Empty when the system does not tell.
std::set<std::string> addressesOfThisMachine();

/// Whether a node of that service name would be taken for one of this machine.
bool hasIdentityOfThisMachine(const std::optional<std::string>& serviceName);

/// "fe80::1" of "fe80::1%eth0"; any other text as it is.
std::string withoutScope(std::string_view address);

}  // namespace ferrox::command
