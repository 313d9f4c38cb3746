// What a segmented download reports and asks.
#pragma once

#include <cstdint>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Base/ListenerSelectors.h"

namespace ferrox {

class FRXSegmentedDownloadOperation;

/// All operations are optional. The operation may be destroyed within each of them.
/// Thread: main
class FRX_EXPORT FRXSegmentedDownloadOperationDelegate {
 public:
  virtual ~FRXSegmentedDownloadOperationDelegate() = default;
  /// A segment has ended; `sizeInBytes` is the size of the whole local file. Only a listener that implements
  /// this is given more than one segment.
  virtual void downloadOperationDidSucceed(FRXSegmentedDownloadOperation& operation,
                                           std::uint64_t sizeInBytes) {
    (void)operation, (void)sizeInBytes;
  }
  /// The segment under way has failed and stays the next one.
  virtual void downloadOperationDidFail(FRXSegmentedDownloadOperation& operation, const FRXError& error) {
    (void)operation, (void)error;
  }
  /// False drops the block: its bytes of the file stay as they are. Without this operation all are written.
  virtual bool shouldWriteToFileWithDownloadOperation(FRXSegmentedDownloadOperation& operation,
                                                      std::string_view receivedData) {
    (void)operation, (void)receivedData;
    return true;
  }
};

/// Which operations a listener's class overrides; the others are not called, and cost nothing.
struct FRXSegmentedDownloadOperationRespondingSelectors {
  bool didSucceed = false;
  bool didFail = false;
  bool shouldWriteToFile = false;

  template <typename Listener>
  static constexpr FRXSegmentedDownloadOperationRespondingSelectors of() {
    using Base = FRXSegmentedDownloadOperationDelegate;
    return {overridesOperation(&Base::downloadOperationDidSucceed, &Listener::downloadOperationDidSucceed),
            overridesOperation(&Base::downloadOperationDidFail, &Listener::downloadOperationDidFail),
            overridesOperation(&Base::shouldWriteToFileWithDownloadOperation,
                               &Listener::shouldWriteToFileWithDownloadOperation)};
  }
};

}  // namespace ferrox
