#include "Classes/Copy/FRXDownloadOperation.h"

#include <charconv>
#include <limits>
#include <string_view>
#include <utility>

#include "Classes/Copy/DownloadBody.h"
#include "Classes/Copy/DownloadErrors.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/HTTP/Server/HTTPDate.h"

namespace ferrox {
namespace {

constexpr std::string_view className = "FRXDownloadOperation";

// The text of an error is read to its end, so that its connection can be used again; a film is not.
constexpr std::uint64_t longestRefusedBody = std::uint64_t{64} << 10;

std::optional<std::uint64_t> announcedLength(const HTTPClientResponse& response) {
  const std::string* const text = response.header("Content-Length");
  std::uint64_t length = 0;
  if (text == nullptr ||
      std::from_chars(text->data(), text->data() + text->size(), length).ec != std::errc{}) {
    return std::nullopt;
  }
  return length;
}

std::optional<std::chrono::system_clock::time_point> timeOfLastModified(const HTTPClientResponse& response) {
  const std::string* const text = response.header("Last-Modified");
  const auto time = text == nullptr ? std::nullopt : timeOfHTTPDate(*text);
  if (!time) return std::nullopt;
  return std::chrono::system_clock::from_time_t(*time);
}

FRXError lengthError(std::uint64_t arrived, std::uint64_t expected) {
  return downloadError(
      className,
      arrived < expected
          ? "the body ended after " + std::to_string(arrived) + " of " + std::to_string(expected) + " bytes"
          : "the body is longer than the " + std::to_string(expected) + " bytes that were expected");
}

}  // namespace

/// The answer to one request: what it said, and its body. Touched by the transfer thread until the request
/// is complete, and by the completion's thread from then on.
class FRX_HIDDEN FRXDownloadOperation::Transfer {
 public:
  Transfer(std::shared_ptr<FRXDownloadOperation> operation, SuccessCallback onSuccess,
           FailureCallback onFailure)
      : operation_(std::move(operation)),
        settings_(operation_->settings()),
        onSuccess_(std::move(onSuccess)),
        onFailure_(std::move(onFailure)),
        body_([this](FRXError* error) { return openTarget(error); }) {}

  bool begin(const HTTPClientResponse& response) {
    status_ = response.status;
    const auto length = announcedLength(response);
    body_.expect(length);
    const bool isUnexpected = length && settings_.expectedSize && *length != *settings_.expectedSize;
    if (status_ == 200 && isUnexpected) failure_ = lengthError(*length, *settings_.expectedSize);
    return !failure_;
  }

  bool append(std::string_view piece) {
    received_ += piece.size();
    if (status_ != 200) {
      if (received_ > longestRefusedBody) failure_ = statusError(status_);
    } else if (settings_.expectedSize && received_ > *settings_.expectedSize) {
      failure_ = lengthError(received_, *settings_.expectedSize);
    } else {
      operation_->bytesReceived_.store(received_, std::memory_order_relaxed);
      if (!body_.append(piece)) failure_ = body_.error();
    }
    return !failure_;
  }

  void complete(const std::optional<FRXError>& error, const HTTPClientResponse& response) {
    // A transfer that was broken off here ends with an error of its own, which says less.
    if (!failure_) failure_ = error;
    if (!failure_ && response.status != 200) failure_ = statusError(response.status);
    if (!failure_ && settings_.expectedSize && received_ != *settings_.expectedSize) {
      failure_ = lengthError(received_, *settings_.expectedSize);
    }
    if (!failure_) store(response);
    if (!failure_) return onSuccess_();
    body_.discard();
    onFailure_(*failure_);
  }

 private:
  static FRXError statusError(int status) {
    return downloadError(className, "http call failed with status code " + std::to_string(status));
  }

  std::optional<ReplacementFile> openTarget(FRXError* error) const {
    const std::string& path = operation_->toPath_;
    if (!settings_.openDirectory) return ReplacementFile::create(path, error);
    auto directory = settings_.openDirectory(error);
    if (directory == nullptr) return std::nullopt;
    return ReplacementFile::createIn(std::move(directory), std::string(leafName(path)), error);
  }

  void store(const HTTPClientResponse& response) {
    const auto modified = timeOfLastModified(response);
    {
      const MutexLock lock(operation_->mutex_);
      operation_->lastModified_ = modified;
    }
    if (!body_.complete(settings_.preservesModificationTime ? modified : std::nullopt)) {
      failure_ = body_.error();
    } else {
      operation_->sizeInBytes_ = body_.size();
    }
  }

