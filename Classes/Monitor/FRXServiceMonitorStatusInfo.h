// What a monitor knows about one peer.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "Platform/Base/Export.h"

namespace ferrox {

class FRXNetService;

/// Whether a monitored peer answers.
enum class FRXServiceResponseStatus : std::uint64_t {
  /// Has not answered since monitoring began.
  Unknown = 0,
  /// Answered; the listener was told.
  Responsive = 1,
  /// Failed twice in a row; the listener was told.
  Unresponsive = 2,
};

/// Changed only under its monitor's lock; may be read at any time, also after the peer left the monitor.
struct FRX_EXPORT FRXServiceMonitorStatusInfo {
  explicit FRXServiceMonitorStatusInfo(std::shared_ptr<FRXNetService> monitoredService);

  const std::shared_ptr<FRXNetService> service;
  std::atomic<FRXServiceResponseStatus> responseStatus{FRXServiceResponseStatus::Unknown};
  std::atomic<std::uint64_t> consecutiveFailedRequests{0};
};

}  // namespace ferrox
