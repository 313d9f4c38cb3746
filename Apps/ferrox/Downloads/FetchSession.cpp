#include "Apps/ferrox/Downloads/FetchSession.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

namespace ferrox::command {
namespace {

constexpr std::uint64_t largestFile = std::numeric_limits<std::int64_t>::max();

std::optional<std::uint64_t> numberFrom(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (code != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

std::optional<FetchSegment> fetchSegmentFrom(std::string_view text) {
  const auto colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const auto start = numberFrom(text.substr(0, colon));
  const auto length = numberFrom(text.substr(colon + 1));
  if (!start || !length || *length == 0 || *start > largestFile || *length > largestFile - *start) {
    return std::nullopt;
  }
  return FetchSegment{*start, *length};
}

FetchSession::FetchSession(std::string url, std::string file, double timeout,
                           std::vector<FetchSegment> segments, Events events)
    : operation_(std::move(url), std::move(file), timeout),
      segments_(std::move(segments)),
      events_(std::move(events)) {
  for (const FetchSegment& segment : segments_) total_ += segment.length;
}

void FetchSession::start() {
  operation_.setDelegate(shared_from_this());
  ask(segments_.front());
}

void FetchSession::ask(FetchSegment segment) {
  asked_ = segment;
  received_ = 0;
  if (!operation_.enqueueSegmentStartingAt(segment.start, segment.length)) fail("no such segment");
}

bool FetchSession::shouldWriteToFileWithDownloadOperation(FRXSegmentedDownloadOperation&,
                                                          std::string_view receivedData) {
  received_ += receivedData.size();
  if (received_ > asked_.length) {
    // Written, it would stand where something else belongs.
    fail(fmt::format("the server sent more than the {} bytes from byte {} on", asked_.length, asked_.start));
    return false;
  }
  events_.progress(std::min(done_ + received_, total_));
  return true;
}

void FetchSession::downloadOperationDidFail(FRXSegmentedDownloadOperation&, const FRXError& error) {
  fail(error.localizedDescription);
}

void FetchSession::downloadOperationDidSucceed(FRXSegmentedDownloadOperation&, std::uint64_t sizeInBytes) {
  if (hasEnded_) return;
  const FetchSegment& segment = segments_[current_];
  if (asksForTheLastByte_) {
    if (received_ == 0) return fail(fmt::format("the server has no byte {}", asked_.start));
    return segmentEnded(sizeInBytes);
  }
  if (received_ == segment.length) return segmentEnded(sizeInBytes);
  if (received_ + 1 == segment.length) {
    done_ += received_;
    asksForTheLastByte_ = true;
    return ask({segment.start + received_, 2});
  }
  fail(fmt::format("the server sent {} of {} bytes from byte {} on", received_, segment.length,
                   segment.start));
}

void FetchSession::segmentEnded(std::uint64_t sizeInBytes) {
  const FetchSegment& segment = segments_[current_];
  done_ += std::exchange(asksForTheLastByte_, false) ? 1 : segment.length;
  events_.segmentDone(segment);
  if (++current_ < segments_.size()) return ask(segments_[current_]);
  hasEnded_ = true;
  events_.ended(std::nullopt, sizeInBytes);
}

void FetchSession::fail(std::string reason) {
  if (std::exchange(hasEnded_, true)) return;
  events_.ended(std::move(reason), 0);
}

}  // namespace ferrox::command
