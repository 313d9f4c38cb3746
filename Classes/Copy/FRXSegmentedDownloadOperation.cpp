#include "Classes/Copy/FRXSegmentedDownloadOperation.h"

#include <charconv>
#include <limits>
#include <utility>

#include "Platform/Log/Log.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox {
namespace {

using SegmentParams = FRXSegmentedDownloadOperation::SegmentParams;

constexpr std::uint64_t largestFile = std::numeric_limits<std::int64_t>::max();

bool canBeAskedFor(std::uint64_t start, std::uint64_t length) {
  return length > 0 && start <= largestFile && length <= largestFile - start;
}

std::string rangeOf(const SegmentParams& segment) {
  return "bytes=" + std::to_string(segment.start) + "-" + std::to_string(segment.start + segment.length - 1);
}

/// "-1" for an answer that does not say.
std::string expectedLength(const HTTPClientResponse& response) {
  const std::string* const text = response.header("Content-Length");
  std::uint64_t length = 0;
  if (text == nullptr || std::from_chars(text->data(), text->data() + text->size(), length).ec != std::errc{})
    return "-1";
  return std::to_string(length);
}

}  // namespace

FRXSegmentedDownloadOperation::FRXSegmentedDownloadOperation(std::string fromURL, std::string toPath,
                                                             double timeout, const PlatformServices& platform)
    : StreamedFileDownload("FRXSegmentedDownloadOperation", std::move(fromURL), std::move(toPath), timeout,
                           platform) {}

bool FRXSegmentedDownloadOperation::enqueueSegmentStartingAt(std::uint64_t start, std::uint64_t length) {
  if (!canBeAskedFor(start, length)) {
    FRX_LOG_ERROR("No segment can start at byte " + std::to_string(start) + " with length " +
                  std::to_string(length) + ".");
    return false;
  }
  {
    const MutexLock lock(segmentQueueLock_);
    segmentQueue_.push_front({.start = start, .length = length});
  }
  this->start();
  return true;
}

void FRXSegmentedDownloadOperation::start() {
  mainLoop().postOrRun([alive = life(), this] {
    if (!alive.expired()) startOnMainThread();
  });
}

void FRXSegmentedDownloadOperation::startOnMainThread() {
  if (isReporting_) return;
  {
    const MutexLock lock(segmentQueueLock_);
    if (isExecuting() || segmentQueue_.empty()) return;
    setIsExecuting(true);
  }
  downloadSegment();
}

void FRXSegmentedDownloadOperation::downloadSegment() {
  if (const auto segment = getRequestedSegment()) beginTransfer(rangeOf(*segment));
}

std::optional<SegmentParams> FRXSegmentedDownloadOperation::getRequestedSegment() const {
  const MutexLock lock(segmentQueueLock_);
  if (segmentQueue_.empty()) return std::nullopt;
  return segmentQueue_.back();
}

std::deque<SegmentParams> FRXSegmentedDownloadOperation::segmentQueue() const {
  const MutexLock lock(segmentQueueLock_);
  return segmentQueue_;
}

void FRXSegmentedDownloadOperation::nextSegment() {
  {
    const MutexLock lock(segmentQueueLock_);
    if (!segmentQueue_.empty()) segmentQueue_.pop_back();
  }
  start();
}

void FRXSegmentedDownloadOperation::retrySegment() {
  SegmentParams segment;
  bool tryAgain = false;
  {
    const MutexLock lock(segmentQueueLock_);
    if (segmentQueue_.empty()) return;
    tryAgain = segmentQueue_.back().retries < maxRetries;
    if (tryAgain) ++segmentQueue_.back().retries;
    segment = segmentQueue_.back();
  }
  // The segment is written from its start again.
  closeOutFile();
  if (tryAgain) return downloadSegment();
  abandonTransfer();
  FRX_LOG_ERROR("Too many retries for segment starting at byte " + std::to_string(segment.start) +
                " with length " + std::to_string(segment.length) + ".");
}

void FRXSegmentedDownloadOperation::transferWasAccepted(const HTTPClientResponse& response) {
  const auto segment = getRequestedSegment();
  const std::string expected = expectedLength(response);
  if (!segment || expected == std::to_string(segment->length)) return;
  FRX_LOG_WARN("The response's content length (" + expected + ") did not match the requested length (" +
               std::to_string(segment->length) + "). HTTP Range header value=" + rangeOf(*segment) +
               ". The destination file might be corrupt.");
}

bool FRXSegmentedDownloadOperation::listenerWants(std::string_view block) {
  bool wants = true;
  delegate_.notify(&Selectors::shouldWriteToFile, [this, &wants, block](auto& listener) {
    wants = listener.shouldWriteToFileWithDownloadOperation(*this, block);
  });
  return wants;
}

void FRXSegmentedDownloadOperation::receiveBlock(std::string_view block) {
  if (outFile() == nullptr) {
    if (!openOutFile(block.size())) return;
    const auto segment = getRequestedSegment();
    if (!segment || !outFile()->moveTo(segment->start)) {
      FRX_LOG_ERROR("Unable to write to file at " + toPath() + ". It could wind up being corrupted.");
    }
  }
  if (const auto problem = outFile()->write(block)) writingFailed(block.size(), *problem);
}

void FRXSegmentedDownloadOperation::transferDidSucceed() {
  const std::uint64_t size = sizeOfFile();
  finish();
  const auto alive = life();
  isReporting_ = true;
  const bool wasTold = delegate_.notify(&Selectors::didSucceed, [this, size](auto& listener) {
    listener.downloadOperationDidSucceed(*this, size);
  });
  if (alive.expired()) return;
  isReporting_ = false;
  if (wasTold) nextSegment();
}

void FRXSegmentedDownloadOperation::transferDidFail(const FRXError& error) {
  delegate_.notify(&Selectors::didFail,
                   [this, &error](auto& listener) { listener.downloadOperationDidFail(*this, error); });
}

}  // namespace ferrox
