#include "Apps/ferrox/Copy/CopyProgress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "Apps/ferrox/Terminal/Quantities.h"
#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {
namespace {

constexpr std::chrono::seconds window{5};
constexpr std::chrono::milliseconds shortestMeasure{300};
constexpr std::size_t narrowestBar = 10, widestBar = 30;
constexpr double longestForecast = 99 * 3600;

double shareOf(const CopyProgress& progress) {
  if (progress.totalBytes == 0) return 0;
  return std::min(1.0, static_cast<double>(progress.bytes) / static_cast<double>(progress.totalBytes));
}

std::string timeLeft(const CopyProgress& progress) {
  if (!progress.bytesPerSecond || *progress.bytesPerSecond <= 0 || progress.bytes >= progress.totalBytes)
    return {};
  const double seconds = static_cast<double>(progress.totalBytes - progress.bytes) / *progress.bytesPerSecond;
  if (seconds > longestForecast) return {};
  return formattedDuration(std::chrono::seconds(static_cast<std::int64_t>(std::ceil(seconds)))) + " left";
}

}  // namespace

void TransferRate::add(Instant at, std::uint64_t bytes) {
  samples_.push_back({at, bytes});
  // One sample stays from before the window, for the window's whole length to be covered.
  while (samples_.size() > 2 && at - samples_[1].at >= window) samples_.pop_front();
}

std::optional<double> TransferRate::perSecond() const {
  if (samples_.size() < 2 || samples_.back().at - samples_.front().at < shortestMeasure) return std::nullopt;
  const double seconds = std::chrono::duration<double>(samples_.back().at - samples_.front().at).count();
  const double bytes =
      static_cast<double>(samples_.back().bytes) - static_cast<double>(samples_.front().bytes);
  return std::max(0.0, bytes / seconds);
}

std::string progressLine(const CopyProgress& progress, std::size_t columns) {
  if (progress.totalBytes == 0) {
    if (progress.totalFiles == 0) return shortened("asking what there is", columns);
    return shortened(fmt::format("asking for the sizes of {} files", progress.totalFiles), columns);
  }
  const double share = shareOf(progress);
  std::string text = fmt::format("{:3}%  {} of {}", static_cast<int>(share * 100),
                                 formattedBytes(progress.bytes), formattedBytes(progress.totalBytes));
  if (progress.bytesPerSecond) {
    text += fmt::format("  {}/s", formattedBytes(static_cast<std::uint64_t>(*progress.bytesPerSecond)));
  }
  if (const std::string left = timeLeft(progress); !left.empty()) text += "  " + left;
  text += fmt::format("  {} of {} files", progress.files, progress.totalFiles);
  constexpr std::size_t frame = 3;
  if (columns < text.size() + frame + narrowestBar) return shortened(text, columns);
  const std::size_t width = std::min(widestBar, columns - text.size() - frame);
  const auto done = static_cast<std::size_t>(share * static_cast<double>(width));
  return fmt::format("[{}{}] {}", std::string(done, '#'), std::string(width - done, '-'), text);
}

}  // namespace ferrox::command
