#include "Classes/Monitor/FRXServiceMonitorStatusInfo.h"

#include <utility>

#include "Classes/Discovery/FRXNetService.h"

namespace ferrox {

FRXServiceMonitorStatusInfo::FRXServiceMonitorStatusInfo(std::shared_ptr<FRXNetService> monitoredService)
    : service(std::move(monitoredService)) {}

}  // namespace ferrox
