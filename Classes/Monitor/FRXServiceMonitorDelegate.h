// What a service monitor reports.
#pragma once

#include <memory>

#include "Platform/Base/Export.h"

namespace ferrox {

class FRXNetService;
class FRXServiceMonitor;

/// Told about changes of a peer's state, and only about changes. Both operations are required.
/// Thread: the one on which the checker delivered its result (main with the TCP checker)
class FRX_EXPORT FRXServiceMonitorDelegate {
 public:
  virtual ~FRXServiceMonitorDelegate() = default;
  /// The peer answered, for the first time or again.
  virtual void frxServiceMonitorServiceBecameResponsive(FRXServiceMonitor& monitor,
                                                        const std::shared_ptr<FRXNetService>& service) = 0;
  /// The peer failed twice in a row.
  virtual void frxServiceMonitorServiceBecameUnresponsive(FRXServiceMonitor& monitor,
                                                          const std::shared_ptr<FRXNetService>& service) = 0;
};

}  // namespace ferrox
