#include "Platform/Net/ConnectionRace.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace ferrox {
namespace {

void disableDelay(int socket) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

int pendingError(int socket) {
  int error = 0;
  socklen_t size = sizeof(error);
  return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

// A connect to a free port of this machine's ephemeral range may be given that very port as its own and so
// meet itself (simultaneous open, RFC 9293 section 3.5): nobody is listening there.
bool isConnectedToItself(int socket) {
  sockaddr_storage own{};
  sockaddr_storage peer{};
  socklen_t ownSize = sizeof(own);
  socklen_t peerSize = sizeof(peer);
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownSize) != 0) return false;
  if (::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &peerSize) != 0) return false;
  return SocketAddress::fromNative(reinterpret_cast<const sockaddr*>(&own), ownSize) ==
         SocketAddress::fromNative(reinterpret_cast<const sockaddr*>(&peer), peerSize);
}

int outcome(int socket) {
  const int error = pendingError(socket);
  if (error == 0 && isConnectedToItself(socket)) return ECONNREFUSED;
  return error;
}

}  // namespace

FRXError socketError(int code) { return {SocketErrorDomain, code, std::generic_category().message(code)}; }

ConnectionRace::ConnectionRace(IOThread& thread, std::vector<SocketAddress> addresses, Completion completion)
    : thread_(thread), addresses_(std::move(addresses)), completion_(std::move(completion)) {}

ConnectionRace::~ConnectionRace() = default;

void ConnectionRace::start() {
  const auto self = shared_from_this();
  startNextAttempt();
}

void ConnectionRace::cancel() {
  dropAttempts();
  completion_ = nullptr;
}

void ConnectionRace::startNextAttempt() {
  if (delay_) thread_.cancelTimer(*std::exchange(delay_, std::nullopt));
  const std::size_t running = attempts_.size();
  while (completion_ && next_ < addresses_.size() && attempts_.size() == running) {
    begin(addresses_[next_++]);
  }
  if (!completion_) return;
  if (attempts_.empty()) {
    complete({}, socketError(lastError_ != 0 ? lastError_ : EHOSTUNREACH));
  } else if (next_ < addresses_.size()) {
    armDelay();
  }
}

void ConnectionRace::armDelay() {
  delay_ = thread_.startTimer(attemptDelay, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->delay_.reset();
    self->startNextAttempt();
  });
}

void ConnectionRace::begin(const SocketAddress& address) {
  FileDescriptor socket(::socket(address.native()->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket.isOpen()) {
    lastError_ = errno;
    return;
  }
  disableDelay(socket.get());
  if (::connect(socket.get(), address.native(), address.nativeLength()) == 0) {
    complete(std::move(socket), std::nullopt);
    return;
  }
  if (errno != EINPROGRESS) {
    lastError_ = errno;
    return;
  }
  const int descriptor = socket.get();
  const auto watch = thread_.watch(descriptor, EPOLLOUT, [weak = weak_from_this(), descriptor] {
    if (const auto self = weak.lock()) self->attemptIsReady(descriptor);
  });
  attempts_.emplace(descriptor, Attempt{std::move(socket), watch});
}

void ConnectionRace::attemptIsReady(int descriptor) {
  auto node = attempts_.extract(descriptor);
  thread_.unwatch(node.mapped().watch);
  if (const int error = outcome(descriptor); error != 0) {
    lastError_ = error;
    node.mapped().socket.reset();
    startNextAttempt();
    return;
  }
  complete(std::move(node.mapped().socket), std::nullopt);
}

void ConnectionRace::complete(FileDescriptor socket, std::optional<FRXError> error) {
  dropAttempts();
  const auto completion = std::exchange(completion_, nullptr);
  if (completion) completion(std::move(socket), std::move(error));
}

void ConnectionRace::dropAttempts() {
  if (delay_) thread_.cancelTimer(*std::exchange(delay_, std::nullopt));
  for (const auto& [descriptor, attempt] : attempts_) thread_.unwatch(attempt.watch);
  attempts_.clear();
}

}  // namespace ferrox
