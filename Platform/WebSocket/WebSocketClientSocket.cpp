#include "Platform/WebSocket/WebSocketClientSocket.h"

#include <cassert>
#include <exception>
#include <typeinfo>
#include <utility>

#include "Platform/Base/Utf8.h"
#include "Platform/Log/Log.h"
#include "Platform/Net/HostConnector.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox {
namespace {

constexpr int abnormalClosure = 1006;

// A peer ends the connection over a text that is not UTF-8, so it must not leave.
bool isSendable(std::string_view text) {
  if (isUtf8(text)) return true;
  FRX_LOG_WARN("A WebSocket message is dropped: its text is not UTF-8");
  return false;
}

}  // namespace

std::shared_ptr<WebSocketClient> WebSocketClient::make(const WebSocketClientRequest& request,
                                                       HostNameResolver& resolver, RunLoop& mainLoop,
                                                       FRXError* error) {
  auto url = WebSocketURL::parse(request.url, error);
  if (!url) return nullptr;
  return std::make_shared<WebSocketClientSocket>(request, std::move(*url), resolver, mainLoop);
}

std::size_t WebSocketClient::broadcast(std::span<const std::shared_ptr<WebSocketClient>> clients,
                                       std::string_view text) {
  if (!isSendable(text)) return 0;
  std::size_t count = 0;
  OutgoingTurn* framedBy = nullptr;
  OutgoingTurn::Stretch stretch{};
  bool hasOthers = false;
  for (const std::shared_ptr<WebSocketClient>& pointer : clients) {
    if (!pointer) continue;
    WebSocketClient& client = *pointer;
    if (typeid(client) != typeid(WebSocketClientSocket)) {
      hasOthers = true;
      continue;
    }
    auto& socket = static_cast<WebSocketClientSocket&>(client);
    if (socket.state_ != WebSocketReadyState::Open) continue;
    if (socket.turn_.get() != framedBy) {
      framedBy = socket.turn_.get();
      stretch = framedBy->frame(OutgoingTurn::Buffer::Shared, WebSocketOpcode::Text, text);
    }
    framedBy->add(socket.place_, socket.connection_, OutgoingTurn::Buffer::Shared, stretch);
    ++count;
  }
  if (!hasOthers) return count;
  for (const std::shared_ptr<WebSocketClient>& pointer : clients) {
    if (!pointer || dynamic_cast<WebSocketClientSocket*>(pointer.get()) != nullptr) continue;
    if (pointer->send(text)) ++count;
  }
  return count;
}

WebSocketClientSocket::WebSocketClientSocket(const WebSocketClientRequest& request, WebSocketURL url,
                                             HostNameResolver& resolver, RunLoop& mainLoop)
    : turn_(OutgoingTurn::of(mainLoop)),
      request_(request),
      target_(std::move(url)),
      resolver_(resolver),
      mainLoop_(mainLoop) {}

WebSocketClientSocket::~WebSocketClientSocket() {
  if (connector_) connector_->cancel();
  if (!connection_) return;
  connection_->detach();
  // One that is closing still gets its close frame out.
  if (state_ != WebSocketReadyState::Closing || ended_) connection_->abort();
}

void WebSocketClientSocket::open() {
  assert(mainLoop_.isCurrentThread());
  if (opened_ || state_ != WebSocketReadyState::Connecting) return;
  opened_ = true;
  if (request_.dialDelay.count() <= 0) return dial();
  dialTimer_ = Timer::scheduleOnce(mainLoop_, request_.dialDelay, [this] { dial(); });
}

void WebSocketClientSocket::dial() {
  connection_ = std::make_shared<WebSocketClientConnection>(request_, target_, mainLoop_, weak_from_this());
  connection_->startDeadline();
  connector_ =
      HostConnector::start(resolver_, target_.host, target_.port, request_.connectTimeout,
                           [connection = connection_](FileDescriptor socket, std::optional<FRXError> error) {
                             connection->connected(std::move(socket), std::move(error));
                           });
}

