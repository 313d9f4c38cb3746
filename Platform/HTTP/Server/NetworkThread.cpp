#include "Platform/HTTP/Server/NetworkThread.h"

#include <pthread.h>
#include <signal.h>

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <ctime>
#include <deque>
#include <exception>
#include <optional>
#include <thread>
#include <unordered_map>
#include <vector>

#include "Platform/HTTP/Server/HTTPDate.h"
#include "Platform/Log/Log.h"

namespace ferrox {

namespace asio = boost::asio;

struct NetworkThread::Impl {
  using Executor = asio::io_context::executor_type;
  using Timer = asio::basic_waitable_timer<std::chrono::steady_clock,
                                           asio::wait_traits<std::chrono::steady_clock>, Executor>;

  asio::io_context context{1};
  std::optional<asio::executor_work_guard<Executor>> work;
  Timer sweepTimer{context.get_executor()};
  bool sweepScheduled = false;
  std::deque<std::function<void()>> turns;
  bool turnPosted = false;
  bool stopping = false;
  std::unordered_map<Session*, std::shared_ptr<Session>> sessions;
  std::thread thread;

  void run() {
    for (;;) {
      try {
        context.run();
        return;
      } catch (const std::exception& failure) {
        FRX_LOG_ERROR(std::string("Unexpected failure on a network thread: ") + failure.what());
      } catch (...) {
        FRX_LOG_ERROR("Unexpected failure on a network thread");
      }
    }
  }
};

NetworkThread::NetworkThread(std::chrono::milliseconds sweepInterval)
    : impl_(std::make_unique<Impl>()),
      sweepInterval_(sweepInterval),
      now_(std::chrono::steady_clock::now()) {}

NetworkThread::~NetworkThread() {
  abortAll();
  join();
}

void NetworkThread::start() {
  impl_->work.emplace(impl_->context.get_executor());
  impl_->thread = std::thread([this] {
    ::pthread_setname_np(::pthread_self(), "frx-network");
    // sendfile(2) to a client that has gone raises it, and knows no flag against that; the host may have left
    // it deadly.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    impl_->run();
  });
}

void NetworkThread::abortAll() {
  post([this] { abortSessions(); });
}

void NetworkThread::join() {
  if (!impl_->thread.joinable()) return;
  post([this] { impl_->work.reset(); });
  impl_->thread.join();
}

void NetworkThread::abortSessions() {
  impl_->stopping = true;
  std::vector<std::shared_ptr<Session>> sessions;
  sessions.reserve(impl_->sessions.size());
  for (const auto& [address, session] : impl_->sessions) sessions.push_back(session);
  for (const auto& session : sessions) session->abort();
  impl_->sessions.clear();
  impl_->sweepTimer.cancel();
}

void NetworkThread::post(std::function<void()> task) { asio::post(impl_->context, std::move(task)); }

void NetworkThread::takeTurn(std::function<void()> task) {
  impl_->turns.push_back(std::move(task));
  postTurn();
}

void NetworkThread::postTurn() {
  if (impl_->turnPosted || impl_->turns.empty()) return;
  impl_->turnPosted = true;
  post([this] { runTurn(); });
}

void NetworkThread::runTurn() {
  impl_->turnPosted = false;
  const std::function<void()> task = std::move(impl_->turns.front());
  impl_->turns.pop_front();
  postTurn();
  task();
}

bool NetworkThread::isCurrent() const { return impl_->thread.get_id() == std::this_thread::get_id(); }

void NetworkThread::adopt(std::shared_ptr<Session> session) {
  if (impl_->stopping) return session->abort();
  Session* address = session.get();
  impl_->sessions.emplace(address, std::move(session));
  if (!impl_->sweepScheduled) {
    now_ = std::chrono::steady_clock::now();
    scheduleSweep();
  }
}

void NetworkThread::release(Session& session) { impl_->sessions.erase(&session); }

void NetworkThread::scheduleSweep() {
  impl_->sweepScheduled = true;
  impl_->sweepTimer.expires_after(sweepInterval_);
  impl_->sweepTimer.async_wait([this](const boost::system::error_code& failure) {
    impl_->sweepScheduled = false;
    if (!failure) sweep();
  });
}

void NetworkThread::sweep() {
  now_ = std::chrono::steady_clock::now();
  std::vector<std::shared_ptr<Session>> sessions;
  sessions.reserve(impl_->sessions.size());
  for (const auto& [address, session] : impl_->sessions) sessions.push_back(session);
  for (const auto& session : sessions) session->sweep(now_);
  // An idle server does not wake up for nothing.
  if (!impl_->sessions.empty() && !impl_->sweepScheduled) scheduleSweep();
}

const std::string& NetworkThread::dateText() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &time);
  if (time.tv_sec != dateSecond_) {
    dateSecond_ = time.tv_sec;
    dateText_ = httpDate(time.tv_sec);
  }
  return dateText_;
}

asio::io_context& NetworkThread::context() { return impl_->context; }

}  // namespace ferrox
