#include "Apps/ferrox/Terminal/ProgressLine.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "Apps/ferrox/Terminal/Quantities.h"
#include "Apps/ferrox/Terminal/Terminal.h"
#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {
namespace {

constexpr std::chrono::milliseconds interval{200};
constexpr std::chrono::duration<double> tooEarlyForARate{0.5};

}  // namespace

std::string progressText(std::uint64_t done, std::optional<std::uint64_t> total,
                         std::chrono::duration<double> elapsed) {
  std::string text = formattedBytes(done);
  if (total) {
    const double part =
        *total == 0 ? 1 : std::min(1.0, static_cast<double>(done) / static_cast<double>(*total));
    text = fmt::format("{:.0f}%  {} of {}", std::floor(part * 100), text, formattedBytes(*total));
  }
  if (elapsed < tooEarlyForARate) return text;
  return text + "  " +
         formattedBytes(static_cast<std::uint64_t>(static_cast<double>(done) / elapsed.count())) + "/s";
}

ProgressLine::ProgressLine(int descriptor) : descriptor_(descriptor), isShown_(canRedraw(descriptor)) {}

void ProgressLine::show(std::uint64_t done, std::optional<std::uint64_t> total) {
  const auto now = Clock::now();
  if (!isShown_ || now < next_) return;
  next_ = now + interval;
  showText(progressText(done, total, now - begun_));
}

void ProgressLine::showText(std::string_view text) {
  if (!isShown_) return;
  hasLine_ = true;
  // The last column stays free: a terminal that wraps there would begin a new line.
  write("\r\x1b[K" + shortened(text, terminalSize(descriptor_).columns - 1));
}

void ProgressLine::clear() {
  if (!hasLine_) return;
  hasLine_ = false;
  write("\r\x1b[K");
}

void ProgressLine::write(std::string_view text) const {
  // What cannot be shown is not worth an error.
  const auto written = ::write(descriptor_, text.data(), text.size());
  (void)written;
}

}  // namespace ferrox::command
