// How far a copy is, how quick it is, and how that is told in one line.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace ferrox::command {

/// The mean over the last few seconds, so that it neither jumps nor lags.
class TransferRate {
 public:
  using Instant = std::chrono::steady_clock::time_point;

  /// Bytes so far, at that moment; may fall when a transfer is begun anew.
  void add(Instant at, std::uint64_t bytes);
  /// Bytes a second; nothing before there is something to go by.
  std::optional<double> perSecond() const;

 private:
  struct Sample {
    Instant at;
    std::uint64_t bytes;
  };
  std::deque<Sample> samples_;
};

struct CopyProgress {
  std::uint64_t bytes = 0;
  /// 0 while not known.
  std::uint64_t totalBytes = 0;
  std::uint64_t files = 0;
  std::uint64_t totalFiles = 0;
  std::optional<double> bytesPerSecond;
};

/// One line of at most `columns`: a bar where there is room, share, bytes, rate, time left, files.
std::string progressLine(const CopyProgress& progress, std::size_t columns);

}  // namespace ferrox::command
