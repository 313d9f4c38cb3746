// What a download reports.
#pragma once

#include <cstdint>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Base/ListenerSelectors.h"

namespace ferrox {

class FRXDownloadOperation;

/// Both operations are optional. They are called after the operation is finished.
/// Thread: a callback thread of the HTTP client, several of them at a time
class FRX_EXPORT FRXDownloadOperationDelegate {
 public:
  virtual ~FRXDownloadOperationDelegate() = default;
  /// The file stands in its place.
  virtual void downloadOperationDidSucceed(FRXDownloadOperation& operation, std::uint64_t sizeInBytes) {
    (void)operation, (void)sizeInBytes;
  }
  /// Nothing was changed.
  virtual void downloadOperationDidFail(FRXDownloadOperation& operation, const FRXError& error) {
    (void)operation, (void)error;
  }
};

/// Which operations a listener's class overrides; the others are not called, and cost nothing.
struct FRXDownloadOperationRespondingSelectors {
  bool didSucceed = false;
  bool didFail = false;

  template <typename Listener>
  static constexpr FRXDownloadOperationRespondingSelectors of() {
    using Base = FRXDownloadOperationDelegate;
    return {overridesOperation(&Base::downloadOperationDidSucceed, &Listener::downloadOperationDidSucceed),
            overridesOperation(&Base::downloadOperationDidFail, &Listener::downloadOperationDidFail)};
  }
};

}  // namespace ferrox
