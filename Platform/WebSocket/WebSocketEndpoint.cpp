#include "Platform/WebSocket/WebSocketEndpoint.h"

#include <wslay/wslay.h>

#include <algorithm>
#include <cstring>

#include "Platform/HTTP/Server/NetworkThread.h"
#include "Platform/HTTP/Server/SocketChannel.h"
#include "Platform/Log/Log.h"

namespace ferrox {

namespace {

constexpr std::size_t inputSize = 16 * 1024;
constexpr std::size_t keptOutput = 64 * 1024;
constexpr std::size_t maxReason = 122;  // what the framing library takes; the protocol's own limit is 123

}  // namespace

/// The framing library with its callbacks. It sees bytes only, never the socket.
struct WebSocketEndpoint::Framing {
  explicit Framing(WebSocketEndpoint& owner, std::size_t maxMessage) : endpoint(owner), limit(maxMessage) {
    wslay_event_callbacks callbacks{};
    callbacks.recv_callback = &take;
    callbacks.send_callback = &give;
    callbacks.on_frame_recv_start_callback = &frameStarts;
    callbacks.on_frame_recv_chunk_callback = &chunkArrives;
    callbacks.on_msg_recv_callback = &messageEnds;
    if (wslay_event_context_server_init(&context, &callbacks, this) != 0) throw std::bad_alloc();
    // Unbuffered: the library keeps a list node for each fragment, which a peer can multiply at will.
    wslay_event_config_set_no_buffering(context, 1);
    wslay_event_config_set_max_recv_msg_length(context, limit);
  }
  ~Framing() { wslay_event_context_free(context); }
  Framing(const Framing&) = delete;
  Framing& operator=(const Framing&) = delete;

  static ssize_t take(wslay_event_context_ptr context, std::uint8_t* to, std::size_t count, int, void* self) {
    std::string_view& input = static_cast<Framing*>(self)->input;
    if (input.empty()) {
      wslay_event_set_error(context, WSLAY_ERR_WOULDBLOCK);
      return -1;
    }
    const std::size_t taken = std::min(count, input.size());
    std::memcpy(to, input.data(), taken);
    input.remove_prefix(taken);
    return static_cast<ssize_t>(taken);
  }
  static ssize_t give(wslay_event_context_ptr, const std::uint8_t* from, std::size_t count, int, void* self) {
    static_cast<Framing*>(self)->endpoint.output_.append(reinterpret_cast<const char*>(from), count);
    return static_cast<ssize_t>(count);
  }
  static void frameStarts(wslay_event_context_ptr, const wslay_event_on_frame_recv_start_arg* frame,
                          void* self) {
    auto& framing = *static_cast<Framing*>(self);
    framing.controlFrame = wslay_is_ctrl_frame(frame->opcode) != 0;
    // The library takes half a close code for none.
    const bool halfCode = frame->opcode == WSLAY_CONNECTION_CLOSE && frame->payload_length == 1;
    if (halfCode) return framing.endpoint.fail(WSLAY_CODE_PROTOCOL_ERROR);
    if (framing.controlFrame) return;
    if (frame->opcode == WSLAY_BINARY_FRAME) return framing.endpoint.fail(WSLAY_CODE_UNSUPPORTED_DATA);
    if (frame->payload_length > framing.limit - framing.endpoint.message_.size()) {
      framing.endpoint.fail(WSLAY_CODE_MESSAGE_TOO_BIG);
    }
  }
  static void chunkArrives(wslay_event_context_ptr, const wslay_event_on_frame_recv_chunk_arg* chunk,
                           void* self) {
    auto& framing = *static_cast<Framing*>(self);
    if (framing.controlFrame || framing.failed) return;
    framing.endpoint.message_.append(reinterpret_cast<const char*>(chunk->data), chunk->data_length);
  }
  static void messageEnds(wslay_event_context_ptr, const wslay_event_on_msg_recv_arg* message, void* self) {
    auto& framing = *static_cast<Framing*>(self);
    if (framing.failed || wslay_is_ctrl_frame(message->opcode) != 0) return;
    framing.endpoint.messageEnded(message->opcode == WSLAY_TEXT_FRAME);
  }

  void queue(std::uint8_t opcode, std::string_view payload) const {
    const wslay_event_msg message{opcode, reinterpret_cast<const std::uint8_t*>(payload.data()),
                                  payload.size()};
    // Refused once a close frame is queued: nothing may follow it (RFC 6455 section 5.5.1).
    (void)wslay_event_queue_msg(context, &message);
  }
  void queueClose(std::uint16_t code, std::string_view reason) const {
    (void)wslay_event_queue_close(context, code, reinterpret_cast<const std::uint8_t*>(reason.data()),
                                  std::min(reason.size(), maxReason));
  }

