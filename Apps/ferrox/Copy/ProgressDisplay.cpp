#include "Apps/ferrox/Copy/ProgressDisplay.h"

#include <unistd.h>

#include <chrono>

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
  display_->line_.clear();
}

ProgressDisplay::Pause::~Pause() {
  if (display_ == nullptr) return;
  const std::lock_guard lock(display_->mutex_);
  display_->paused_ = false;
}

ProgressDisplay::ProgressDisplay(RunLoop& loop, const CopyR24ProjectOperation& copy)
    : copy_(copy),
      line_(STDERR_FILENO),
      timer_(Timer::scheduleRepeating(loop, interval, [this] { draw(); })) {}

// The timer goes before the line does.
ProgressDisplay::~ProgressDisplay() = default;

void ProgressDisplay::draw() {
  CopyProgress progress{copy_.receivedBytes(), copy_.projectSize(), copy_.finishedFileCount(),
                        copy_.fileCount(), std::nullopt};
  if (progress.totalBytes > 0) rate_.add(std::chrono::steady_clock::now(), progress.bytes);
  progress.bytesPerSecond = rate_.perSecond();
  const std::lock_guard lock(mutex_);
  if (!paused_) line_.showText(progressLine(progress, terminalSize(STDERR_FILENO).columns - 1));
}

}  // namespace ferrox::command
