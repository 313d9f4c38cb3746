// Checks a peer by asking its HTTP server for the head of its root.
#pragma once

#include <chrono>
#include <memory>

#include "Classes/Monitor/FRXServiceChecker.h"
#include "Platform/Base/Export.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

/// Any HTTP answer counts, whatever its status. Results arrive on the HTTP client's callback threads.
/// Thread: any
class FRX_EXPORT FRXHTTPServiceChecker : public FRXServiceChecker {
 public:
  static constexpr std::chrono::milliseconds requestTimeout{1000};

  explicit FRXHTTPServiceChecker(const PlatformServices& platform = PlatformServices::shared());

  void checkServiceForResponse(const std::shared_ptr<FRXNetService>& service, Completion completion) override;

 private:
  const PlatformServices platform_;
};

}  // namespace ferrox
