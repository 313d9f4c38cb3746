// How the server and the browser reach the manager of outbound connections without knowing it.
#pragma once

#include <memory>
#include <string>

#include "Platform/Base/Export.h"

namespace ferrox {

class FRXNetService;

/// Opens and closes connections to peers. While none is registered there is nothing to start and nothing
/// is connected.
class FRX_EXPORT PeerConnector {
 public:
  virtual ~PeerConnector() = default;

  /// Thread: any
  virtual void start() = 0;
  virtual void stop() = 0;
  virtual void connectToService(const std::shared_ptr<FRXNetService>& service) = 0;
  virtual void disconnectFromService(const std::shared_ptr<FRXNetService>& service) = 0;
  /// `serviceId` is a record's key ("HOST:port"). Thread: main
  virtual bool isConnectedToService(const std::string& serviceId) const = 0;

  /// The connector in use; empty when there is none. Thread: any
  static std::shared_ptr<PeerConnector> registered();
  static void setRegistered(std::shared_ptr<PeerConnector> connector);
};

}  // namespace ferrox
