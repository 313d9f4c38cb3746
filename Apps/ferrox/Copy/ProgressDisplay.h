// A copy's progress as one line of the terminal that is written over again and again.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "Apps/ferrox/Copy/CopyProgress.h"
#include "Apps/ferrox/Terminal/ProgressLine.h"

namespace ferrox {
class CopyR24ProjectOperation;
class RunLoop;
class Timer;
}  // namespace ferrox

namespace ferrox::command {

/// On stderr, where that is a terminal that can redraw; some times a second until it is destroyed, which
/// leaves an empty line. Thread: main
class ProgressDisplay {
 public:
  /// `copy` is borrowed and outlives the display.
  ProgressDisplay(RunLoop& loop, const CopyR24ProjectOperation& copy);
  ~ProgressDisplay();
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  /// Nothing is drawn while it lives: somebody else has the line. Thread: any
  class Pause {
   public:
    /// Does nothing without a display.
    explicit Pause(ProgressDisplay* display);
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    ProgressDisplay* const display_;
  };

 private:
  void draw();

  const CopyR24ProjectOperation& copy_;
  // Of the line, which a pause on another thread takes away.
  std::mutex mutex_;
  ProgressLine line_;
  bool paused_ = false;
  TransferRate rate_;
  std::unique_ptr<Timer> timer_;
};

}  // namespace ferrox::command
