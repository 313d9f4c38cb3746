#include "Classes/Monitor/FRXServiceMonitor.h"

#include <cassert>
#include <utility>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Monitor/FRXTCPServiceChecker.h"
#include "Platform/Log/Log.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox {

FRXServiceMonitor::FRXServiceMonitor(std::weak_ptr<FRXServiceMonitorDelegate> delegate,
                                     const PlatformServices& platform)
    : platform_(platform),
      delegate_(std::move(delegate)),
      tcpServiceChecker_(std::make_shared<FRXTCPServiceChecker>(platform)),
      serviceChecker_(tcpServiceChecker_) {}

FRXServiceMonitor::FRXServiceMonitor(std::weak_ptr<FRXServiceMonitorDelegate> delegate,
                                     std::weak_ptr<FRXServiceChecker> serviceChecker,
                                     const PlatformServices& platform)
    : platform_(platform), delegate_(std::move(delegate)), serviceChecker_(std::move(serviceChecker)) {}

FRXServiceMonitor::~FRXServiceMonitor() = default;

void FRXServiceMonitor::startMonitoringService(const std::shared_ptr<FRXNetService>& service) {
  assert(platform_.mainLoop->isCurrentThread());
  if (!service) return;
  {
    const MutexLock lock(mutex_);
    auto& entry = monitoredServices_[service->serviceId()];
    if (entry) return;
    entry = std::make_shared<FRXServiceMonitorStatusInfo>(service);
    monitoring_ = true;
  }
  startResponseTimer();
}

void FRXServiceMonitor::stopMonitoringService(const std::shared_ptr<FRXNetService>& service) {
  assert(platform_.mainLoop->isCurrentThread());
  if (!service) return;
  {
    const MutexLock lock(mutex_);
    if (monitoredServices_.erase(service->serviceId()) == 0 || !monitoredServices_.empty()) return;
    monitoring_ = false;
  }
  stopResponseTimer();
}

void FRXServiceMonitor::startResponseTimer() {
  if (serviceResponseTimer_) return;
  serviceResponseTimer_ =
      Timer::scheduleRepeating(*platform_.mainLoop, checkInterval, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->checkAllMonitoredServicesForResponse();
      });
}

void FRXServiceMonitor::stopResponseTimer() {
  if (!serviceResponseTimer_) return;
  serviceResponseTimer_->invalidate();
  serviceResponseTimer_.reset();
}

void FRXServiceMonitor::checkAllMonitoredServicesForResponse() {
  if (!isMonitoring()) return;
  platform_.background->post([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    for (const auto& [serviceId, status] : self->monitoredServices())
      self->checkServiceForResponse(serviceId);
  });
}

void FRXServiceMonitor::checkServiceForResponse(const std::string& serviceId) {
  const auto status = statusOf(serviceId);
  const auto checker = serviceChecker();
  if (!status || !checker) return;
  checker->checkServiceForResponse(
      status->service, [self = shared_from_this(), status, serviceId](FRXServiceCheckResult result) {
        self->handleResult(result, *status, serviceId);
      });
}

void FRXServiceMonitor::handleResult(FRXServiceCheckResult result, const FRXServiceMonitorStatusInfo& checked,
                                     const std::string& serviceId) {
  switch (result) {
    case FRXServiceCheckResult::Responded:
      return handleResponse(checked, serviceId);
    case FRXServiceCheckResult::NoResponse:
      return handleMissingResponse(checked, serviceId);
    case FRXServiceCheckResult::Cancelled:
      FRX_LOG_DEBUG(
          "Service check cancelled...if this happens frequently, we may need to decrease the ping timeout or "
          "increase the ping interval.");
      return;
  }
}

// What is decided here rests on the status that was current when the check began; what is written goes to
// whatever stands under the service id now, and nowhere if the peer has left meanwhile.
void FRXServiceMonitor::handleResponse(const FRXServiceMonitorStatusInfo& checked,
                                       const std::string& serviceId) {
  bool becameResponsive = false;
  {
    const MutexLock lock(mutex_);
    becameResponsive = checked.responseStatus != FRXServiceResponseStatus::Responsive;
    const auto entry = monitoredServices_.find(serviceId);
    if (becameResponsive && entry != monitoredServices_.end()) {
      entry->second->responseStatus = FRXServiceResponseStatus::Responsive;
    }
  }
  if (becameResponsive) {
    if (const auto listener = delegate()) {
      listener->frxServiceMonitorServiceBecameResponsive(*this, checked.service);
    }
  }
  if (const auto entry = statusOf(serviceId)) entry->consecutiveFailedRequests = 0;
}

void FRXServiceMonitor::handleMissingResponse(const FRXServiceMonitorStatusInfo& checked,
                                              const std::string& serviceId) {
  std::uint64_t failures = 1;
  {
    const MutexLock lock(mutex_);
    if (checked.responseStatus == FRXServiceResponseStatus::Unresponsive) return;
    if (const auto entry = monitoredServices_.find(serviceId); entry != monitoredServices_.end()) {
      FRXServiceMonitorStatusInfo& current = *entry->second;
      failures = ++current.consecutiveFailedRequests;
      if (failures >= failureThreshold) current.responseStatus = FRXServiceResponseStatus::Unresponsive;
    }
  }
  if (failures < failureThreshold) return;
  if (const auto listener = delegate()) {
    listener->frxServiceMonitorServiceBecameUnresponsive(*this, checked.service);
  }
}

FRXServiceMonitor::MonitoredServices FRXServiceMonitor::monitoredServices() const {
  const MutexLock lock(mutex_);
  return monitoredServices_;
}

std::shared_ptr<FRXServiceMonitorStatusInfo> FRXServiceMonitor::statusOf(const std::string& serviceId) const {
  const MutexLock lock(mutex_);
  const auto entry = monitoredServices_.find(serviceId);
  return entry != monitoredServices_.end() ? entry->second : nullptr;
}

}  // namespace ferrox
