// How the notification center sends, without knowing connections.
#pragma once

#include <string>

#include "Platform/Base/Export.h"

namespace ferrox {

class FRXWebsocketMessage;

/// Implemented by the manager of outbound connections. What cannot be sent now is dropped.
/// Thread: any
class FRX_EXPORT MessageBroadcaster {
 public:
  virtual ~MessageBroadcaster() = default;
  /// To every open connection.
  virtual void broadcastMessage(const FRXWebsocketMessage& message) = 0;
  /// To one peer; `toService` is a record's key ("HOST:port") or the peer's published name.
  virtual void broadcastMessage(const FRXWebsocketMessage& message, const std::string& toService) = 0;
};

}  // namespace ferrox
