#include "Platform/HTTP/Server/DiskPool.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Log/Log.h"

namespace ferrox {

namespace {

/// A network thread that shares a core with the pool goes first: it holds the small answers.
void giveWayToNetworkThreads() {
  const auto thread = static_cast<id_t>(::syscall(SYS_gettid));
  ::setpriority(PRIO_PROCESS, thread, 10);
  const sched_param none{};
  ::sched_setscheduler(static_cast<pid_t>(thread), SCHED_BATCH, &none);
}

}  // namespace

struct DiskPool::Impl {
  std::mutex mutex;
  std::condition_variable wake;
  std::deque<std::function<void()>> jobs;
  std::vector<std::thread> threads;
  std::size_t limit = 1;
  std::size_t idle = 0;
  bool stopping = false;

  void work() {
    ::pthread_setname_np(::pthread_self(), "frx-disk");
    giveWayToNetworkThreads();
    for (;;) {
      std::function<void()> job;
      {
        std::unique_lock lock(mutex);
        ++idle;
        wake.wait(lock, [this] { return stopping || !jobs.empty(); });
        --idle;
        if (stopping) return;
        job = std::move(jobs.front());
        jobs.pop_front();
      }
      run(job);
    }
  }

  static void run(const std::function<void()>& job) {
    try {
      job();
    } catch (const std::exception& failure) {
      FRX_LOG_ERROR(std::string("A disk job failed: ") + failure.what());
    } catch (...) {
      FRX_LOG_ERROR("A disk job failed");
    }
  }
};

DiskPool::DiskPool(std::size_t threads) : impl_(std::make_unique<Impl>()) {
  impl_->limit = threads == 0 ? 1 : threads;
}

DiskPool::~DiskPool() { stop(); }

void DiskPool::submit(std::function<void()> job) {
  std::lock_guard lock(impl_->mutex);
  if (impl_->stopping) return;
  impl_->jobs.push_back(std::move(job));
  if (impl_->idle < impl_->jobs.size() && impl_->threads.size() < impl_->limit) {
    impl_->threads.emplace_back([impl = impl_.get()] { impl->work(); });
  }
  impl_->wake.notify_one();
}

void DiskPool::stop() {
  std::deque<std::function<void()>> dropped;
  std::vector<std::thread> threads;
  {
    std::lock_guard lock(impl_->mutex);
    impl_->stopping = true;
    dropped.swap(impl_->jobs);
    threads.swap(impl_->threads);
  }
  impl_->wake.notify_all();
  for (std::thread& thread : threads) thread.join();
}

}  // namespace ferrox
