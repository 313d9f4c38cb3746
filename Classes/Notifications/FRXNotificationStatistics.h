// What went through a notification center, in numbers.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ferrox {

/// All but the last two only grow.
struct FRXNotificationStatistics {
  std::uint64_t posted = 0;      ///< outgoing ones that were handed on to be sent, whoever was connected then
  std::uint64_t reposted = 0;    ///< kept ones that were sent again, to a peer that had just connected
  std::uint64_t received = 0;    ///< from peers
  std::uint64_t unwritable = 0;  ///< outgoing ones that JSON cannot carry
  std::size_t waiting = 0;  ///< now: outgoing ones, and reposts, that the main thread has not come to yet
  std::size_t kept = 0;     ///< now: the latest of each name for peers that connect later
};

}  // namespace ferrox
