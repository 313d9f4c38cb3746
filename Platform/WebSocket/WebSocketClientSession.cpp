#include "Platform/WebSocket/WebSocketClientSession.h"

#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include "Platform/WebSocket/ByteChannel.h"
#include "Platform/WebSocket/WebSocketClient.h"

namespace ferrox {
namespace {

constexpr int abnormalClosure = 1006;

FRXError clientError(int code, std::string text) {
  return {WebSocketClientErrorDomain, code, std::move(text)};
}

}  // namespace

WebSocketClientSession::WebSocketClientSession(ByteChannel& channel, const WebSocketURL& url, Limits limits,
                                               WebSocketClientSessionListener& listener)
    : channel_(channel),
      limits_(limits),
      listener_(listener),
      opening_(std::in_place, url),
      framing_(WebSocketFraming::Role::Client, limits.message, [this](std::string_view text) {
        if (phase_ == Phase::Open) listener_.sessionDidReceiveText(text);
      }) {}

void WebSocketClientSession::start() {
  auto request = std::make_shared<const std::string>(opening_->request());
  const std::size_t size = request->size();
  output_.append(std::move(request), 0, size);
  flush();
}

bool WebSocketClientSession::channelIsReadable(std::span<char> space) {
  if (isDone()) return false;
  const ssize_t count = channel_.receive(space);
  if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return false;
  if (count == 0 && phase_ == Phase::Closing && framing_.hasReceivedClose()) {
    // All that the peer had to say has come; it may still take what is queued here, the answer to its close
    // frame at the end.
    setReading(false);
    return false;
  }
  if (count <= 0) return channelEnded(count < 0 ? errno : 0), false;
  read({space.data(), static_cast<std::size_t>(count)});
  flush();
  return true;
}

void WebSocketClientSession::read(std::string_view bytes) {
  switch (phase_) {
    case Phase::Opening:
      return readAnswer(bytes);
    case Phase::Open:
    case Phase::Closing:
      framing_.read(bytes);
      return takeAnswers();
    case Phase::Draining:
    case Phase::Done:
      return;
  }
}

void WebSocketClientSession::readAnswer(std::string_view bytes) {
  switch (opening_->read(bytes)) {
    case WebSocketOpening::State::NeedMore:
      return;
    case WebSocketOpening::State::Refused:
      return fail(clientError(WebSocketClientErrorHandshake, opening_->refusal()));
    case WebSocketOpening::State::Accepted:
      break;
  }
  phase_ = Phase::Open;
  const std::string rest(opening_->rest());
  opening_.reset();
  listener_.sessionDidOpen();
  if (rest.empty()) return;
  framing_.read(rest);
  takeAnswers();
}

// Pongs and close frames take their place behind what is queued already.
void WebSocketClientSession::takeAnswers() {
  if (isDone()) return;
  std::string answers;
  framing_.write(answers);
  const std::size_t size = answers.size();
  if (size > 0) output_.append(std::make_shared<const std::string>(std::move(answers)), 0, size);
  if (phase_ == Phase::Open && (framing_.hasWrittenClose() || !framing_.isReading())) phase_ = Phase::Closing;
  if (phase_ == Phase::Closing && !std::exchange(closingToldOf_, true)) listener_.sessionDidStartClosing();
}

void WebSocketClientSession::enqueue(OutgoingQueue::Bytes bytes, std::size_t begin, std::size_t end,
                                     bool closes) {
  if (phase_ != Phase::Open) return;
  output_.append(std::move(bytes), begin, end);
  if (!closes) return;
  framing_.stopWriting();
  phase_ = Phase::Closing;
  if (!std::exchange(closingToldOf_, true)) listener_.sessionDidStartClosing();
}

void WebSocketClientSession::flush() {
  if (isDone()) return;
  if (!blocked_ && !output_.empty()) {
    const OutgoingQueue::Outcome outcome = output_.sendTo(channel_);
    if (outcome.error != 0) return channelEnded(outcome.error);
    blocked_ = !output_.empty();
  }
  if (output_.size() > limits_.sendQueue) return failFull();
  settle();
}

void WebSocketClientSession::channelIsWritable() {
  if (!blocked_) return;
  blocked_ = false;
  flush();
}

// The closing handshake is over when our close frame has left and the peer's has come, or never will.
void WebSocketClientSession::settle() {
  if (phase_ == Phase::Closing && output_.empty() && !framing_.isReading()) {
    if (framing_.hasReceivedClose()) {
      end({std::nullopt, framing_.closeCode(), framing_.closeReason(), true});
    } else {
      end({std::nullopt, framing_.refusal(), {}, false});
    }
    drain();
  }
  awaitChannel();
}

// The server ends the connection first (RFC 6455 section 7.1.1). It may still be sending, and closing with
// bytes unread would reset the connection and could take our close frame with it.
void WebSocketClientSession::drain() {
  phase_ = Phase::Draining;
  reading_ = true;
  if (!framing_.hasReceivedClose()) channel_.shutDownSending();
}

void WebSocketClientSession::channelEnded(int error) {
  const std::string why =
      error == 0 ? "The peer ended the connection" : std::generic_category().message(error);
  const Phase phase = phase_;
  phase_ = Phase::Done;
  if (phase == Phase::Closing) {
    return end({std::nullopt, framing_.hasReceivedClose() ? framing_.closeCode() : abnormalClosure,
                framing_.closeReason(), false});
  }
  const int code =
      phase == Phase::Opening ? WebSocketClientErrorHandshake : WebSocketClientErrorConnectionLost;
  end({clientError(code, why), 0, {}, false});
}

void WebSocketClientSession::deadlinePassed() {
  const Phase phase = phase_;
  phase_ = Phase::Done;
  if (phase == Phase::Opening) {
    return end({clientError(WebSocketClientErrorTimedOut, "The handshake timed out"), 0, {}, false});
  }
  end({std::nullopt, framing_.hasReceivedClose() ? framing_.closeCode() : abnormalClosure,
       framing_.closeReason(), false});
}

void WebSocketClientSession::failFull() {
  fail(clientError(WebSocketClientErrorSendQueueFull, "The peer does not read: its send queue is full"));
}

void WebSocketClientSession::fail(FRXError error) {
  phase_ = Phase::Done;
  end({std::move(error), 0, {}, false});
}

void WebSocketClientSession::end(WebSocketEnding ending) {
  if (std::exchange(ended_, true)) return;
  ending.refusal = framing_.refusal();
  listener_.sessionDidEnd(std::move(ending));
}

void WebSocketClientSession::ping() {
  if (phase_ != Phase::Open) return;
  framing_.queuePing();
  takeAnswers();
  flush();
}

void WebSocketClientSession::setReading(bool reading) {
  reading_ = reading;
  if (!isDone()) awaitChannel();
}

void WebSocketClientSession::awaitChannel() {
  if (!isDone()) channel_.await(reading_, blocked_);
}

}  // namespace ferrox
