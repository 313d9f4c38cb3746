#include "Platform/Queues/BackgroundQueue.h"

#include <algorithm>
#include <cassert>
#include <condition_variable>
#include <deque>
#include <exception>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Platform/Base/Mutex.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

class ThreadPool : public BackgroundQueue {
 public:
  explicit ThreadPool(unsigned threads) : maximum_(std::max(threads, 1U)) {}
  ~ThreadPool() override;
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  void post(Task task) override FRX_EXCLUDES(mutex_);

 private:
  void startThread() FRX_REQUIRES(mutex_);
  void work() FRX_EXCLUDES(mutex_);
  /// The next task; an empty one when the pool ends and everything was run.
  Task next() FRX_EXCLUDES(mutex_);
  static void run(const Task& task);

  const std::size_t maximum_;
  Mutex mutex_;
  std::condition_variable_any changed_;
  std::deque<Task> tasks_ FRX_GUARDED_BY(mutex_);
  std::vector<std::thread> threads_ FRX_GUARDED_BY(mutex_);
  std::size_t idle_ FRX_GUARDED_BY(mutex_) = 0;
  bool ending_ FRX_GUARDED_BY(mutex_) = false;
};

ThreadPool::~ThreadPool() {
  std::vector<std::thread> threads;
  {
    const MutexLock lock(mutex_);
    ending_ = true;
    threads.swap(threads_);
  }
  changed_.notify_all();
  for (std::thread& thread : threads) {
    assert(thread.get_id() != std::this_thread::get_id());
    thread.join();
  }
}

void ThreadPool::post(Task task) {
  assert(task != nullptr);
  const MutexLock lock(mutex_);
  tasks_.push_back(std::move(task));
  if (idle_ < tasks_.size() && threads_.size() < maximum_ && !ending_) startThread();
  // Under the lock: whoever waits for the task may destroy the queue as soon as it was run.
  changed_.notify_one();
}

void ThreadPool::startThread() {
  try {
    threads_.emplace_back([this] { work(); });
  } catch (const std::system_error& error) {
    // The task stays queued: the threads that run take it, or the next one that can be started.
    FRX_LOG_ERROR(std::string("No further background thread could be started: ") + error.what());
  }
}

void ThreadPool::work() {
  while (const Task task = next()) run(task);
}

ThreadPool::Task ThreadPool::next() {
  const MutexLock lock(mutex_);
  ++idle_;
  while (tasks_.empty() && !ending_) changed_.wait(mutex_);
  --idle_;
  if (tasks_.empty()) return nullptr;
  Task task = std::move(tasks_.front());
  tasks_.pop_front();
  return task;
}

void ThreadPool::run(const Task& task) {
  try {
    task();
  } catch (const std::exception& exception) {
    FRX_LOG_ERROR(std::string("A background task failed: ") + exception.what());
  } catch (...) {
    FRX_LOG_ERROR("A background task failed.");
  }
}

}  // namespace

BackgroundQueue& BackgroundQueue::shared() {
  // Its tasks wait more than they compute, so there are more threads than processors. Never destroyed.
  static BackgroundQueue* const queue = new ThreadPool(std::max(8U, std::thread::hardware_concurrency()));
  return *queue;
}

std::unique_ptr<BackgroundQueue> BackgroundQueue::makePool(unsigned threads) {
  return std::make_unique<ThreadPool>(threads);
}

}  // namespace ferrox
