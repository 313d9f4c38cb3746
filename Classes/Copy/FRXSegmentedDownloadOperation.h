// Fetches chosen segments of one remote file into the same places of one local file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/Copy/FRXSegmentedDownloadOperationDelegate.h"
#include "Classes/Copy/StreamedFileDownload.h"
#include "Classes/Copy/TransferRequest.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/ListenerSlot.h"
#include "Platform/Base/Mutex.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

/// One segment after another, in the order in which they were enqueued, each streamed into the file as it
/// arrives. The local file is made when it is missing, changed in place and never truncated.
///
/// The end of a range is asked for inclusively, as HTTP defines it. A peer's shared projects are served with
/// an exclusive end, so a segment fetched from there comes one byte short: any answer of another length than
/// asked for is taken as it comes, after a WARN.
///
/// | the segment ended with              | the listener is told      | the segment             |
/// |-------------------------------------|---------------------------|-------------------------|
/// | status 200 to 299                   | didSucceed                | makes room for the next |
/// | status 404                          | didFail twice, code -404  | stays                   |
/// | any other status                    | didFail, then didSucceed  | makes room for the next |
/// | a transport error                   | didFail with that error   | stays                   |
/// | a local file that cannot be written | didFail                   | stays                   |
///
/// A segment that stays is tried first at the next `enqueueSegmentStartingAt` or `start`. The next segment is
/// begun only for a listener that implements `downloadOperationDidSucceed`. What is enqueued from there waits
/// until that call returns; from `downloadOperationDidFail` it begins anew at once, in which case nothing
/// more is told of the failed attempt.
/// Thread: main, except where it says any
class FRX_EXPORT FRXSegmentedDownloadOperation final : public StreamedFileDownload {
 public:
  /// A range of the remote file in bytes, and how often it has been begun again.
  struct SegmentParams {
    std::uint64_t start = 0;
    std::uint64_t length = 0;
    std::int32_t retries = 0;

    bool operator==(const SegmentParams&) const = default;
  };

  /// Times that a segment is begun again, after the first.
  static constexpr std::int32_t maxRetries = 10;

  /// `timeout` in seconds without a byte of the answer; one that is not greater than 0 is none.
  FRXSegmentedDownloadOperation(std::string fromURL, std::string toPath, double timeout = noTransferTimeout,
                                const PlatformServices& platform = PlatformServices::shared());
  ~FRXSegmentedDownloadOperation() override = default;

  /// Puts a segment behind those that wait, and begins with the first of them unless one is under way.
  /// False, with an ERROR, for one that no range can ask for or no file hold: without a byte, or with its
  /// last beyond 2^63 - 2. Thread: any
  bool enqueueSegmentStartingAt(std::uint64_t start, std::uint64_t length);
  /// Begins with the first segment that waits, unless one is under way. Thread: any
  void start();
  /// The segment that is under way or comes next. Thread: any
  std::optional<SegmentParams> getRequestedSegment() const;
  /// The segments that wait, the newest first; the last is under way or comes next. Thread: any
  std::deque<SegmentParams> segmentQueue() const;

  /// Held weakly. `Listener` has to be the class that implements the operations. Thread: any
  template <typename Listener>
  void setDelegate(const std::shared_ptr<Listener>& listener) {
    delegate_.set(listener);
  }
  void setDelegate(std::nullptr_t) { delegate_.set(nullptr); }
  std::shared_ptr<FRXSegmentedDownloadOperationDelegate> delegate() const { return delegate_.listener(); }

 protected:
  void transferWasAccepted(const HTTPClientResponse& response) override;
  void dataWasMissing() override { retrySegment(); }
  bool listenerWants(std::string_view block) override;
  void receiveBlock(std::string_view block) override;
  void transferDidSucceed() override;
  void transferDidFail(const FRXError& error) override;

 private:
  using Selectors = FRXSegmentedDownloadOperationRespondingSelectors;

  void startOnMainThread();
  void downloadSegment();
  void nextSegment();
  void retrySegment();

  mutable Mutex segmentQueueLock_;
  std::deque<SegmentParams> segmentQueue_ FRX_GUARDED_BY(segmentQueueLock_);
  /// Success is being reported: the segment reported on is still the first in the queue.
  bool isReporting_ = false;
  ListenerSlot<FRXSegmentedDownloadOperationDelegate, Selectors> delegate_;
};

}  // namespace ferrox
