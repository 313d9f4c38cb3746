#include "Classes/Monitor/FRXTCPServiceChecker.h"

#include <utility>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Monitor/FRXTCPServiceCheckerOperation.h"

namespace ferrox {

FRXTCPServiceChecker::FRXTCPServiceChecker(const PlatformServices& platform)
    : platform_(platform), operationQueue_(*platform.background) {}

void FRXTCPServiceChecker::checkServiceForResponse(const std::shared_ptr<FRXNetService>& service,
                                                   Completion completion) {
  auto operation = std::make_shared<FRXTCPServiceCheckerOperation>(
      service->hostName().value_or(""), static_cast<std::uint64_t>(service->port()), completion,
      platform_.makeTCPSocket);
  if (!operationQueue_.addOperationUnlessPresent(std::move(operation)) && completion) {
    completion(FRXServiceCheckResult::Cancelled);
  }
}

}  // namespace ferrox
