// Where the routing layer reports instances that connect, and learns the local instance's own record.
#pragma once

#include <memory>

namespace ferrox {

class FRXNetService;

/// Called on network threads: implementations move themselves to the main thread and never block.
class ConnectionRequestDelegate {
 public:
  virtual ~ConnectionRequestDelegate() = default;
  /// An instance has connected and said where it can be reached. Thread: network
  virtual void monitorService(std::shared_ptr<FRXNetService> service) = 0;
  /// This instance as the network knows it, or an empty pointer. Thread: any
  virtual std::shared_ptr<FRXNetService> localFRXService() const = 0;
};

}  // namespace ferrox
