// Where the routing layer reports instances that connect, and learns the local instance's own record.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "Platform/Base/Export.h"

namespace ferrox {

class FRXNetService;

/// Called on network threads: implementations move themselves to the main thread and never block.
class FRX_EXPORT ConnectionRequestDelegate {
 public:
  virtual ~ConnectionRequestDelegate() = default;
  /// An instance has connected and said where it can be reached. Thread: network
  virtual void monitorService(std::shared_ptr<FRXNetService> service) = 0;
  /// The same, with the address it connected from, by which it can be reached where the host name in its
  /// record means nothing. Thread: network
  virtual void monitorServiceAtAddress(std::shared_ptr<FRXNetService> service, const std::string& address) {
    (void)address;
    monitorService(std::move(service));
  }
  /// This instance as the network knows it, or an empty pointer. Thread: any
  virtual std::shared_ptr<FRXNetService> localFRXService() const = 0;
};

}  // namespace ferrox
