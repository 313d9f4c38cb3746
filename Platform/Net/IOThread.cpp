#include "Platform/Net/IOThread.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <exception>
#include <limits>
#include <string>
#include <system_error>

#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

constexpr std::uint64_t wakeUpId = 0;

void runGuarded(const IOThread::Task& task) {
  try {
    task();
  } catch (const std::exception& exception) {
    FRX_LOG_ERROR(std::string("A network step failed: ") + exception.what());
  } catch (...) {
    FRX_LOG_ERROR("A network step failed");
  }
}

void addToEpoll(int epoll, int descriptor, std::uint32_t events, std::uint64_t id) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  if (::epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) != 0) {
    throw std::system_error(errno, std::generic_category(), "epoll_ctl");
  }
}

}  // namespace

IOThread::IOThread()
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)), wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!epoll_.isOpen() || !wakeUp_.isOpen()) throw std::system_error(errno, std::generic_category(), "epoll");
  addToEpoll(epoll_.get(), wakeUp_.get(), EPOLLIN, wakeUpId);
  thread_ = std::thread([this] { run(); });
}

IOThread::~IOThread() {
  stopping_ = true;
  wake();
  thread_.join();
}

IOThread& IOThread::shared() {
  static IOThread& thread = *new IOThread;
  return thread;
}

void IOThread::wake() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(wakeUp_.get(), &one, sizeof(one));
}

void IOThread::post(Task task) {
  {
    const MutexLock lock(mutex_);
    posted_.push_back(std::move(task));
    if (posted_.size() > 1) return;
  }
  wake();
}

IOThread::Id IOThread::watch(int descriptor, std::uint32_t events, Task ready) {
  assert(isCurrentThread());
  const Id id = nextId_++;
  addToEpoll(epoll_.get(), descriptor, events, id);
  watches_.emplace(id, std::make_shared<Watch>(Watch{descriptor, std::move(ready)}));
  return id;
}

void IOThread::unwatch(Id id) {
  assert(isCurrentThread());
  const auto found = watches_.find(id);
  if (found == watches_.end()) return;
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, found->second->descriptor, nullptr);
  watches_.erase(found);
}

IOThread::Id IOThread::startTimer(Duration delay, Task action) {
  assert(isCurrentThread());
  const Id id = nextId_++;
  const TimePoint deadline = std::chrono::steady_clock::now() + delay;
  timers_.emplace(std::pair(deadline, id), std::move(action));
  timerDeadlines_.emplace(id, deadline);
  return id;
}

void IOThread::cancelTimer(Id id) {
  assert(isCurrentThread());
  const auto found = timerDeadlines_.find(id);
  if (found == timerDeadlines_.end()) return;
  timers_.erase({found->second, id});
  timerDeadlines_.erase(found);
}

void IOThread::run() {
  while (!stopping_) {
    waitForEvents();
    runPosted();
    runTimers();
  }
}

void IOThread::runPosted() {
  std::vector<Task> tasks;
  {
    const MutexLock lock(mutex_);
    tasks.swap(posted_);
  }
  for (const auto& task : tasks) runGuarded(task);
}

void IOThread::runTimers() {
  const TimePoint now = std::chrono::steady_clock::now();
  while (!timers_.empty() && timers_.begin()->first.first <= now) {
    auto node = timers_.extract(timers_.begin());
    timerDeadlines_.erase(node.key().second);
    runGuarded(node.mapped());
  }
}

int IOThread::millisecondsToNextTimer() const {
  if (timers_.empty()) return -1;
  const auto left = timers_.begin()->first.first - std::chrono::steady_clock::now();
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::clamp<std::int64_t>(milliseconds, 0, std::numeric_limits<int>::max()));
}

void IOThread::waitForEvents() {
  std::array<epoll_event, 64> events;
  const int count =
      ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), millisecondsToNextTimer());
  for (int i = 0; i < count; ++i) {
    const auto id = events[static_cast<std::size_t>(i)].data.u64;
    if (id == wakeUpId) {
      std::uint64_t ignored = 0;
      [[maybe_unused]] const auto drained = ::read(wakeUp_.get(), &ignored, sizeof(ignored));
      continue;
    }
    // An earlier event of this batch may have ended the watch; identifiers are never used again, so an
    // event meant for a descriptor that was closed cannot reach its successor of the same number.
    const auto found = watches_.find(id);
    if (found == watches_.end()) continue;
    const std::shared_ptr<Watch> watch = found->second;
    runGuarded(watch->ready);
  }
}

}  // namespace ferrox
