#include "Platform/RunLoop/RunLoop.h"

#include <cassert>

#include "Platform/Log/Log.h"
#include "Platform/RunLoop/RunLoopImpl.h"

namespace ferrox {
namespace {

bool holds(const std::function<bool()>& done) {
  try {
    return done();
  } catch (...) {
    FRX_LOG_ERROR("The condition that a run loop waits for failed.");
    return false;
  }
}

}  // namespace

RunLoop::RunLoop(const Clock& clock) : impl_(std::make_shared<Impl>(clock)) {}

RunLoop::~RunLoop() {
  stopThread();
  impl_->discardTasks();
  impl_->discardTimers();
}

RunLoop& RunLoop::main() {
  static RunLoop* const loop = new RunLoop;
  return *loop;
}

void RunLoop::post(Task task) {
  assert(task != nullptr);
  impl_->post(std::move(task));
}

void RunLoop::postOrRun(Task task) {
  if (impl_->owner.load() == std::this_thread::get_id()) {
    Impl::runGuarded(task);
  } else {
    post(std::move(task));
  }
}

void RunLoop::run() {
  impl_->enter();
  for (;;) {
    impl_->turn(true);
    if (impl_->stopRequested.exchange(false)) break;
    impl_->wait(std::nullopt);
  }
  impl_->leave();
}

bool RunLoop::runUntil(const std::function<bool()>& done, Clock::Duration timeout) {
  // Real time, also over a clock that stands still: a test waits for what other threads do.
  const auto start = std::chrono::steady_clock::now();
  impl_->enter();
  bool held = holds(done);
  while (!held) {
    impl_->turn(false);
    held = holds(done);
    const Clock::Duration elapsed = std::chrono::steady_clock::now() - start;
    if (held || elapsed >= timeout) break;
    impl_->wait(timeout - elapsed);
  }
  impl_->leave();
  return held;
}

void RunLoop::stop() {
  impl_->stopRequested = true;
  impl_->post([] {});
}

void RunLoop::startThread() {
  assert(!impl_->thread.joinable());
  impl_->owner = std::thread::id();
  impl_->thread = std::thread([this] { run(); });
}

void RunLoop::stopThread() {
  if (!impl_->thread.joinable()) return;
  assert(impl_->thread.get_id() != std::this_thread::get_id());
  stop();
  impl_->thread.join();
  impl_->stopRequested = false;
  impl_->owner = std::thread::id();
}

int RunLoop::descriptor() const { return impl_->epollDescriptor; }

std::size_t RunLoop::runPending() {
  impl_->enter();
  const std::size_t count = impl_->turn(false);
  impl_->leave();
  return count;
}

bool RunLoop::isCurrentThread() const {
  const std::thread::id owner = impl_->owner.load();
  return owner == std::thread::id() || owner == std::this_thread::get_id();
}

const Clock& RunLoop::clock() const { return impl_->clock; }

}  // namespace ferrox
