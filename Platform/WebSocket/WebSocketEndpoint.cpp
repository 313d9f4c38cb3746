#include "Platform/WebSocket/WebSocketEndpoint.h"

#include <exception>

#include "Platform/HTTP/Server/NetworkThread.h"
#include "Platform/HTTP/Server/StreamChannel.h"
#include "Platform/Log/Log.h"
#include "Platform/WebSocket/WebSocketFraming.h"

namespace ferrox {

namespace {

constexpr std::size_t inputSize = 16 * 1024;
constexpr std::size_t keptOutput = 64 * 1024;

}  // namespace

WebSocketEndpoint::WebSocketEndpoint(std::shared_ptr<NetworkThread> thread, const HTTPServerLimits& limits,
                                     const StreamChannel& channel, std::shared_ptr<void> keepAlive)
    : thread_(std::move(thread)),
      limits_(limits),
      peerHost_(channel.peerHost()),
      localPort_(channel.localPort()),
      keepAlive_(std::move(keepAlive)) {}

WebSocketEndpoint::~WebSocketEndpoint() = default;

void WebSocketEndpoint::open(std::unique_ptr<StreamChannel> channel, std::shared_ptr<WebSocket> socket,
                             std::string answer, std::string_view received) {
  framing_ = std::make_unique<WebSocketFraming>(WebSocketFraming::Role::Server, limits_.webSocketMessage,
                                                [this](std::string_view text) { receivedText(text); });
  channel_ = std::move(channel);
  channel_->enableKeepAliveProbes();
  socket_ = std::move(socket);
  input_.resize(inputSize);
  output_ = std::move(answer);
  lastHeard_ = lastSent_ = thread_->now();
  enter(Phase::Open);
  thread_->adopt(shared_from_this());
  if (phase_ == Phase::Ended) return;
  tellListener([this](WebSocketListener& listener) { listener.webSocketDidOpen(*socket_); });
  const std::string behind(received);
  framing_->read(behind);
  pump();
  armReceive();
}

void WebSocketEndpoint::enter(Phase phase) {
  phase_ = phase;
  phaseSince_ = thread_->now();
}

void WebSocketEndpoint::armReceive() {
  // A peer that does not take our answers is not read any further.
  if (phase_ == Phase::Ended || awaitingWritable_ || receiving_ || paused_) return;
  receiving_ = true;
  channel_->receive(input_, shared_from_this());
}

void WebSocketEndpoint::didReceive(std::size_t bytes) {
  if (phase_ == Phase::Ended) return;
  if (bytes == 0) return end();
  lastHeard_ = thread_->now();
  pinged_ = false;
  if (phase_ != Phase::Draining) {
    framing_->read({input_.data(), bytes});
    pump();
  }
  // Until here a listener that pauses and resumes must not start to receive over the bytes that are being
  // read.
  receiving_ = false;
  armReceive();
}

void WebSocketEndpoint::receivedText(std::string_view text) {
  if (phase_ != Phase::Open) return;
  tellListener(
      [this, text](WebSocketListener& listener) { listener.webSocketDidReceiveMessage(*socket_, text); });
}

void WebSocketEndpoint::tellListener(const std::function<void(WebSocketListener&)>& tell) {
  const auto listener = socket_ ? socket_->delegate() : nullptr;
  if (!listener) return;
  try {
    tell(*listener);
  } catch (const std::exception& failure) {
    FRX_LOG_ERROR(std::string("A WebSocket listener failed: ") + failure.what());
  } catch (...) {
    FRX_LOG_ERROR("A WebSocket listener failed");
  }
}

bool WebSocketEndpoint::sendText(std::string text) {
  {
    std::lock_guard lock(mutex_);
    if (finished_) return false;
    queuedBytes_ += text.size();
    posted_.push_back(std::move(text));
  }
  schedule();
  return true;
}

int WebSocketEndpoint::refusal() const { return framing_ ? framing_->refusal() : 0; }

void WebSocketEndpoint::close(std::uint16_t code, std::string reason) {
  {
    std::lock_guard lock(mutex_);
    if (finished_ || postedClosing_) return;
    postedClosing_ = Closing{code, std::move(reason)};
  }
  schedule();
}

void WebSocketEndpoint::setReading(bool reading) {
  if (!thread_->isCurrent()) {
    return thread_->post([weak = weak_from_this(), reading] {
      if (const auto self = weak.lock()) static_cast<WebSocketEndpoint&>(*self).setReading(reading);
    });
  }
  if (paused_ == !reading || phase_ == Phase::Ended) return;
  paused_ = !reading;
  // The pause was ours: it says nothing about the peer.
  lastHeard_ = thread_->now();
  if (phase_ != Phase::Waiting) armReceive();
}

void WebSocketEndpoint::schedule() {
  {
    std::lock_guard lock(mutex_);
    if (scheduled_ || finished_) return;
    scheduled_ = true;
  }
  // All that is posted until this task runs goes out in one send.
  thread_->post([weak = weak_from_this()] {
    const auto self = std::static_pointer_cast<WebSocketEndpoint>(weak.lock());
    if (self && self->phase_ != Phase::Waiting && self->phase_ != Phase::Ended) self->pump();
  });
}

void WebSocketEndpoint::takePosted() {
  std::deque<std::string> posted;
  std::optional<Closing> closing;
  {
    std::lock_guard lock(mutex_);
    scheduled_ = false;
    posted.swap(posted_);
    closing.swap(postedClosing_);
  }
  for (const std::string& text : posted) {
    framing_->queueText(text);
    queuedBytes_ -= text.size();
    framing_->write(output_);
  }
  if (closing) framing_->queueClose(closing->code, closing->reason);
}

void WebSocketEndpoint::pump() {
  if (queuedBytes_ + output_.size() - outputSent_ > limits_.webSocketSendQueue) {
    FRX_LOG_WARN("A WebSocket peer at " + peerHost_ + " does not read; the connection is cut");
    overfull_ = true;
    return end();
  }
  takePosted();
  framing_->write(output_);
  if (phase_ == Phase::Open && framing_->hasWrittenClose()) enter(Phase::Closing);
  if (!flush() || phase_ != Phase::Closing) return;
  // Reading is over after the peer's close frame or an error of its. The peer may still be sending, and
  // closing with bytes unread would reset the connection and could take our close frame with it.
  if (!framing_->isReading()) {
    channel_->shutDownSending();
    enter(Phase::Draining);
  }
}

bool WebSocketEndpoint::flush() {
  const bool isSent = !awaitingWritable_ && sendOutput();
  unsentOutput_.store(output_.size() - outputSent_, std::memory_order_relaxed);
  return isSent;
}

bool WebSocketEndpoint::sendOutput() {
  while (outputSent_ < output_.size()) {
    const ssize_t sent = channel_->sendNow(output_.data() + outputSent_, output_.size() - outputSent_);
    if (sent < 0) return end(), false;
    if (sent == 0) {
      awaitingWritable_ = true;
      output_.erase(0, outputSent_);
      outputSent_ = 0;
      channel_->awaitWritable(shared_from_this());
      return false;
    }
    outputSent_ += static_cast<std::size_t>(sent);
    lastSent_ = thread_->now();
  }
  output_.clear();
  outputSent_ = 0;
  if (output_.capacity() > keptOutput) output_.shrink_to_fit();
  return true;
}

void WebSocketEndpoint::didBecomeWritable() {
  if (phase_ == Phase::Ended) return;
  awaitingWritable_ = false;
  pump();
  armReceive();
}

void WebSocketEndpoint::didFail() { end(); }

void WebSocketEndpoint::sweep(Instant) {
  const bool closing = phase_ == Phase::Closing || phase_ == Phase::Draining;
  if (closing && thread_->hasExpired(phaseSince_, limits_.webSocketCloseTimeout)) return end();
  if (awaitingWritable_ && thread_->hasExpired(lastSent_, limits_.bodyTimeout)) return end();
  if (paused_) return;
  if (thread_->hasExpired(lastHeard_, limits_.webSocketIdleTimeout)) return end();
  if (phase_ == Phase::Open && !pinged_ &&
      thread_->hasExpired(lastHeard_, limits_.webSocketIdleTimeout / 2)) {
    pinged_ = true;
    framing_->queuePing();
    pump();
  }
}

void WebSocketEndpoint::abort() {
  // Nobody waits for the peer's answer any more, but it is told that this side goes (RFC 6455 section 7.4.1),
  // behind what was sent to it before, as far as the socket takes it at once.
  constexpr std::uint16_t goingAway = 1001;
  if (phase_ == Phase::Open) {
    takePosted();
    framing_->queueClose(goingAway, {});
    framing_->write(output_);
    if (flush()) channel_->shutDownSending();
  }
  end();
}

void WebSocketEndpoint::end() {
  if (phase_ == Phase::Ended) return;
  phase_ = Phase::Ended;
  const auto self = shared_from_this();
  {
    std::lock_guard lock(mutex_);
    finished_ = true;
    posted_.clear();
  }
  if (channel_) channel_->close();
  thread_->release(*this);
  tellListener([this](WebSocketListener& listener) { listener.webSocketDidClose(*socket_); });
  // The endpoint and its WebSocket hold each other until here.
  socket_.reset();
  keepAlive_.reset();
}

}  // namespace ferrox
