// What became of the sockets that one manager has opened.
#pragma once

#include <cstddef>
#include <set>
#include <string>

#include "Classes/WebSockets/FRXMessagingStatistics.h"
#include "Classes/WebSockets/MessageCounters.h"
#include "Platform/Base/FRXError.h"

namespace ferrox {

/// Thread: main, except `messages`
class ConnectionTally {
 public:
  /// So many peers are remembered as having been connected: as many as can be known at once.
  static constexpr std::size_t maxRemembered = 4096;

  void didAttempt() { ++connections_.attempts; }
  void didOpen(const std::string& serviceId);
  void didFailToBegin() { ++connections_.failed; }
  void didFail(const FRXError& error, bool wasOpen);

  const FRXConnectionStatistics& connections() const { return connections_; }
  MessageCounters messages;

 private:
  FRXConnectionStatistics connections_;
  std::set<std::string> onceConnected_;
};

}  // namespace ferrox
