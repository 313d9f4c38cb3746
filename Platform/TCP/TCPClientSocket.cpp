#include "Platform/TCP/TCPClientSocket.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

#include "Platform/Base/Mutex.h"
#include "Platform/Net/ConnectionRace.h"
#include "Platform/Net/HostConnector.h"
#include "Platform/Net/HostName.h"
#include "Platform/Net/IOThread.h"
#include "Platform/RunLoop/MainLoopLink.h"

namespace ferrox {
namespace {

// A made connection: watched for its end. What the peer sends is thrown away, so that its end is noticed.
// Thread: the I/O thread, except for construction.
class Link : public std::enable_shared_from_this<Link> {
 public:
  using OnEnd = std::function<void(std::optional<FRXError>)>;

  Link(FileDescriptor socket, OnEnd onEnd) : socket_(std::move(socket)), onEnd_(std::move(onEnd)) {}

  void start() {
    watch_ = IOThread::shared().watch(socket_.get(), EPOLLIN | EPOLLRDHUP, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->drain();
    });
  }

  void close() {
    if (watch_) IOThread::shared().unwatch(*std::exchange(watch_, std::nullopt));
    socket_.reset();
    onEnd_ = nullptr;
  }

 private:
  void drain() {
    std::array<char, 4096> thrownAway;
    const auto count = ::recv(socket_.get(), thrownAway.data(), thrownAway.size(), 0);
    if (count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR))) return;
    const auto error = count < 0 ? std::optional(socketError(errno)) : std::nullopt;
    const auto onEnd = std::exchange(onEnd_, nullptr);
    close();
    if (onEnd) onEnd(error);
  }

  FileDescriptor socket_;
  OnEnd onEnd_;
  std::optional<IOThread::Id> watch_;
};

class RacingTCPClientSocket final : public TCPClientSocket,
                                    public std::enable_shared_from_this<RacingTCPClientSocket> {
 public:
  RacingTCPClientSocket(HostNameResolver& resolver, RunLoop& loop) : resolver_(resolver), toLoop_(loop) {}
  ~RacingTCPClientSocket() override { releaseConnection(connector_, link_); }

  /// The I/O thread may hold the socket for a moment after its owner let it go, when the loop may end.
  void detach() { toLoop_.close(); }

  void setDelegate(std::weak_ptr<TCPClientSocketListener> listener) override {
    const MutexLock lock(mutex_);
    delegate_ = std::move(listener);
  }

  bool connectToHost(const std::string& host, std::uint16_t port, std::chrono::milliseconds timeout,
                     FRXError* error) override;
  void disconnect() override;

 private:
  enum class State { Idle, Connecting, Connected };
  using Session = std::uint64_t;

  static void releaseConnection(std::shared_ptr<HostConnector> connector, std::shared_ptr<Link> link);
  void connectionAttemptDidEnd(Session session, FileDescriptor socket, std::optional<FRXError> error);
  void connectionDidEnd(Session session, std::optional<FRXError> error);
  void postConnected(Session session);
  void postDisconnected(std::optional<FRXError> error);
  std::shared_ptr<TCPClientSocketListener> delegate() const {
    const MutexLock lock(mutex_);
    return delegate_.lock();
  }

  HostNameResolver& resolver_;
  MainLoopLink toLoop_;

  mutable Mutex mutex_;
  std::weak_ptr<TCPClientSocketListener> delegate_ FRX_GUARDED_BY(mutex_);
  State state_ FRX_GUARDED_BY(mutex_) = State::Idle;
  // Counts the connections made one after another, so that what belongs to an earlier one is recognised.
  Session session_ FRX_GUARDED_BY(mutex_) = 0;
  std::string host_ FRX_GUARDED_BY(mutex_);
  std::uint16_t port_ FRX_GUARDED_BY(mutex_) = 0;
  std::shared_ptr<HostConnector> connector_ FRX_GUARDED_BY(mutex_);
  std::shared_ptr<Link> link_ FRX_GUARDED_BY(mutex_);
};

bool RacingTCPClientSocket::connectToHost(const std::string& host, std::uint16_t port,
                                          std::chrono::milliseconds timeout, FRXError* error) {
  if (!isUsableHostName(host) || port == 0) {
    setError(error, {SocketErrorDomain, EINVAL, "Unusable host name or port"});
    return false;
  }
  const MutexLock lock(mutex_);
  if (state_ != State::Idle) {
    setError(error, socketError(state_ == State::Connecting ? EALREADY : EISCONN));
    return false;
  }
  state_ = State::Connecting;
  host_ = host;
  port_ = port;
  connector_ =
      HostConnector::start(resolver_, host, port, timeout,
                           [weak = weak_from_this(), session = ++session_](FileDescriptor socket,
                                                                           std::optional<FRXError> failure) {
                             if (const auto self = weak.lock()) {
                               self->connectionAttemptDidEnd(session, std::move(socket), std::move(failure));
                             }
                           });
  return true;
}

void RacingTCPClientSocket::disconnect() {
  std::shared_ptr<HostConnector> connector;
  std::shared_ptr<Link> link;
  {
    const MutexLock lock(mutex_);
    if (state_ == State::Idle) return;
    state_ = State::Idle;
    ++session_;
    connector.swap(connector_);
    link.swap(link_);
  }
  releaseConnection(std::move(connector), std::move(link));
  postDisconnected(std::nullopt);
}

void RacingTCPClientSocket::releaseConnection(std::shared_ptr<HostConnector> connector,
                                              std::shared_ptr<Link> link) {
  if (connector) connector->cancel();
  if (link) IOThread::shared().post([link = std::move(link)] { link->close(); });
}

void RacingTCPClientSocket::connectionAttemptDidEnd(Session session, FileDescriptor socket,
                                                    std::optional<FRXError> error) {
  if (error) return connectionDidEnd(session, std::move(error));
  const auto link = std::make_shared<Link>(
      std::move(socket), [weak = weak_from_this(), session](std::optional<FRXError> failure) {
        if (const auto self = weak.lock()) self->connectionDidEnd(session, std::move(failure));
      });
  {
    const MutexLock lock(mutex_);
    if (session != session_) return;
    state_ = State::Connected;
    connector_.reset();
    link_ = link;
  }
  postConnected(session);
  link->start();
}

void RacingTCPClientSocket::connectionDidEnd(Session session, std::optional<FRXError> error) {
  {
    const MutexLock lock(mutex_);
    if (session != session_) return;
    state_ = State::Idle;
    connector_.reset();
    link_.reset();
  }
  postDisconnected(std::move(error));
}

void RacingTCPClientSocket::postConnected(Session session) {
  toLoop_.post([self = shared_from_this(), session] {
    std::string host;
    std::uint16_t port = 0;
    {
      const MutexLock lock(self->mutex_);
      if (session != self->session_) return;
      host = self->host_;
      port = self->port_;
    }
    if (const auto listener = self->delegate()) listener->socketDidConnectToHost(*self, host, port);
  });
}

void RacingTCPClientSocket::postDisconnected(std::optional<FRXError> error) {
  toLoop_.post([self = shared_from_this(), failure = std::move(error)] {
    if (const auto listener = self->delegate()) listener->socketDidDisconnectWithError(*self, failure);
  });
}

}  // namespace

std::shared_ptr<TCPClientSocket> TCPClientSocket::make(HostNameResolver& resolver, RunLoop& callbackLoop) {
  const auto socket = std::make_shared<RacingTCPClientSocket>(resolver, callbackLoop);
  return {socket.get(), [socket](TCPClientSocket*) { socket->detach(); }};
}

}  // namespace ferrox
