#include "Tests/Support/RawSocket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace ferrox::test {

RawSocket::RawSocket(std::uint16_t port, bool ipv6, int receiveBuffer)
    : descriptor_(::socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  if (receiveBuffer > 0)
    ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  const int on = 1;
  ::setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  int result = -1;
  if (ipv6) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    address.sin6_port = htons(port);
    result = ::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } else {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    result = ::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  if (result != 0) close();
}

RawSocket::~RawSocket() { close(); }

RawSocket::RawSocket(RawSocket&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)),
      buffer_(std::move(other.buffer_)),
      ended_(other.ended_),
      deadline_(other.deadline_) {}

RawSocket& RawSocket::operator=(RawSocket&& other) noexcept {
  if (this == &other) return *this;
  close();
  descriptor_ = std::exchange(other.descriptor_, -1);
  buffer_ = std::move(other.buffer_);
  ended_ = other.ended_;
  deadline_ = other.deadline_;
  return *this;
}

void RawSocket::close() {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

void RawSocket::reset() {
  const linger abortive{1, 0};
  ::setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
  close();
}

void RawSocket::shutDownSending() { ::shutdown(descriptor_, SHUT_WR); }

bool RawSocket::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool RawSocket::fill() {
  if (ended_ || descriptor_ < 0) return false;
  pollfd wait{descriptor_, POLLIN, 0};
  if (::poll(&wait, 1, static_cast<int>(deadline_.count())) <= 0) return false;
  char bytes[65536];
  const ssize_t got = ::recv(descriptor_, bytes, sizeof bytes, 0);
  if (got <= 0) {
    ended_ = true;
    return false;
  }
  buffer_.append(bytes, static_cast<std::size_t>(got));
  return true;
}

std::string RawSocket::read(std::size_t count) {
  while (buffer_.size() < count && fill()) {
  }
  std::string result = buffer_.substr(0, count);
  buffer_.erase(0, result.size());
  return result;
}

std::string RawSocket::readAll() {
  while (fill()) {
  }
  return std::exchange(buffer_, {});
}

bool RawSocket::isClosedByPeer() {
  if (!buffer_.empty()) return false;
  return !fill() && ended_;
}

std::optional<RawResponse> RawSocket::readResponse(bool toHead) {
  std::size_t end = 0;
  while ((end = buffer_.find("\r\n\r\n")) == std::string::npos) {
    if (!fill()) return std::nullopt;
  }
  RawResponse response;
  response.head = buffer_.substr(0, end + 4);
  buffer_.erase(0, end + 4);
  response.status = std::atoi(response.head.substr(9, 3).c_str());
  response.reason = response.head.substr(13, response.head.find('\r') - 13);
  for (std::size_t at = response.head.find("\r\n") + 2; at < end;) {
    const std::size_t stop = response.head.find("\r\n", at);
    const std::string line = response.head.substr(at, stop - at);
    std::string name = line.substr(0, line.find(':'));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    response.fields[name] = line.substr(std::min(line.size(), name.size() + 2));
    at = stop + 2;
  }
  if (toHead || response.status == 204 || response.status < 200) return response;
  const auto length = static_cast<std::size_t>(std::atoll(response.field("content-length").c_str()));
  response.body = read(length);
  if (response.body.size() != length) return std::nullopt;
  return response;
}

}  // namespace ferrox::test
