// Whom the copy of a project keeps informed.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Base/ListenerSelectors.h"

namespace ferrox {

/// Listener of `CopyR24ProjectOperation`. Every operation is optional; each gets the copy's `operationId`.
/// Thread: any; calls come from threads of the copy and of its downloads, several may come at once. They may
/// block without stalling a transfer.
class FRX_EXPORT CopyR24ProjectOperationDelegate {
 public:
  using Decision = std::function<void()>;

  virtual ~CopyR24ProjectOperationDelegate() = default;

  /// Free space is short. One of the two has to be called before this returns, on whatever thread; the first
  /// call counts, and what is called later than that does nothing. `onContinue` copies the files and returns
  /// when that has ended; `onAbort` makes the copy fail. Without either no file is copied, and the copy ends
  /// as a success.
  virtual void copyOperationDidIssueLowStorageWarning(const std::string& operationId,
                                                      const Decision& onContinue, const Decision& onAbort) {
    (void)operationId, (void)onContinue, (void)onAbort;
  }
  /// A file, or a piece of one, was downloaded. Both are bytes: of all downloads that have ended, and of the
  /// whole project.
  virtual void copyOperationDidUpdateProgress(const std::string& operationId, std::uint64_t currentProgress,
                                              std::uint64_t totalBytes) {
    (void)operationId, (void)currentProgress, (void)totalBytes;
  }
  /// The copy was cancelled, by `cancel` or because a download failed; once for every such call. Bytes.
  virtual void copyOperationWasCancelled(const std::string& operationId, std::uint64_t currentProgress) {
    (void)operationId, (void)currentProgress;
  }
  /// The copy has ended; `error` is there exactly when it failed. Called once, unless the project's structure
  /// could not be had at all: then there is no call, and the operation's `error` tells why.
  virtual void copyOperationDidComplete(const std::string& operationId, bool success,
                                        const std::optional<FRXError>& error) {
    (void)operationId, (void)success, (void)error;
  }
  /// Not called by this version. Both are bytes.
  virtual void copyOperationDidAbortDueToNotEnoughStorage(const std::string& operationId,
                                                          std::uint64_t projectSize,
                                                          std::uint64_t diskSpaceRemaining) {
    (void)operationId, (void)projectSize, (void)diskSpaceRemaining;
  }

  /// Which of the operations a listener implements.
  struct RespondingSelectors {
    bool didIssueLowStorageWarning = false;
    bool didUpdateProgress = false;
    bool wasCancelled = false;
    bool didComplete = false;
    bool didAbortDueToNotEnoughStorage = false;

    template <typename Concrete>
    static constexpr RespondingSelectors of() {
      using Base = CopyR24ProjectOperationDelegate;
      return {
          .didIssueLowStorageWarning = overridesOperation(&Base::copyOperationDidIssueLowStorageWarning,
                                                          &Concrete::copyOperationDidIssueLowStorageWarning),
          .didUpdateProgress = overridesOperation(&Base::copyOperationDidUpdateProgress,
                                                  &Concrete::copyOperationDidUpdateProgress),
          .wasCancelled =
              overridesOperation(&Base::copyOperationWasCancelled, &Concrete::copyOperationWasCancelled),
          .didComplete =
              overridesOperation(&Base::copyOperationDidComplete, &Concrete::copyOperationDidComplete),
          .didAbortDueToNotEnoughStorage =
              overridesOperation(&Base::copyOperationDidAbortDueToNotEnoughStorage,
                                 &Concrete::copyOperationDidAbortDueToNotEnoughStorage),
      };
    }
  };
};

}  // namespace ferrox
