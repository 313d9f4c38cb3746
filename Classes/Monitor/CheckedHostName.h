// The form of a record's host name under which the checkers look a peer up.
#pragma once

#include <string>

namespace ferrox {

/// Every "local.", in exactly this case, becomes "local". Thread: any
std::string checkedHostName(std::string hostName);

}  // namespace ferrox
