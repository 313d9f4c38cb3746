// The thread that moves the bytes of all HTTP requests.
#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "Platform/Base/FRXError.h"
#include "Platform/Base/Mutex.h"
#include "Platform/HTTP/Client/CurlTransfer.h"
#include "Platform/HTTP/Client/TransferSlots.h"
#include "Platform/Net/FileDescriptor.h"
#include "Platform/Queues/BackgroundQueue.h"

namespace ferrox {

class HostConnector;
class HostNameResolver;

/// What other threads tell the transfer thread. Outlives it, so that a late word finds nobody instead of a
/// dead object.
class CurlInbox {
 public:
  using Id = std::uint64_t;
  struct Message {
    enum class Kind { Start, Cancel, Resume, Connected, Stop } kind;
    Id id = 0;
    std::unique_ptr<CurlTransfer> transfer = nullptr;
    FileDescriptor socket = {};
    std::optional<FRXError> error = std::nullopt;
  };

  explicit CurlInbox(CURLM* multi) : multi_(multi) {}
  /// False after `close`. Thread: any
  bool post(Message message);
  /// Thread: the one that reads, always the same
  std::vector<Message> take();
  bool isEmpty() const;
  void close();

 private:
  mutable Mutex mutex_;
  std::thread::id reader_ FRX_GUARDED_BY(mutex_);
  CURLM* multi_ FRX_GUARDED_BY(mutex_);
  std::vector<Message> messages_ FRX_GUARDED_BY(mutex_);
};

/// Thread: any for its operations; the rest happens on the thread it owns
class CurlMultiLoop {
 public:
  using Id = CurlInbox::Id;

  /// Completions are run on `callbackQueue`; both must outlive the loop.
  CurlMultiLoop(HostNameResolver& resolver, BackgroundQueue& callbackQueue);
  /// Cancels what is under way; its completions have been posted when this returns.
  ~CurlMultiLoop();
  CurlMultiLoop(const CurlMultiLoop&) = delete;
  CurlMultiLoop& operator=(const CurlMultiLoop&) = delete;

  void start(Id id, std::unique_ptr<CurlTransfer> transfer);
  const std::shared_ptr<CurlInbox>& inbox() const { return inbox_; }

 private:
  enum class Stage { Waiting, Transferring, Connecting };
  struct Job {
    std::unique_ptr<CurlTransfer> transfer;
    Stage stage = Stage::Waiting;
    std::shared_ptr<HostConnector> connector = nullptr;
  };
  using TimePoint = CurlTransfer::TimePoint;
  struct MultiDeleter {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
  };

  void run();
  bool readInbox();
  void handle(CurlInbox::Message message);
  void begin(Id id);
  void attempt(Id id, Job& job);
  void connect(Id id, Job& job);
  void connected(Id id, FileDescriptor socket, std::optional<FRXError> error);
  void resume(Id id);
  void readResults();
  void attemptDidEnd(CURL* easy, CURLcode code);
  void failTimedOut();
  void finish(Id id, std::optional<FRXError> error);
  void finishAll();
  int millisecondsToWait() const;

  HostNameResolver& resolver_;
  BackgroundQueue& callbackQueue_;
  // Before the library's handle, which closes its last connections as it goes.
  OpenSockets sockets_;
  std::unique_ptr<CURLM, MultiDeleter> multi_;
  std::shared_ptr<CurlInbox> inbox_;

  // Touched by the thread alone.
  std::map<Id, Job> jobs_;
  std::map<CURL*, Id> idsByHandle_;
  TransferSlots slots_{HTTPClientMaxTransfersPerHost};
  // No transfer times out earlier. Activity only moves deadlines away, so nothing has to keep this exact.
  TimePoint nextDeadlineCheck_ = TimePoint::max();

  std::thread thread_;
};

}  // namespace ferrox
