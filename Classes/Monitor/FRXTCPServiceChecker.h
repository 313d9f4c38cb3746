// Checks a peer by opening, and at once closing, a TCP connection to its port.
#pragma once

#include <functional>
#include <memory>

#include "Classes/Monitor/FRXServiceChecker.h"
#include "Platform/Base/Export.h"
#include "Platform/PlatformServices.h"
#include "Platform/Queues/OperationQueue.h"

namespace ferrox {

/// Each check is an operation of one queue. While a check of a host and port is pending or under way, a
/// further one is answered `Cancelled`, synchronously. All other results arrive on the main loop's thread,
/// or on a background thread when the connection could not even be begun.
/// Thread: any
class FRX_EXPORT FRXTCPServiceChecker : public FRXServiceChecker {
 public:
  explicit FRXTCPServiceChecker(const PlatformServices& platform = PlatformServices::shared());

  void checkServiceForResponse(const std::shared_ptr<FRXNetService>& service, Completion completion) override;

  OperationQueue& operationQueue() { return operationQueue_; }

 private:
  const PlatformServices platform_;
  OperationQueue operationQueue_;
};

}  // namespace ferrox
