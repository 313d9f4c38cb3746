// Checks every few seconds whether each known peer still answers, and reports the changes.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "Classes/Monitor/FRXServiceChecker.h"
#include "Classes/Monitor/FRXServiceMonitorDelegate.h"
#include "Classes/Monitor/FRXServiceMonitorStatusInfo.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/Mutex.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

class Timer;

/// Keeps the peers to watch, each under its service id. While there is one, a timer of the main loop starts
/// a pass every `checkInterval`: on the background queue, every peer is put to the checker. Checks under way
/// keep the monitor alive, its timer does not. Make it with `std::make_shared`.
class FRX_EXPORT FRXServiceMonitor : public std::enable_shared_from_this<FRXServiceMonitor> {
 public:
  static constexpr std::chrono::seconds checkInterval{3};
  /// So many failed checks in a row make a peer unresponsive.
  static constexpr std::uint64_t failureThreshold = 2;

  /// Peers by service id.
  using MonitoredServices = std::map<std::string, std::shared_ptr<FRXServiceMonitorStatusInfo>>;

  /// Checks with a `FRXTCPServiceChecker` of its own. `delegate` is held weakly.
  explicit FRXServiceMonitor(std::weak_ptr<FRXServiceMonitorDelegate> delegate,
                             const PlatformServices& platform = PlatformServices::shared());
  /// Checks with `serviceChecker`, which the caller keeps alive: it is held weakly, and without it checks
  /// are left out.
  FRXServiceMonitor(std::weak_ptr<FRXServiceMonitorDelegate> delegate,
                    std::weak_ptr<FRXServiceChecker> serviceChecker,
                    const PlatformServices& platform = PlatformServices::shared());
  ~FRXServiceMonitor();
  FRXServiceMonitor(const FRXServiceMonitor&) = delete;
  FRXServiceMonitor& operator=(const FRXServiceMonitor&) = delete;

  /// Begins watching the peer; one that is watched already stays as it is, its status included. The first
  /// check comes with the next pass. Thread: main
  void startMonitoringService(const std::shared_ptr<FRXNetService>& service);
  /// Ends watching the peer; unknown ones are ignored. A check under way may still report that it became
  /// responsive. Thread: main
  void stopMonitoringService(const std::shared_ptr<FRXNetService>& service);

  /// One pass over all peers, on the background queue. Thread: any
  void checkAllMonitoredServicesForResponse();
  /// Checks one peer now; does nothing for an unknown id. Thread: any
  void checkServiceForResponse(const std::string& serviceId);

  /// True while at least one peer is watched. Thread: any
  bool isMonitoring() const { return monitoring_.load(); }
  /// A copy. Thread: any
  MonitoredServices monitoredServices() const;
  std::shared_ptr<FRXServiceMonitorDelegate> delegate() const { return delegate_.lock(); }
  std::shared_ptr<FRXServiceChecker> serviceChecker() const { return serviceChecker_.lock(); }

 private:
  void startResponseTimer();
  void stopResponseTimer();
  void handleResult(FRXServiceCheckResult result, const FRXServiceMonitorStatusInfo& checked,
                    const std::string& serviceId);
  void handleResponse(const FRXServiceMonitorStatusInfo& checked, const std::string& serviceId);
  void handleMissingResponse(const FRXServiceMonitorStatusInfo& checked, const std::string& serviceId);
  std::shared_ptr<FRXServiceMonitorStatusInfo> statusOf(const std::string& serviceId) const;

  const PlatformServices platform_;
  const std::weak_ptr<FRXServiceMonitorDelegate> delegate_;
  const std::shared_ptr<FRXServiceChecker> tcpServiceChecker_;
  const std::weak_ptr<FRXServiceChecker> serviceChecker_;
  std::atomic<bool> monitoring_{false};

  mutable Mutex mutex_;
  MonitoredServices monitoredServices_ FRX_GUARDED_BY(mutex_);

  // Main thread only.
  std::unique_ptr<Timer> serviceResponseTimer_;
};

}  // namespace ferrox
