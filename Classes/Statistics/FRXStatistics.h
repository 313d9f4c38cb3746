// What this instance is doing and has done, in numbers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Classes/Copy/FRXCopyStatistics.h"
#include "Classes/Notifications/FRXNotificationStatistics.h"
#include "Classes/WebSockets/FRXMessagingStatistics.h"
#include "Platform/Base/Export.h"
#include "Platform/HTTP/Server/HTTPServerStatistics.h"

namespace ferrox {

/// All but `refused` tell of now.
struct FRXPeerStatistics {
  std::size_t known = 0;              ///< found by discovery or by address, and not withdrawn
  std::size_t responsive = 0;         ///< of these: what the monitor thinks
  std::size_t connectedOutbound = 0;  ///< peers to which a connection of ours is open
  std::size_t connectedInbound = 0;   ///< peers that have a connection to us open, by the names they gave
  std::uint64_t refused = 0;          ///< records that cannot belong to a peer, or that came beyond the limit
};

/// Everything that waits, now.
struct FRXQueueStatistics {
  std::size_t notificationsWaiting = 0;  ///< posted from another thread, until the main one comes to them
  std::size_t notificationsKept = 0;     ///< for peers that connect later
  std::size_t awaitedReplies = 0;        ///< requests without a reply so far
  std::size_t outboundBytes = 0;         ///< until peers take them, over the connections that we opened
  std::size_t inboundBytes = 0;          ///< likewise, answers over those that peers opened
  std::size_t undeliveredBytes = 0;      ///< of peers' notifications, until the main thread comes to them
};

/// A snapshot of the process's shared objects; docs/observability.md tells what to read out of it. Those who
/// do the work count it, with one relaxed addition for each number, whether anybody asks or not; what tells
/// of now is looked up when it is asked for. Counters begin at 0 when the object that counts is made, which
/// for a process's shared objects is once, and are never set back. The numbers are not taken in one instant:
/// two that belong together may differ by what happens meanwhile.
struct FRX_EXPORT FRXStatistics {
  FRXPeerStatistics peers;
  FRXConnectionStatistics connections;
  /// Over all sockets, whoever opened them.
  FRXMessageStatistics messages;
  FRXNotificationStatistics notifications;
  HTTPServerStatistics http;
  FRXCopyStatistics copies;
  FRXQueueStatistics queues;

  /// Takes time in proportion to the known peers and open sockets. Makes the shared objects that were not
  /// used yet, and starts none of them. Thread: main
  static FRXStatistics current();
};

}  // namespace ferrox
