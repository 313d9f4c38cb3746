// Segments of one remote file, fetched one after another and counted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/Copy/FRXSegmentedDownloadOperation.h"

namespace ferrox::command {

struct FetchSegment {
  std::uint64_t start = 0;
  std::uint64_t length = 0;
};

/// START:LENGTH in decimal, as far as a file can hold it; nothing for any other text.
std::optional<FetchSegment> fetchSegmentFrom(std::string_view text);

/// The library takes answers of any length. Here a segment that came short or too long is a failure, because
/// whoever asked for bytes by their number needs exactly them. Peers serve their shared projects with an end
/// that is exclusive and so send one byte less than asked for; that byte is asked for again, with the one
/// behind it. Ends with the first failure.
/// Thread: main
class FetchSession final : public FRXSegmentedDownloadOperationDelegate,
                           public std::enable_shared_from_this<FetchSession> {
 public:
  struct Events {
    std::function<void(std::uint64_t bytes)> progress;
    std::function<void(const FetchSegment& segment)> segmentDone;
    /// Once: the reason of a failure, or nothing, and the size of the local file.
    std::function<void(std::optional<std::string> failure, std::uint64_t sizeInBytes)> ended;
  };

  FetchSession(std::string url, std::string file, double timeout, std::vector<FetchSegment> segments,
               Events events);

  void start();
  std::uint64_t totalBytes() const { return total_; }

  void downloadOperationDidSucceed(FRXSegmentedDownloadOperation& operation,
                                   std::uint64_t sizeInBytes) override;
  void downloadOperationDidFail(FRXSegmentedDownloadOperation& operation, const FRXError& error) override;
  bool shouldWriteToFileWithDownloadOperation(FRXSegmentedDownloadOperation& operation,
                                              std::string_view receivedData) override;

 private:
  void ask(FetchSegment segment);
  void segmentEnded(std::uint64_t sizeInBytes);
  void fail(std::string reason);

  FRXSegmentedDownloadOperation operation_;
  const std::vector<FetchSegment> segments_;
  const Events events_;
  std::uint64_t total_ = 0;
  std::uint64_t done_ = 0;
  std::size_t current_ = 0;
  FetchSegment asked_;
  /// What was asked for is the last byte of the segment, and the one behind it.
  bool asksForTheLastByte_ = false;
  std::uint64_t received_ = 0;
  bool hasEnded_ = false;
};

}  // namespace ferrox::command