  const std::shared_ptr<FRXDownloadOperation> operation_;
  const Settings settings_;
  const SuccessCallback onSuccess_;
  const FailureCallback onFailure_;
  DownloadBody body_;
  int status_ = 0;
  std::uint64_t received_ = 0;
  std::optional<FRXError> failure_;
};

FRXDownloadOperation::FRXDownloadOperation(std::string fromURL, std::string toPath, double timeout,
                                           const PlatformServices& platform)
    : platform_(platform),
      fromURL_(std::move(fromURL)),
      toPath_(std::move(toPath)),
      timeout_(transferTimeout(timeout)) {}

void FRXDownloadOperation::setContentRange(std::int64_t start, std::int64_t length) {
  if (!isStartable() || start < 0 || length < 1) return;
  constexpr std::int64_t last = std::numeric_limits<std::int64_t>::max();
  rangeStart_ = start;
  rangeEnd_ = length > last - start ? last : start + length;
  rangeSet_ = true;
}

void FRXDownloadOperation::setDirectory(DirectoryOpener open) {
  if (!isStartable()) return;
  const MutexLock lock(mutex_);
  settings_.openDirectory = std::move(open);
}

void FRXDownloadOperation::setExpectedSize(std::optional<std::uint64_t> size) {
  if (!isStartable()) return;
  const MutexLock lock(mutex_);
  settings_.expectedSize = size;
}

void FRXDownloadOperation::setLikelySize(std::uint64_t size) {
  if (!isStartable()) return;
  const MutexLock lock(mutex_);
  settings_.likelySize = size;
}

void FRXDownloadOperation::setPreservesModificationTime(bool preserves) {
  if (!isStartable()) return;
  const MutexLock lock(mutex_);
  settings_.preservesModificationTime = preserves;
}

void FRXDownloadOperation::setCompletionQueue(BackgroundQueue& queue) {
  if (!isStartable()) return;
  const MutexLock lock(mutex_);
  settings_.completionQueue = &queue;
}

void FRXDownloadOperation::start() {
  if (!isStartable()) return finish();
  updateIsExecuting(true);
  const auto self = std::static_pointer_cast<FRXDownloadOperation>(shared_from_this());
  downloadFile([self] { self->transferDidSucceed(); },
               [self](const FRXError& error) { self->transferDidFail(error); });
}

void FRXDownloadOperation::cancel() {
  FRXConcurrentOperation::cancel();
  request_.cancel();
}

void FRXDownloadOperation::downloadFile(SuccessCallback onSuccess, FailureCallback onFailure) {
  HTTPClientRequest request;
  request.url = fromURL_;
  request.inactivityTimeout = transferInactivityTimeout(timeout_);
  const Settings set = settings();
  request.likelyBodySize = set.likelySize;
  if (rangeSet()) {
    request.headers.emplace_back("Range",
                                 "bytes=" + std::to_string(rangeStart()) + "-" + std::to_string(rangeEnd()));
  }
  const auto transfer =
      std::make_shared<Transfer>(std::static_pointer_cast<FRXDownloadOperation>(shared_from_this()),
                                 std::move(onSuccess), std::move(onFailure));
  HTTPClientCallbacks callbacks;
  callbacks.onResponse = [transfer](const HTTPClientResponse& response) { return transfer->begin(response); };
  callbacks.onData = [transfer](std::string_view piece) { return transfer->append(piece); };
  callbacks.onCompletion = [transfer](const std::optional<FRXError>& error,
                                      const HTTPClientResponse& response) {
    transfer->complete(error, response);
  };
  callbacks.completionQueue = set.completionQueue;
  request_.send(*platform_.httpClient, std::move(request), std::move(callbacks));
}

void FRXDownloadOperation::transferDidSucceed() {
  finish();
  delegate_.notify(&FRXDownloadOperationRespondingSelectors::didSucceed,
                   [this](auto& listener) { listener.downloadOperationDidSucceed(*this, sizeInBytes()); });
}

void FRXDownloadOperation::transferDidFail(const FRXError& error) {
  if (isCancelled() && isTransferCancellation(error)) return finish();
  setError(error);
  finish();
  delegate_.notify(&FRXDownloadOperationRespondingSelectors::didFail,
                   [this, &error](auto& listener) { listener.downloadOperationDidFail(*this, error); });
}

std::optional<std::chrono::system_clock::time_point> FRXDownloadOperation::lastModified() const {
  const MutexLock lock(mutex_);
  return lastModified_;
}

FRXDownloadOperation::Settings FRXDownloadOperation::settings() const {
  const MutexLock lock(mutex_);
  return settings_;
}

}  // namespace ferrox
