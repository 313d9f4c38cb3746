#include "Platform/HTTP/Server/SocketChannel.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/sendfile.h>
#include <sys/socket.h>

#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cerrno>
#include <cstring>

#include "Platform/HTTP/Server/NetworkThread.h"
#include "Platform/HTTP/Server/ServerCounters.h"
#include "Platform/HTTP/Server/Session.h"

namespace ferrox {

namespace asio = boost::asio;
using boost::system::error_code;

struct SocketChannel::Impl {
  // The concrete executor: a type-erased one costs an allocation for each operation.
  using Socket = asio::basic_stream_socket<asio::ip::tcp, asio::io_context::executor_type>;
  explicit Impl(asio::io_context& context) : socket(context.get_executor()) {}
  Socket socket;
};

namespace {

void switchOn(int descriptor, int level, int option, int value) {
  ::setsockopt(descriptor, level, option, &value, sizeof value);
}

std::string hostText(const sockaddr_in6& address) {
  char text[INET6_ADDRSTRLEN] = {};
  if (IN6_IS_ADDR_V4MAPPED(&address.sin6_addr)) {
    ::inet_ntop(AF_INET, &address.sin6_addr.s6_addr[12], text, sizeof text);
    return text;
  }
  ::inet_ntop(AF_INET6, &address.sin6_addr, text, sizeof text);
  std::string host = text;
  char interface[IF_NAMESIZE] = {};
  if (address.sin6_scope_id != 0 && ::if_indextoname(address.sin6_scope_id, interface) != nullptr) {
    host.append("%").append(interface);
  }
  return host;
}

/// IPv4 addresses as IPv4-mapped ones, so that both families compare alike.
sockaddr_in6 asIPv6(const sockaddr_storage& address) {
  sockaddr_in6 result{};
  if (address.ss_family == AF_INET6) {
    std::memcpy(&result, &address, sizeof result);
    return result;
  }
  const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
  result.sin6_family = AF_INET6;
  result.sin6_port = v4.sin_port;
  result.sin6_addr.s6_addr[10] = result.sin6_addr.s6_addr[11] = 0xff;
  std::memcpy(&result.sin6_addr.s6_addr[12], &v4.sin_addr, 4);
  return result;
}

}  // namespace

SocketChannel::SocketChannel(NetworkThread& thread, int descriptor, std::shared_ptr<ServerCounters> counters)
    : impl_(std::make_unique<Impl>(thread.context())), counters_(std::move(counters)) {
  error_code failure;
  impl_->socket.assign(asio::ip::tcp::v6(), descriptor, failure);
  if (failure) {
    ::close(descriptor);
    return;
  }
  impl_->socket.non_blocking(true, failure);
  switchOn(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
  readAddresses();
}

SocketChannel::~SocketChannel() { close(); }

void SocketChannel::readAddresses() {
  sockaddr_storage peer{}, own{};
  socklen_t peerLength = sizeof peer, ownLength = sizeof own;
  if (::getpeername(descriptor(), reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0 ||
      ::getsockname(descriptor(), reinterpret_cast<sockaddr*>(&own), &ownLength) != 0) {
    return;
  }
  const sockaddr_in6 from = asIPv6(peer), to = asIPv6(own);
  peerHost_ = hostText(from);
  localPort_ = ntohs(to.sin6_port);
  const bool loopbackV4 = IN6_IS_ADDR_V4MAPPED(&from.sin6_addr) && from.sin6_addr.s6_addr[12] == 127;
  peerLocal_ = loopbackV4 || IN6_IS_ADDR_LOOPBACK(&from.sin6_addr) ||
               std::memcmp(&from.sin6_addr, &to.sin6_addr, sizeof from.sin6_addr) == 0;
}

void SocketChannel::receive(std::span<char> space, std::shared_ptr<Session> session) {
  impl_->socket.async_receive(asio::buffer(space.data(), space.size()),
                              [session = std::move(session)](const error_code& failure, std::size_t bytes) {
                                if (!failure) return session->didReceive(bytes);
                                if (failure == asio::error::eof) return session->didReceive(0);
                                session->didFail();
                              });
}

void SocketChannel::awaitWritable(std::shared_ptr<Session> session) {
  impl_->socket.async_wait(asio::socket_base::wait_write,
                           [session = std::move(session)](const error_code& failure) {
                             if (failure) return session->didFail();
                             session->didBecomeWritable();
                           });
}

ssize_t SocketChannel::sendNow(const char* bytes, std::size_t count, bool more) {
  for (;;) {
    const ssize_t sent =
        ::send(descriptor(), bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT | (more ? MSG_MORE : 0));
    if (sent >= 0) {
      counters_->bytesSent.add(static_cast<std::uint64_t>(sent));
      return sent;
    }
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
  }
}

ssize_t SocketChannel::sendFile(int file, off_t& position, std::size_t count) {
  const ssize_t sent = ::sendfile(descriptor(), file, &position, count);
  if (sent > 0) counters_->bytesSent.add(static_cast<std::uint64_t>(sent));
  return sent;
}

void SocketChannel::setCorked(bool corked) {
  if (corked == corked_) return;
  corked_ = corked;
  switchOn(descriptor(), IPPROTO_TCP, TCP_CORK, corked ? 1 : 0);
}

void SocketChannel::enableKeepAliveProbes() {
  switchOn(descriptor(), SOL_SOCKET, SO_KEEPALIVE, 1);
  switchOn(descriptor(), IPPROTO_TCP, TCP_KEEPIDLE, 60);
  switchOn(descriptor(), IPPROTO_TCP, TCP_KEEPINTVL, 15);
  switchOn(descriptor(), IPPROTO_TCP, TCP_KEEPCNT, 4);
}

void SocketChannel::shutDownSending() { ::shutdown(descriptor(), SHUT_WR); }

void SocketChannel::close() {
  error_code ignored;
  impl_->socket.close(ignored);
}

bool SocketChannel::isOpen() const { return impl_->socket.is_open(); }

int SocketChannel::descriptor() const { return impl_->socket.native_handle(); }

}  // namespace ferrox
