// What an atom-aware download reports and asks.
#pragma once

#include <cstdint>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Base/ListenerSelectors.h"

namespace ferrox {

class FRXAtomDownloadOperation;

/// All operations are optional. The operation may be destroyed within each of them.
/// Thread: main
class FRX_EXPORT FRXAtomDownloadOperationDelegate {
 public:
  virtual ~FRXAtomDownloadOperationDelegate() = default;
  /// False has the block ignored entirely: the bytes behind it would be taken for its own.
  virtual bool downloadOperationReceivedData(FRXAtomDownloadOperation& operation, std::string_view data) {
    (void)operation, (void)data;
    return true;
  }
  /// The run has ended, at an atom's end or because the peer has no more; `sizeInBytes` is the size of the
  /// local file.
  virtual void downloadOperationDidSucceed(FRXAtomDownloadOperation& operation, std::uint64_t sizeInBytes) {
    (void)operation, (void)sizeInBytes;
  }
  virtual void downloadOperationDidFail(FRXAtomDownloadOperation& operation, const FRXError& error) {
    (void)operation, (void)error;
  }
};

/// Which operations a listener's class overrides; the others are not called, and cost nothing.
struct FRXAtomDownloadOperationRespondingSelectors {
  bool receivedData = false;
  bool didSucceed = false;
  bool didFail = false;

  template <typename Listener>
  static constexpr FRXAtomDownloadOperationRespondingSelectors of() {
    using Base = FRXAtomDownloadOperationDelegate;
    return {
        overridesOperation(&Base::downloadOperationReceivedData, &Listener::downloadOperationReceivedData),
        overridesOperation(&Base::downloadOperationDidSucceed, &Listener::downloadOperationDidSucceed),
        overridesOperation(&Base::downloadOperationDidFail, &Listener::downloadOperationDidFail)};
  }
};

}  // namespace ferrox