  WebSocketEndpoint& endpoint;
  const std::size_t limit;
  wslay_event_context_ptr context = nullptr;
  std::string_view input;
  bool controlFrame = false;
  bool failed = false;
};

WebSocketEndpoint::WebSocketEndpoint(std::shared_ptr<NetworkThread> thread, const HTTPServerLimits& limits,
                                     const SocketChannel& channel, std::shared_ptr<void> keepAlive)
    : thread_(std::move(thread)),
      limits_(limits),
      peerHost_(channel.peerHost()),
      localPort_(channel.localPort()),
      keepAlive_(std::move(keepAlive)) {}

WebSocketEndpoint::~WebSocketEndpoint() = default;

void WebSocketEndpoint::open(std::unique_ptr<SocketChannel> channel, std::shared_ptr<WebSocket> socket,
                             std::string answer, std::string_view received) {
  framing_ = std::make_unique<Framing>(*this, limits_.webSocketMessage);
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
  consume(behind);
  pump();
  armReceive();
}

void WebSocketEndpoint::enter(Phase phase) {
  phase_ = phase;
  phaseSince_ = thread_->now();
}

void WebSocketEndpoint::armReceive() {
  // A peer that does not take our answers is not read any further.
  if (phase_ == Phase::Ended || awaitingWritable_ || receiving_) return;
  receiving_ = true;
  channel_->receive(input_, shared_from_this());
}

void WebSocketEndpoint::didReceive(std::size_t bytes) {
  receiving_ = false;
  if (phase_ == Phase::Ended) return;
  if (bytes == 0) return end();
  lastHeard_ = thread_->now();
  pinged_ = false;
  if (phase_ != Phase::Draining) {
    consume({input_.data(), bytes});
    pump();
  }
  armReceive();
}

void WebSocketEndpoint::consume(std::string_view bytes) {
  framing_->input = bytes;
  const bool sound = wslay_event_recv(framing_->context) == 0;
  framing_->input = {};
  if (sound) return;
  // The library has queued a close frame without a code; ours, which says what was wrong, takes its place.
  framing_->failed = true;
  wslay_event_shutdown_write(framing_->context);
  output_.append({'\x88', 2, static_cast<char>(WSLAY_CODE_PROTOCOL_ERROR >> 8),
                  static_cast<char>(WSLAY_CODE_PROTOCOL_ERROR & 0xFF)});
  if (phase_ == Phase::Open) enter(Phase::Closing);
}

void WebSocketEndpoint::fail(std::uint16_t code) {
  if (framing_->failed) return;
  framing_->failed = true;
  framing_->queueClose(code, {});
  wslay_event_shutdown_read(framing_->context);
}

void WebSocketEndpoint::messageEnded(bool isText) {
  if (isText && phase_ == Phase::Open) {
    tellListener(
        [this](WebSocketListener& listener) { listener.webSocketDidReceiveMessage(*socket_, message_); });
  }
  message_.clear();
  if (message_.capacity() > keptOutput) message_.shrink_to_fit();
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

void WebSocketEndpoint::sendText(std::string text) {
  {
    std::lock_guard lock(mutex_);
    if (finished_) return;
    queuedBytes_ += text.size();
    posted_.push_back(std::move(text));
  }
  schedule();
}

void WebSocketEndpoint::close(std::uint16_t code, std::string reason) {
  {
    std::lock_guard lock(mutex_);
    if (finished_ || postedClosing_) return;
    postedClosing_ = Closing{code, std::move(reason)};
  }
  schedule();
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
    framing_->queue(WSLAY_TEXT_FRAME, text);
    queuedBytes_ -= text.size();
    if (wslay_event_send(framing_->context) != 0) break;
  }
  if (closing) framing_->queueClose(closing->code, closing->reason);
}

void WebSocketEndpoint::pump() {
  if (queuedBytes_ + output_.size() - outputSent_ > limits_.webSocketSendQueue) {
    FRX_LOG_WARN("A WebSocket peer at " + peerHost_ + " does not read; the connection is cut");
    return end();
  }
  takePosted();
  if (wslay_event_send(framing_->context) != 0) return end();
  if (phase_ == Phase::Open && wslay_event_get_close_sent(framing_->context) != 0) enter(Phase::Closing);
  if (!flush() || phase_ != Phase::Closing) return;
  // Reading is over after the peer's close frame or an error of its. The peer may still be sending, and
  // closing with bytes unread would reset the connection and could take our close frame with it.
  if (wslay_event_get_read_enabled(framing_->context) == 0) {
    channel_->shutDownSending();
    enter(Phase::Draining);
  }
}

bool WebSocketEndpoint::flush() {
  if (awaitingWritable_) return false;
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
  if (thread_->hasExpired(lastHeard_, limits_.webSocketIdleTimeout)) return end();
  if (phase_ == Phase::Open && !pinged_ &&
      thread_->hasExpired(lastHeard_, limits_.webSocketIdleTimeout / 2)) {
    pinged_ = true;
    framing_->queue(WSLAY_PING, {});
    pump();
  }
}

void WebSocketEndpoint::abort() { end(); }

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
