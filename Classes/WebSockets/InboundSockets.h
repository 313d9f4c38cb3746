// The sockets that peers have opened to this instance, for statistics alone.
#pragma once

#include <cstddef>
#include <memory>
#include <set>

#include "Classes/WebSockets/FRXMessagingStatistics.h"
#include "Classes/WebSockets/MessageCounters.h"
#include "Platform/Base/Mutex.h"

namespace ferrox {

class FRXWebsocket;

struct InboundStatistics {
  /// Over the sockets that peers opened, both ways.
  FRXMessageStatistics messages;
  std::size_t peers = 0;             ///< now: different service ids among the open sockets
  std::size_t unsentBytes = 0;       ///< now: in all send queues together
  std::size_t undeliveredBytes = 0;  ///< now: of messages that the main thread has not taken yet
};

/// Thread: any
class InboundSockets {
 public:
  /// Those of the process, for as long as it lives.
  static const std::shared_ptr<InboundSockets>& shared();

  void didOpen(const FRXWebsocket& socket);
  /// Forgets it, before it is gone; also one that never opened.
  void didEnd(const FRXWebsocket& socket);

  /// Looks at every open socket.
  InboundStatistics statistics() const;

  MessageCounters messages;

 private:
  mutable Mutex mutex_;
  std::set<const FRXWebsocket*> open_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox
