#include "Platform/WebSocket/WebSocketClientConnection.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/Log/Log.h"
#include "Platform/Net/ConnectionRace.h"
#include "Platform/Net/HostNameResolver.h"
#include "Platform/WebSocket/WebSocketUpkeep.h"

namespace ferrox {
namespace {

/// A peer whose texts wait for the main thread is read again once half of that has been taken.
constexpr std::size_t maxUntaken = std::size_t{1} << 20;
/// What a text costs beside its bytes, so that a flood of empty ones is bounded too.
constexpr std::size_t costOfText = 32;

FRXError connectError(FRXError cause) {
  const bool timedOut =
      (cause.domain == HostNameResolverErrorDomain && cause.code == HostNameResolverErrorTimedOut) ||
      (cause.domain == SocketErrorDomain && cause.code == ETIMEDOUT);
  if (!timedOut) return cause;
  return {WebSocketClientErrorDomain, WebSocketClientErrorTimedOut, "Connecting timed out"};
}

}  // namespace

WebSocketClientConnection::WebSocketClientConnection(
    const WebSocketClientRequest& request, WebSocketURL url, RunLoop& mainLoop,
    std::weak_ptr<WebSocketClientConnectionListener> listener)
    : thread_(IOThread::shared()),
      request_(request),
      url_(std::move(url)),
      listener_(std::move(listener)),
      toMain_(mainLoop) {}

WebSocketClientConnection::~WebSocketClientConnection() = default;

void WebSocketClientConnection::startDeadline() {
  thread_.post([self = shared_from_this()] {
    if (self->finished_) return;
    WebSocketUpkeep::shared().add(self);
    self->armDeadline(self->request_.connectTimeout);
  });
}

void WebSocketClientConnection::abort() {
  thread_.post([self = shared_from_this()] { self->finish(); });
}

bool WebSocketClientConnection::admit(std::size_t bytes) {
  if (waitingBytes() + bytes > request_.maxSendQueue) return false;
  inFlight_.fetch_add(bytes, std::memory_order_relaxed);
  return true;
}

void WebSocketClientConnection::taken(std::size_t bytes) {
  const std::size_t before = untaken_.fetch_sub(bytes);
  if (before < maxUntaken / 2 || before - bytes >= maxUntaken / 2) return;
  thread_.post([self = shared_from_this()] {
    if (!self->session_ || self->finished_ || self->session_->isReading()) return;
    self->heard();
    self->session_->setReading(true);
  });
}

void WebSocketClientConnection::checkNow() {
  thread_.post([self = shared_from_this()] {
    if (!self->session_ || !self->session_->isOpen() || self->pingedAt_) return;
    self->ping(std::chrono::steady_clock::now());
    self->finishIfDone();
  });
}

void WebSocketClientConnection::connected(FileDescriptor socket, std::optional<FRXError> error) {
  if (finished_) return;
  if (error) {
    sessionDidEnd({connectError(std::move(*error)), 0, {}, false});
    return finish();
  }
  socket_ = std::move(socket);
  session_.emplace(static_cast<ByteChannel&>(*this), url_,
                   WebSocketClientSession::Limits{request_.maxMessage, request_.maxSendQueue},
                   static_cast<WebSocketClientSessionListener&>(*this));
  session_->start();
  finishIfDone();
}

void WebSocketClientConnection::enqueue(const OutgoingQueue::Bytes& bytes, std::size_t begin, std::size_t end,
                                        bool closes) {
  inFlight_.fetch_sub(end - begin, std::memory_order_relaxed);
  if (session_ && !finished_) session_->enqueue(bytes, begin, end, closes);
}

void WebSocketClientConnection::failFull() {
  if (!session_ || !session_->isOpen() || finished_) return;
  session_->failFull();
  finishIfDone();
}

void WebSocketClientConnection::flush() {
  if (!session_ || finished_) return;
  session_->flush();
  unsent_.store(session_->unsentBytes(), std::memory_order_relaxed);
  finishIfDone();
}

ssize_t WebSocketClientConnection::receive(std::span<char> space) {
  return ::recv(socket_.get(), space.data(), space.size(), MSG_DONTWAIT);
}

ssize_t WebSocketClientConnection::send(std::span<const iovec> pieces) {
  if (pieces.size() == 1) {
    return ::send(socket_.get(), pieces[0].iov_base, pieces[0].iov_len, MSG_NOSIGNAL | MSG_DONTWAIT);
  }
  msghdr message{};
  message.msg_iov = const_cast<iovec*>(pieces.data());
  message.msg_iovlen = pieces.size();
  return ::sendmsg(socket_.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void WebSocketClientConnection::await(bool readable, bool writable) {
  const std::uint32_t events =
      (readable ? std::uint32_t{EPOLLIN} : 0U) | (writable ? std::uint32_t{EPOLLOUT} : 0U);
  if (events == watched_) return;
  if (watch_) thread_.unwatch(*std::exchange(watch_, std::nullopt));
  watched_ = events;
  // With nothing to wait for, a broken connection would be reported again and again.
  if (events == 0) return;
  watch_ = thread_.watch(socket_.get(), events, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->channelIsReady();
  });
}

void WebSocketClientConnection::shutDownSending() { ::shutdown(socket_.get(), SHUT_WR); }

void WebSocketClientConnection::channelIsReady() {
  if ((watched_ & EPOLLOUT) != 0) {
    const std::size_t before = session_->unsentBytes();
    session_->channelIsWritable();
    // The system takes more only when the peer has acknowledged what it had.
    if (session_->unsentBytes() < before) heard();
  }
  if (!session_->isDone() && (watched_ & EPOLLIN) != 0) {
    if (session_->channelIsReadable(WebSocketUpkeep::shared().readBuffer())) heard();
    deliverTexts();
  }
  unsent_.store(session_->unsentBytes(), std::memory_order_relaxed);
  finishIfDone();
}

void WebSocketClientConnection::heard() {
  lastHeard_ = std::chrono::steady_clock::now();
  pingedAt_.reset();
}

void WebSocketClientConnection::sessionDidOpen() {
  if (deadline_) thread_.cancelTimer(*std::exchange(deadline_, std::nullopt));
  heard();
  tell([](WebSocketClientConnectionListener& listener) { listener.connectionDidOpen(); });
  if (request_.pingInterval.count() > 0) WebSocketUpkeep::shared().lookAt(lastHeard_ + request_.pingInterval);
}

void WebSocketClientConnection::sessionDidReceiveText(std::string_view text) {
  received_.bytes.append(text);
  received_.ends.push_back(received_.bytes.size());
}

void WebSocketClientConnection::deliverTexts() {
  if (received_.ends.empty()) return;
  const std::size_t cost = received_.bytes.size() + received_.ends.size() * costOfText;
  auto texts = std::make_shared<const ReceivedTexts>(std::exchange(received_, {}));
  const bool full = untaken_.fetch_add(cost) + cost >= maxUntaken;
  if (full) session_->setReading(false);
  toMain_.post([self = shared_from_this(), texts, cost] {
    if (const auto listener = self->listener_.lock()) listener->connectionDidReceive(*texts);
    self->taken(cost);
  });
}

void WebSocketClientConnection::sessionDidStartClosing() { armDeadline(request_.closeTimeout); }

void WebSocketClientConnection::sessionDidEnd(WebSocketEnding ending) {
  deliverTexts();
  if (ending.error && ending.error->domain == WebSocketClientErrorDomain &&
      ending.error->code == WebSocketClientErrorSendQueueFull) {
    FRX_LOG_WARN("The WebSocket to " + url_.authority + " is cut: the peer does not read and " +
                 std::to_string(request_.maxSendQueue) + " bytes wait for it");
  }
  tell([ending = std::move(ending)](WebSocketClientConnectionListener& listener) {
    listener.connectionDidEnd(ending);
  });
}

void WebSocketClientConnection::tell(std::function<void(WebSocketClientConnectionListener&)> event) {
  toMain_.post([weak = listener_, event = std::move(event)] {
    if (const auto listener = weak.lock()) event(*listener);
  });
}

WebSocketClientConnection::TimePoint WebSocketClientConnection::upkeep(TimePoint now) {
  if (!session_ || !session_->isOpen()) return TimePoint::max();
  if (!pingedAt_ && request_.pingInterval.count() <= 0) return TimePoint::max();
  // While its texts wait for the main thread, the peer's pong cannot be seen.
  if (!session_->isReading()) return now + request_.pongTimeout;
  if (pingedAt_ && now >= *pingedAt_ + request_.pongTimeout) {
    session_->fail(
        {WebSocketClientErrorDomain, WebSocketClientErrorNoPong, "The peer did not answer a ping"});
    finishIfDone();
    return TimePoint::max();
  }
  const bool pings = request_.pingInterval.count() > 0;
  if (pings && !pingedAt_ && now >= lastHeard_ + request_.pingInterval) ping(now);
  finishIfDone();
  if (finished_) return TimePoint::max();
  const TimePoint nextPing = pings ? std::max(lastHeard_, now) + request_.pingInterval : TimePoint::max();
  if (!pingedAt_) return lastHeard_ + request_.pingInterval;
  return std::min(*pingedAt_ + request_.pongTimeout, nextPing);
}

void WebSocketClientConnection::ping(TimePoint now) {
  pingedAt_ = now;
  session_->ping();
  WebSocketUpkeep::shared().lookAt(now + request_.pongTimeout);
}

void WebSocketClientConnection::armDeadline(std::chrono::milliseconds delay) {
  if (deadline_) thread_.cancelTimer(*deadline_);
  deadline_ = thread_.startTimer(delay, [self = shared_from_this()] {
    self->deadline_.reset();
    self->deadlinePassed();
  });
}

void WebSocketClientConnection::deadlinePassed() {
  if (session_) {
    session_->deadlinePassed();
  } else {
    sessionDidEnd({FRXError{WebSocketClientErrorDomain, WebSocketClientErrorTimedOut, "Connecting timed out"},
                   0,
                   {},
                   false});
  }
  finish();
}

void WebSocketClientConnection::finishIfDone() {
  if (session_ && session_->isDone()) finish();
}

void WebSocketClientConnection::finish() {
  if (std::exchange(finished_, true)) return;
  const auto self = shared_from_this();
  if (deadline_) thread_.cancelTimer(*std::exchange(deadline_, std::nullopt));
  if (watch_) thread_.unwatch(*std::exchange(watch_, std::nullopt));
  session_.reset();
  socket_.reset();
  WebSocketUpkeep::shared().remove(self);
}

}  // namespace ferrox
