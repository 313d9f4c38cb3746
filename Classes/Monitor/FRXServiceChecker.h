// The one question that liveness monitoring asks: does this peer answer right now?
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "Platform/Base/Export.h"

namespace ferrox {

class FRXNetService;

/// What became of one check.
enum class FRXServiceCheckResult : std::uint64_t {
  /// The peer answered.
  Responded = 0,
  /// It did not: refused, timed out, unreachable.
  NoResponse = 1,
  /// It was not asked: a check of the same host and port is still under way.
  Cancelled = 2,
};

/// Asks one peer whether it answers. Liveness monitoring has one of these and repeats it.
class FRX_EXPORT FRXServiceChecker {
 public:
  using Completion = std::function<void(FRXServiceCheckResult)>;

  virtual ~FRXServiceChecker() = default;

  /// Checks once. Every failure is a result; `completion` is called exactly once, on a thread of the
  /// checker's choice, and for `Cancelled` possibly inside this call. Thread: any
  virtual void checkServiceForResponse(const std::shared_ptr<FRXNetService>& service,
                                       Completion completion) = 0;
};

}  // namespace ferrox
