#include "Platform/HTTP/Server/HTTPServer.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <mutex>
#include <vector>

#include "Platform/HTTP/Server/ClientConnection.h"
#include "Platform/HTTP/Server/HTTPConnection.h"
#include "Platform/HTTP/Server/Listener.h"
#include "Platform/HTTP/Server/NetworkThread.h"
#include "Platform/HTTP/Server/ServerContext.h"
#include "Platform/HTTP/Server/ServicePublisher.h"
#include "Platform/Log/Log.h"

namespace ferrox {

namespace {

/// A quarter of the shortest deadline, so that none is late by much.
std::chrono::milliseconds sweepIntervalFor(const HTTPServerLimits& limits) {
  const auto shortest = std::min({limits.headerDeadline, limits.idleTimeout, limits.bodyTimeout,
                                  limits.webSocketCloseTimeout, limits.webSocketIdleTimeout / 2});
  return std::clamp(shortest / 4, std::chrono::milliseconds(10), std::chrono::milliseconds(500));
}

/// Everything that exists only while the server runs.
class Running {
 public:
  Running(std::shared_ptr<ServerContext> context, std::unique_ptr<Listener> listener, unsigned threadCount)
      : context_(std::move(context)), listener_(std::move(listener)) {
    const auto interval = sweepIntervalFor(context_->limits);
    for (unsigned i = 0; i < std::max(threadCount, 1U); ++i) {
      threads_.push_back(std::make_shared<NetworkThread>(interval));
    }
    for (const auto& thread : threads_) thread->start();
    threads_.front()->post([this] {
      listener_->start(*threads_.front(),
                       [this](int descriptor, const sockaddr_storage& peer) { accepted(descriptor, peer); });
    });
  }

  ~Running() {
    std::promise<void> closed;
    threads_.front()->post([&] {
      listener_->close();
      closed.set_value();
    });
    closed.get_future().wait();
    // What a disk job reports from now on finds its connection ended; the threads outlast the jobs so that
    // these reports are taken and let go.
    for (const auto& thread : threads_) thread->abortAll();
    context_->disk.stop();
    for (const auto& thread : threads_) thread->join();
  }

  std::uint16_t port() const { return listener_->port(); }

 private:
  void accepted(int descriptor, const sockaddr_storage& peer) {
    auto slot = context_->counts.admit(peer);
    if (!slot) {
      context_->counters->connectionsRefused.add();
      ::close(descriptor);
      return;
    }
    const auto& thread = threads_[next_++ % threads_.size()];
    auto connection = std::make_shared<ClientConnection>(context_, thread, descriptor, std::move(slot));
    if (thread->isCurrent()) return connection->start();
    thread->post([connection = std::move(connection)] { connection->start(); });
  }

  std::shared_ptr<ServerContext> context_;
  std::vector<std::shared_ptr<NetworkThread>> threads_;
  std::unique_ptr<Listener> listener_;
  std::size_t next_ = 0;
};

}  // namespace

struct FRX_HIDDEN HTTPServer::Impl {
  explicit Impl(DNSSD* discovery) : publisher(discovery) {}

  mutable std::mutex mutex;
  std::uint16_t configuredPort = 0;
  ConnectionClass connectionClass;
  HTTPServerLimits limits;
  WebSocketAccess access;
  unsigned threadCount = 1;
  /// Held over the whole of `start`, `stop` and `republishBonjour`, so that these happen one after another.
  std::mutex lifecycleMutex;
  std::unique_ptr<Running> running;
  /// 0 while not running.
  std::atomic<std::uint16_t> boundPort{0};
  ServicePublisher publisher;
  /// Shared with the connections, which may end after the server.
  const std::shared_ptr<ServerCounters> counters = std::make_shared<ServerCounters>();
};

HTTPServer::HTTPServer(DNSSD* discovery) : impl_(std::make_unique<Impl>(discovery)) {}

HTTPServer::~HTTPServer() { HTTPServer::stop(); }

void HTTPServer::setType(std::string type) { impl_->publisher.setType(std::move(type)); }

void HTTPServer::setName(std::string name) { impl_->publisher.setName(std::move(name)); }

std::string HTTPServer::name() const { return impl_->publisher.name(); }

void HTTPServer::setPort(std::uint16_t port) {
  std::lock_guard lock(impl_->mutex);
  impl_->configuredPort = port;
}

std::uint16_t HTTPServer::port() const {
  if (const std::uint16_t bound = impl_->boundPort; bound != 0) return bound;
  std::lock_guard lock(impl_->mutex);
  return impl_->configuredPort;
}

void HTTPServer::setConnectionClass(ConnectionClass makeConnection) {
  std::lock_guard lock(impl_->mutex);
  impl_->connectionClass = std::move(makeConnection);
}

void HTTPServer::setLimits(const HTTPServerLimits& limits) {
  std::lock_guard lock(impl_->mutex);
  impl_->limits = limits;
}

const HTTPServerLimits& HTTPServer::limits() const { return impl_->limits; }

void HTTPServer::setWebSocketAccess(WebSocketAccess access) {
  std::lock_guard lock(impl_->mutex);
  impl_->access = std::move(access);
}

void HTTPServer::setNetworkThreadCount(unsigned count) {
  std::lock_guard lock(impl_->mutex);
  impl_->threadCount = count;
}

bool HTTPServer::start(FRXError* error) {
  std::lock_guard lifecycle(impl_->lifecycleMutex);
  if (impl_->running) return true;
  std::shared_ptr<ServerContext> context;
  std::uint16_t port = 0;
  unsigned threadCount = 1;
  {
    std::lock_guard lock(impl_->mutex);
    context = std::make_shared<ServerContext>(impl_->limits, impl_->access, impl_->connectionClass,
                                              impl_->counters);
    port = impl_->configuredPort;
    threadCount = impl_->threadCount;
  }
  auto listener = std::make_unique<Listener>();
  if (!listener->bind(port, error)) return false;
  try {
    impl_->running = std::make_unique<Running>(std::move(context), std::move(listener), threadCount);
  } catch (const std::exception& failure) {
    setError(error, {HTTPServerErrorDomain, EAGAIN, std::string("Cannot start: ") + failure.what()});
    return false;
  }
  impl_->boundPort = impl_->running->port();
  impl_->publisher.publish(impl_->boundPort);
  return true;
}

void HTTPServer::stop() {
  std::lock_guard lifecycle(impl_->lifecycleMutex);
  if (!impl_->running) return;
  impl_->publisher.withdraw();
  impl_->boundPort = 0;
  impl_->running.reset();
}

bool HTTPServer::isRunning() const { return impl_->boundPort != 0; }

HTTPServerStatistics HTTPServer::statistics() const { return impl_->counters->statistics(); }

void HTTPServer::setTXTRecordDictionary(TXTDictionary txt) {
  impl_->publisher.setTXTRecordDictionary(std::move(txt));
}

TXTDictionary HTTPServer::txtRecordDictionary() const { return impl_->publisher.txtRecordDictionary(); }

void HTTPServer::republishBonjour() {
  std::lock_guard lifecycle(impl_->lifecycleMutex);
  if (impl_->running) impl_->publisher.publish(impl_->boundPort);
}

}  // namespace ferrox