void WebSocketClientSocket::stopDialling() {
  dialTimer_.reset();
  if (connector_) connector_->cancel();
  if (connection_) {
    connection_->detach();
    connection_->abort();
  }
}

void WebSocketClientSocket::close(int code, const std::string& reason) {
  assert(mainLoop_.isCurrentThread());
  if (state_ == WebSocketReadyState::Open) {
    state_ = WebSocketReadyState::Closing;
    const auto stretch =
        turn_->frame(OutgoingTurn::Buffer::Single, WebSocketOpcode::Close, closePayload(code, reason));
    turn_->add(place_, connection_, OutgoingTurn::Buffer::Single, stretch);
    turn_->markClosing(place_);
  } else if (state_ == WebSocketReadyState::Connecting && !opened_) {
    state_ = WebSocketReadyState::Closed;
  } else if (state_ == WebSocketReadyState::Connecting) {
    state_ = WebSocketReadyState::Closing;
    ended_ = true;
    stopDialling();
    mainLoop_.post([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->didClose(abnormalClosure, {}, false);
    });
  }
}

bool WebSocketClientSocket::send(std::string_view text) {
  assert(mainLoop_.isCurrentThread());
  if (state_ != WebSocketReadyState::Open || !isSendable(text)) return false;
  const auto stretch = turn_->frame(OutgoingTurn::Buffer::Single, WebSocketOpcode::Text, text);
  turn_->add(place_, connection_, OutgoingTurn::Buffer::Single, stretch);
  return true;
}

void WebSocketClientSocket::checkNow() {
  assert(mainLoop_.isCurrentThread());
  if (state_ == WebSocketReadyState::Open) connection_->checkNow();
}

void WebSocketClientSocket::connectionDidOpen() {
  if (ended_) return;
  connector_.reset();
  state_ = WebSocketReadyState::Open;
  tellDelegate([this](WebSocketClientDelegate& delegate) { delegate.webSocketDidOpen(*this); });
}

void WebSocketClientSocket::connectionDidReceive(const ReceivedTexts& texts) {
  const std::string_view bytes = texts.bytes;
  std::size_t begin = 0;
  for (const std::size_t end : texts.ends) {
    if (state_ != WebSocketReadyState::Open) return;
    const std::string_view text = bytes.substr(begin, end - begin);
    begin = end;
    tellDelegate([this, text](WebSocketClientDelegate& delegate) {
      delegate.webSocketDidReceiveMessage(*this, text);
    });
  }
}

void WebSocketClientSocket::connectionDidEnd(const WebSocketEnding& ending) {
  if (std::exchange(ended_, true)) return;
  refusal_ = ending.refusal;
  if (!ending.error) return didClose(ending.code, ending.reason, ending.wasClean);
  // Our close frame was under way when the connection was lost.
  if (state_ == WebSocketReadyState::Closing) return didClose(abnormalClosure, {}, false);
  state_ = WebSocketReadyState::Closed;
  tellDelegate(
      [&](WebSocketClientDelegate& delegate) { delegate.webSocketDidFailWithError(*this, *ending.error); });
}

void WebSocketClientSocket::didClose(int code, const std::string& reason, bool wasClean) {
  state_ = WebSocketReadyState::Closed;
  tellDelegate([&](WebSocketClientDelegate& delegate) {
    delegate.webSocketDidCloseWithCode(*this, code, reason, wasClean);
  });
}

template <typename Tell>
void WebSocketClientSocket::tellDelegate(const Tell& tell) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  try {
    tell(*delegate);
  } catch (const std::exception& failure) {
    FRX_LOG_ERROR(std::string("A WebSocket delegate failed: ") + failure.what());
  } catch (...) {
    FRX_LOG_ERROR("A WebSocket delegate failed");
  }
}

}  // namespace ferrox
