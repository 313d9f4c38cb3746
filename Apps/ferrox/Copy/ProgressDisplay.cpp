#include "Apps/ferrox/Copy/ProgressDisplay.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "Apps/ferrox/Terminal/Terminal.h"
#include "Classes/Copy/CopyR24ProjectOperation.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox::command {
namespace {

constexpr std::chrono::milliseconds interval{200};

}  // namespace

ProgressDisplay::Pause::Pause(ProgressDisplay* display) : display_(display) {
  if (display_ == nullptr) return;
  const std::lock_guard lock(display_->mutex_);
  display_->paused_ = true;
  display_->clear();
}

ProgressDisplay::Pause::~Pause() {
  if (display_ == nullptr) return;
  const std::lock_guard lock(display_->mutex_);
  display_->paused_ = false;
}

ProgressDisplay::ProgressDisplay(RunLoop& loop, const CopyR24ProjectOperation& copy)
    : copy_(copy), timer_(Timer::scheduleRepeating(loop, interval, [this] { draw(); })) {}

ProgressDisplay::~ProgressDisplay() {
  timer_.reset();
  clear();
}

void ProgressDisplay::draw() {
  const CopyProgress progress{copy_.receivedBytes(), copy_.projectSize(), copy_.finishedFileCount(),
                              copy_.fileCount(), std::nullopt};
  if (progress.totalBytes > 0) rate_.add(std::chrono::steady_clock::now(), progress.bytes);
  CopyProgress shown = progress;
  shown.bytesPerSecond = rate_.perSecond();
  const std::lock_guard lock(mutex_);
  if (paused_) return;
  // The last column stays free: a terminal that wraps there would begin a new line.
  const std::string line = progressLine(shown, terminalSize(STDERR_FILENO).columns - 1);
  fmt::print(stderr, "\r{}\x1b[K", line);
  std::fflush(stderr);
}

void ProgressDisplay::clear() {
  fmt::print(stderr, "\r\x1b[K");
  std::fflush(stderr);
}

}  // namespace ferrox::command
