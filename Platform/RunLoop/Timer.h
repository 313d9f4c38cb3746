// A one-shot or repeating timer of a run loop.
#pragma once

#include <functional>
#include <memory>

#include "Platform/Base/Export.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox {

/// Fires on its loop's thread until it is invalidated or destroyed; afterwards the action is never called
/// again when that happened on the loop's thread. A repeating timer that was late fires once, not once for
/// every missed interval, and keeps its rhythm.
class FRX_EXPORT Timer {
 public:
  using Action = std::function<void()>;

  /// Repeating timers are never quicker than this.
  static constexpr Clock::Duration minimumInterval = std::chrono::milliseconds(1);

  [[nodiscard]] static std::unique_ptr<Timer> scheduleOnce(RunLoop& loop, Clock::Duration delay,
                                                           Action action);
  [[nodiscard]] static std::unique_ptr<Timer> scheduleRepeating(RunLoop& loop, Clock::Duration interval,
                                                                Action action);
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// Ends it. Safe inside its own action. Thread: any
  void invalidate();
  /// False after `invalidate()` and once a one-shot timer has fired. Thread: any
  bool isValid() const;

 private:
  struct Entry;
  friend class RunLoop;
  explicit Timer(std::shared_ptr<Entry> entry);
  static std::unique_ptr<Timer> schedule(RunLoop&, Clock::Duration, bool repeats, Action);
  std::shared_ptr<Entry> entry_;
};

}  // namespace ferrox
