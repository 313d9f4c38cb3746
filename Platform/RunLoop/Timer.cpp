#include "Platform/RunLoop/Timer.h"

#include <algorithm>
#include <cassert>

#include "Platform/RunLoop/RunLoopImpl.h"

namespace ferrox {

Timer::Timer(std::shared_ptr<Entry> entry) : entry_(std::move(entry)) {}

Timer::~Timer() { invalidate(); }

std::unique_ptr<Timer> Timer::scheduleOnce(RunLoop& loop, Clock::Duration delay, Action action) {
  return schedule(loop, delay, false, std::move(action));
}

std::unique_ptr<Timer> Timer::scheduleRepeating(RunLoop& loop, Clock::Duration interval, Action action) {
  return schedule(loop, std::max<Clock::Duration>(interval, minimumInterval), true, std::move(action));
}

std::unique_ptr<Timer> Timer::schedule(RunLoop& loop, Clock::Duration delay, bool repeats, Action action) {
  assert(action != nullptr);
  auto entry = std::make_shared<Entry>();
  entry->loop = loop.impl_;
  entry->interval = delay;
  entry->repeats = repeats;
  entry->action = std::make_shared<const Action>(std::move(action));
  loop.impl_->addTimer(entry, delay);
  return std::unique_ptr<Timer>(new Timer(std::move(entry)));
}

void Timer::invalidate() {
  if (!entry_->valid.exchange(false)) return;
  if (const auto loop = entry_->loop.lock()) loop->removeTimer(*entry_);
}

bool Timer::isValid() const { return entry_->valid.load(); }

}  // namespace ferrox
