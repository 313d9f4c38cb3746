#include "Platform/HTTP/Server/Listener.h"

#include <netinet/in.h>
#include <unistd.h>

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/basic_stream_descriptor.hpp>
#include <cerrno>
#include <chrono>
#include <system_error>

#include "Platform/HTTP/Server/NetworkThread.h"
#include "Platform/Log/Log.h"

namespace ferrox {

namespace asio = boost::asio;
using boost::system::error_code;

namespace {

constexpr std::chrono::milliseconds restTime{100};
/// So that a flood of newcomers does not keep those already here waiting.
constexpr int acceptsInARow = 64;

bool bindTo(int descriptor, int family, std::uint16_t port) {
  if (family == AF_INET6) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    return ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// A listening socket, or -1 with errno.
int listenOn(int family, std::uint16_t port) {
  const int descriptor = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0) return -1;
  const int on = 1, off = 0;
  ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const bool bothFamilies =
      family != AF_INET6 || ::setsockopt(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off) == 0;
  if (bothFamilies && bindTo(descriptor, family, port) && ::listen(descriptor, SOMAXCONN) == 0)
    return descriptor;
  const int code = errno;
  ::close(descriptor);
  errno = code;
  return -1;
}

}  // namespace

struct Listener::Impl {
  using Executor = asio::io_context::executor_type;
  explicit Impl(NetworkThread& owner)
      : socket(owner.context().get_executor()), restTimer(owner.context().get_executor()) {}
  asio::posix::basic_stream_descriptor<Executor> socket;
  asio::basic_waitable_timer<std::chrono::steady_clock, asio::wait_traits<std::chrono::steady_clock>,
                             Executor>
      restTimer;
};

Listener::Listener() = default;

Listener::~Listener() {
  if (!impl_ && descriptor_ >= 0) ::close(descriptor_);
}

bool Listener::bind(std::uint16_t port, FRXError* error) {
  descriptor_ = listenOn(AF_INET6, port);
  if (descriptor_ < 0 && (errno == EAFNOSUPPORT || errno == EADDRNOTAVAIL))
    descriptor_ = listenOn(AF_INET, port);
  sockaddr_in6 bound{};
  socklen_t length = sizeof bound;
  if (descriptor_ < 0 || ::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&bound), &length) != 0) {
    const int code = errno;
    setError(error, {HTTPServerErrorDomain, code,
                     "Cannot listen on port " + std::to_string(port) + ": " +
                         std::generic_category().message(code)});
    return false;
  }
  // The port stands at the same place in the addresses of both families.
  port_ = ntohs(bound.sin6_port);
  return true;
}

void Listener::start(NetworkThread& thread, Accepted accepted) {
  accepted_ = std::move(accepted);
  impl_ = std::make_unique<Impl>(thread);
  impl_->socket.assign(descriptor_);
  wait();
}

void Listener::close() {
  if (!impl_) return;
  error_code ignored;
  impl_->socket.close(ignored);
  impl_->restTimer.cancel();
}

void Listener::wait() {
  impl_->socket.async_wait(asio::posix::descriptor_base::wait_read, [this](const error_code& failure) {
    if (!failure) acceptAll();
  });
}

void Listener::acceptAll() {
  for (int i = 0; i < acceptsInARow; ++i) {
    sockaddr_storage peer{};
    socklen_t length = sizeof peer;
    const int descriptor =
        ::accept4(descriptor_, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (descriptor >= 0) {
      resting_ = false;
      accepted_(descriptor, peer);
      continue;
    }
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) return rest();
    if (errno == EAGAIN || errno == EWOULDBLOCK) break;
    // A newcomer that has already gone, or another fault of its own (accept(2)): the next one, please.
  }
  wait();
}

void Listener::rest() {
  // The newcomers stay in the backlog. Asking for them again at once would only burn the processor.
  if (!resting_)
    FRX_LOG_WARN("Out of descriptors: accepting pauses for " + std::to_string(restTime.count()) + " ms");
  resting_ = true;
  impl_->restTimer.expires_after(restTime);
  impl_->restTimer.async_wait([this](const error_code& failure) {
    if (!failure) acceptAll();
  });
}

}  // namespace ferrox
