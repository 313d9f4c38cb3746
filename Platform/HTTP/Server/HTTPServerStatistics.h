// What an HTTP server has done so far, in numbers.
#pragma once

#include <cstdint>

namespace ferrox {

/// Counted since the server was made, over all its stops and starts; only `connectionsOpen` can fall.
struct HTTPServerStatistics {
  std::uint64_t connectionsAccepted = 0;
  std::uint64_t connectionsRefused = 0;  ///< closed unanswered: too many, in all or from one address
  std::uint64_t connectionsOpen = 0;     ///< now, those that became WebSockets included
  // Every request that was answered counts in one of these four.
  std::uint64_t upgrades = 0;      ///< became a WebSocket
  std::uint64_t succeeded = 0;     ///< any other status below 400
  std::uint64_t clientErrors = 0;  ///< 400 to 499: refused, not found, malformed, beyond a limit
  std::uint64_t serverErrors = 0;  ///< from 500 on
  std::uint64_t bytesSent = 0;     ///< taken by the system: heads, bodies, and what WebSockets send
  /// Of files, put into answers; a client that breaks off may have got fewer.
  std::uint64_t fileBytesServed = 0;
};

}  // namespace ferrox
