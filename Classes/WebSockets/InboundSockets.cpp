#include "Classes/WebSockets/InboundSockets.h"

#include <string>

#include "Classes/WebSockets/FRXWebsocket.h"

namespace ferrox {

const std::shared_ptr<InboundSockets>& InboundSockets::shared() {
  // Never destroyed: sockets may still end while the process does.
  static const auto& sockets = *new std::shared_ptr<InboundSockets>(std::make_shared<InboundSockets>());
  return sockets;
}

void InboundSockets::didOpen(const FRXWebsocket& socket) {
  const MutexLock lock(mutex_);
  open_.insert(&socket);
}

void InboundSockets::didEnd(const FRXWebsocket& socket) {
  const MutexLock lock(mutex_);
  open_.erase(&socket);
}

InboundStatistics InboundSockets::statistics() const {
  InboundStatistics statistics;
  statistics.messages = messages.statistics();
  std::set<std::string> ids;
  const MutexLock lock(mutex_);
  for (const FRXWebsocket* socket : open_) {
    ids.insert(socket->frxId().value_or(""));
    statistics.unsentBytes += socket->unsentBytes();
    statistics.undeliveredBytes += socket->undeliveredBytes();
  }
  statistics.peers = ids.size();
  return statistics;
}

}  // namespace ferrox
