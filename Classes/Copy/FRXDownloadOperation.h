// Fetches one URL, whole or as one range of bytes, into one local file.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/Copy/FRXConcurrentOperation.h"
#include "Classes/Copy/FRXDownloadOperationDelegate.h"
#include "Classes/Copy/TransferRequest.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/ListenerSlot.h"
#include "Platform/FileSystem/ReplacementFile.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

class BackgroundQueue;
struct HTTPClientResponse;

/// The body streams into a file beside the target, which takes its place as the last step: whatever stood
/// there is replaced on success and stays as it was on any failure. Memory does not grow with the body.
/// A status other than 200 is a failure, 206 included.
///
/// Cancelled before it is started it ends without an error and without a call of the listener. Cancelled
/// while it runs, the transfer is ended at once and the operation ends in the same way: a cancellation is no
/// failure. A transfer that is complete by then still succeeds.
///
/// What the setters configure is ignored once the operation runs, has run or is cancelled.
/// Thread: any
class FRX_EXPORT FRXDownloadOperation final : public FRXConcurrentOperation {
 public:
  using SuccessCallback = std::function<void()>;
  using FailureCallback = std::function<void(const FRXError& error)>;

  /// `timeout` in seconds without a byte of the answer; one that is not greater than 0 is none.
  FRXDownloadOperation(std::string fromURL, std::string toPath, double timeout = noTransferTimeout,
                       const PlatformServices& platform = PlatformServices::shared());

  /// Asks for `length` bytes from offset `start` on. Ignored when `start` is negative or `length` less
  /// than 1.
  void setContentRange(std::int64_t start, std::int64_t length);
  /// Writes to the last component of `toPath` in the directory that `open` opens when the first byte is
  /// written. For targets that must not be reached through a path.
  void setDirectory(DirectoryOpener open);
  /// A body of any other length is an error. Off unless set.
  void setExpectedSize(std::optional<std::uint64_t> size);
  /// How long the body is going to be, for the size of buffers alone.
  void setLikelySize(std::uint64_t size);
  /// The file takes over the time of the answer's "Last-Modified", where there is one. Off unless set.
  void setPreservesModificationTime(bool preserves);

  /// Where the transfer is completed, which writes a small file. Borrowed until the operation is finished;
  /// the threads of the HTTP client unless set.
  void setCompletionQueue(BackgroundQueue& queue);

  /// Begins the transfer. Finishes at once when it is not startable.
  void start() override;
  /// Ends a transfer under way.
  void cancel() override;

  /// The transfer alone. Exactly one of the callbacks is called, once, on the completion queue.
  /// To be called at most once.
  void downloadFile(SuccessCallback onSuccess, FailureCallback onFailure);

  const std::string& fromURL() const { return fromURL_; }
  const std::string& toPath() const { return toPath_; }
  /// The largest finite number when there is none.
  double timeout() const { return timeout_; }
  bool rangeSet() const { return rangeSet_.load(); }
  void setRangeSet(bool rangeSet) { rangeSet_ = rangeSet; }
  std::int64_t rangeStart() const { return rangeStart_.load(); }
  void setRangeStart(std::int64_t offset) { rangeStart_ = offset; }
  /// One past the last byte that is wanted: the serving side takes the end as exclusive.
  std::int64_t rangeEnd() const { return rangeEnd_.load(); }
  void setRangeEnd(std::int64_t offset) { rangeEnd_ = offset; }
  using FRXConcurrentOperation::setError;

  /// Size of the written file; 0 before success.
  std::uint64_t sizeInBytes() const { return sizeInBytes_.load(); }
  /// Bytes of the body that have arrived so far, for showing progress within a large file.
  std::uint64_t bytesReceived() const { return bytesReceived_.load(std::memory_order_relaxed); }
  /// The answer's "Last-Modified"; known once the operation is finished, where the peer sent one.
  std::optional<std::chrono::system_clock::time_point> lastModified() const;

  /// Held weakly. `Listener` has to be the class that implements the operations.
  template <typename Listener>
  void setDelegate(const std::shared_ptr<Listener>& listener) {
    delegate_.set(listener);
  }
  void setDelegate(std::nullptr_t) { delegate_.set(nullptr); }
  std::shared_ptr<FRXDownloadOperationDelegate> delegate() const { return delegate_.listener(); }

 private:
  class Transfer;
  struct Settings {
    DirectoryOpener openDirectory;
    std::optional<std::uint64_t> expectedSize;
    std::optional<std::uint64_t> likelySize;
    bool preservesModificationTime = false;
    BackgroundQueue* completionQueue = nullptr;
  };

  Settings settings() const;
  void transferDidSucceed();
  void transferDidFail(const FRXError& error);

  const PlatformServices platform_;
  const std::string fromURL_;
  const std::string toPath_;
  const double timeout_;
  std::atomic<bool> rangeSet_{false};
  std::atomic<std::int64_t> rangeStart_{0};
  std::atomic<std::int64_t> rangeEnd_{0};
  std::atomic<std::uint64_t> sizeInBytes_{0};
  std::atomic<std::uint64_t> bytesReceived_{0};
  ListenerSlot<FRXDownloadOperationDelegate, FRXDownloadOperationRespondingSelectors> delegate_;
  TransferRequest request_;

  mutable Mutex mutex_;
  Settings settings_ FRX_GUARDED_BY(mutex_);
  std::optional<std::chrono::system_clock::time_point> lastModified_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox
