#include "Platform/DNSSD/DiscoveryThread.h"

#include <fcntl.h>
#include <pthread.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <future>
#include <mutex>
#include <thread>

#include "Platform/Log/Log.h"

namespace ferrox::dnssd {

namespace asio = boost::asio;

namespace {

void runGuarded(const DiscoveryThread::Task& task) {
  try {
    task();
  } catch (const std::exception& error) {
    FRX_LOG_ERROR(std::string("A discovery task failed: ") + error.what());
  }
}

class PendingTimer : public Pending {
 public:
  PendingTimer(asio::io_context& context, std::chrono::milliseconds delay, DiscoveryThread::Task action)
      : timer_(context, delay), action_(std::make_shared<DiscoveryThread::Task>(std::move(action))) {
    timer_.async_wait([weak = std::weak_ptr(action_)](const boost::system::error_code& error) {
      const auto action = weak.lock();
      if (action && !error) runGuarded(*action);
    });
  }

 private:
  asio::steady_timer timer_;
  std::shared_ptr<DiscoveryThread::Task> action_;
};

class PendingWatch : public Pending {
 public:
  PendingWatch(asio::io_context& context, int duplicate, DiscoveryThread::Task action)
      : state_(std::make_shared<State>(State{{context, duplicate}, std::move(action)})) {
    arm(state_);
  }

 private:
  struct State {
    asio::posix::stream_descriptor descriptor;
    DiscoveryThread::Task action;
  };

  static void arm(const std::shared_ptr<State>& state) {
    state->descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                                 [weak = std::weak_ptr(state)](const boost::system::error_code& error) {
                                   const auto alive = weak.lock();
                                   if (!alive || error) return;
                                   runGuarded(alive->action);
                                   arm(alive);
                                 });
  }

  std::shared_ptr<State> state_;
};

}  // namespace

struct DiscoveryThread::Impl {
  asio::io_context context{1};
  asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
  std::thread thread;
  std::promise<void> ended;
  std::mutex mutex;
  bool closed = false;  // guarded by mutex

  void runToEnd() {
    context.run();
    {
      const std::lock_guard lock(mutex);
      closed = true;
    }
    // What was posted last runs too, and nothing stays behind that would keep its owners alive.
    work.reset();
    context.restart();
    context.poll();
  }
};

DiscoveryThread::DiscoveryThread() : impl_(std::make_unique<Impl>()) {}

DiscoveryThread::~DiscoveryThread() = default;

std::shared_ptr<DiscoveryThread> DiscoveryThread::make() {
  std::shared_ptr<DiscoveryThread> made(new DiscoveryThread);
  // The thread keeps the object alive, so that a stuck one may be left behind.
  made->impl_->thread = std::thread([made] {
    pthread_setname_np(pthread_self(), "frx-discovery");
    made->impl_->runToEnd();
    made->impl_->ended.set_value();
  });
  return made;
}

void DiscoveryThread::post(Task task) {
  const std::lock_guard lock(impl_->mutex);
  if (impl_->closed) return;
  asio::post(impl_->context, [task = std::move(task)] { runGuarded(task); });
}

bool DiscoveryThread::finish(Task last, std::chrono::milliseconds patience) {
  post([this, last = std::move(last)] {
    runGuarded(last);
    impl_->context.stop();
  });
  const bool ended = impl_->ended.get_future().wait_for(patience) == std::future_status::ready;
  if (ended) {
    impl_->thread.join();
  } else {
    impl_->thread.detach();
  }
  return ended;
}

bool DiscoveryThread::isCurrent() const { return impl_->context.get_executor().running_in_this_thread(); }

std::unique_ptr<Pending> DiscoveryThread::after(std::chrono::milliseconds delay, Task action) {
  return std::make_unique<PendingTimer>(impl_->context, delay, std::move(action));
}

std::unique_ptr<Pending> DiscoveryThread::watchReadable(int descriptor, Task action) {
  // A duplicate, because the reactor takes each descriptor number once and closes what it holds.
  const int duplicate = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  if (duplicate < 0) return nullptr;
  try {
    return std::make_unique<PendingWatch>(impl_->context, duplicate, std::move(action));
  } catch (const boost::system::system_error& error) {
    FRX_LOG_WARN(std::string("A discovery socket cannot be watched: ") + error.what());
    return nullptr;
  }
}

asio::io_context& DiscoveryThread::context() { return impl_->context; }

}  // namespace ferrox::dnssd
