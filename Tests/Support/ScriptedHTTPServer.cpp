#include "Tests/Support/ScriptedHTTPServer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Platform/Net/SocketAddress.h"

namespace ferrox::test {
namespace {

int listenOn(const std::string& address, std::uint16_t port) {
  const auto where = SocketAddress::fromText(address, port);
  if (!where) throw std::invalid_argument("not an address: " + address);
  const int socket = ::socket(where->native()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (::bind(socket, where->native(), where->nativeLength()) != 0 || ::listen(socket, 128) != 0) {
    const int error = errno;
    ::close(socket);
    throw std::system_error(error, std::generic_category(), "listen on " + address);
  }
  return socket;
}

std::uint16_t boundPort(int socket) {
  sockaddr_storage address{};
  socklen_t size = sizeof(address);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return SocketAddress::fromNative(reinterpret_cast<const sockaddr*>(&address), size).port();
}

}  // namespace

std::string ScriptedConnection::readRequest() {
  constexpr std::string_view emptyLine = "\r\n\r\n";
  while (true) {
    if (const auto end = unread_.find(emptyLine); end != std::string::npos) {
      const std::string request = unread_.substr(0, end + emptyLine.size());
      unread_.erase(0, request.size());
      return request;
    }
    char buffer[4096];
    const auto count = ::recv(socket_, buffer, sizeof(buffer), 0);
    if (count <= 0) return {};
    unread_.append(buffer, static_cast<std::size_t>(count));
  }
}

std::string ScriptedConnection::read(std::size_t count) {
  while (unread_.size() < count) {
    const std::string more = readOnce();
    if (more.empty()) break;
    unread_.append(more);
  }
  const std::string taken = unread_.substr(0, count);
  unread_.erase(0, taken.size());
  return taken;
}

std::string ScriptedConnection::readOnce() {
  std::string buffer(64 * 1024, '\0');
  const auto count = ::recv(socket_, buffer.data(), buffer.size(), 0);
  buffer.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return buffer;
}

bool ScriptedConnection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool ScriptedConnection::drip(std::string_view bytes, std::chrono::milliseconds pause) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (!send(bytes.substr(i, 1))) return false;
    std::this_thread::sleep_for(pause);
  }
  return true;
}

void ScriptedConnection::stall() {
  char buffer[4096];
  while (::recv(socket_, buffer, sizeof(buffer), 0) > 0) {
  }
}

void ScriptedConnection::endSending() { ::shutdown(socket_, SHUT_WR); }

void ScriptedConnection::reset() {
  const linger abort{1, 0};
  ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &abort, sizeof(abort));
}

void ScriptedConnection::close() {
  const std::lock_guard lock(mutex_);
  ::close(std::exchange(socket_, -1));
}

void ScriptedConnection::interrupt() {
  const std::lock_guard lock(mutex_);
  if (socket_ >= 0) ::shutdown(socket_, SHUT_RDWR);
}

ScriptedHTTPServer::ScriptedHTTPServer(Script script, const std::string& address, std::uint16_t port)
    : script_(std::move(script)),
      address_(address),
      listener_(listenOn(address, port)),
      port_(boundPort(listener_)) {
  acceptThread_ = std::thread([this] { acceptConnections(); });
}

ScriptedHTTPServer::~ScriptedHTTPServer() {
  stopping_ = true;
  ::shutdown(listener_, SHUT_RDWR);
  acceptThread_.join();
  ::close(listener_);
  for (const auto& connection : connections_) connection->interrupt();
  for (auto& thread : threads_) thread.join();
}

void ScriptedHTTPServer::acceptConnections() {
  while (!stopping_) {
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      return;
    }
    // Counted as open first: who sees that it was accepted may wait for its end.
    const std::size_t open = ++openCount_;
    const auto connection = std::make_shared<ScriptedConnection>(socket, acceptCount_++);
    highestOpenCount_ = std::max(highestOpenCount_.load(), open);
    const std::lock_guard lock(mutex_);
    connections_.push_back(connection);
    threads_.emplace_back([this, connection] { serve(connection); });
  }
}

void ScriptedHTTPServer::serve(const std::shared_ptr<ScriptedConnection>& connection) {
  script_(*connection);
  connection->close();
  --openCount_;
}

ScriptedHTTPServer::Script ScriptedHTTPServer::answeringWith(std::string answer) {
  return [answer = std::move(answer)](ScriptedConnection& connection) {
    while (!connection.readRequest().empty() && connection.send(answer)) {
    }
  };
}

std::string ScriptedHTTPServer::answer(std::string_view body, std::string_view statusLine) {
  return std::string(statusLine) + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         std::string(body);
}

std::string ScriptedHTTPServer::url(std::string_view path) const {
  const std::string host = address_.find(':') == std::string::npos ? address_ : "[" + address_ + "]";
  return "http://" + host + ":" + std::to_string(port_) + std::string(path);
}

}  // namespace ferrox::test
