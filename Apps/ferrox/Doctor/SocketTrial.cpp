#include "Apps/ferrox/Doctor/SocketTrial.h"

#include <fmt/format.h>

#include <utility>

#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox::command {
namespace {

constexpr const char* doctorId = "FERROX-DOCTOR";

std::string socketURL(const FRXPeerAddress& address) {
  std::string url = address.url("/frxsocket?id=");
  return url.replace(0, std::string_view("http").size(), "ws") + doctorId;
}

WebSocketClientRequest requestFor(const FRXPeerAddress& address, std::chrono::milliseconds patience) {
  WebSocketClientRequest request;
  request.url = socketURL(address);
  request.connectTimeout = patience;
  request.closeTimeout = std::chrono::seconds(1);
  request.maxMessage = std::size_t{64} << 10;
  return request;
}

std::string heartbeatText() {
  const FRXWebsocketMessage message(FRXMessageType::FRXMessageTypeHeartbeat, std::nullopt, std::nullopt,
                                    std::nullopt, std::chrono::system_clock::now(), doctorId, 0, "");
  return message.toJson().value_or("");
}

}  // namespace

SocketTrial::SocketTrial(RunLoop& loop, HostNameResolver& resolver, FRXPeerAddress address)
    : loop_(loop), resolver_(resolver), address_(std::move(address)) {}

SocketTrial::~SocketTrial() = default;

void SocketTrial::begin(std::chrono::milliseconds patience) {
  opening_.begin();
  FRXError error;
  client_ = WebSocketClient::make(requestFor(address_, patience), resolver_, loop_, &error);
  if (!client_) return endWith(error.localizedDescription);
  client_->setDelegate(weak_from_this());
  timer_ = Timer::scheduleOnce(loop_, patience, [weak = weak_from_this(), patience] {
    if (const auto self = weak.lock()) self->runOutOfTime(patience);
  });
  client_->open();
}

void SocketTrial::webSocketDidOpen(WebSocketClient& socket) {
  opening_.succeed();
  heartbeat_.begin();
  asked_ = wallTimeNow();
  socket.send(heartbeatText());
}

void SocketTrial::webSocketDidReceiveMessage(WebSocketClient& socket, std::string_view text) {
  const WallTime answered = wallTimeNow();
  if (heartbeat_.isOver()) return;
  const auto message = FRXWebsocketMessage::fromJson(text);
  if (!message || message->messageType() != FRXMessageType::FRXMessageTypeHeartbeat) return;
  heartbeat_.succeed();
  if (const auto stamp = std::chrono::floor<std::chrono::milliseconds>(message->timestamp());
      stamp != WallTime()) {  // as it is when the message has none
    clock_ = ClockDifference::between(stamp, std::chrono::milliseconds(1), asked_, answered);
  }
  socket.close();
}

void SocketTrial::runOutOfTime(std::chrono::milliseconds patience) {
  const std::string problem =
      fmt::format("no answer within {} s", std::chrono::duration<double>(patience).count());
  heartbeat_.fail(problem);
  client_->close();
  if (!opening_.isOver()) endWith(problem);
}

void SocketTrial::webSocketDidFailWithError(WebSocketClient&, const FRXError& error) {
  endWith(error.localizedDescription);
}

void SocketTrial::webSocketDidCloseWithCode(WebSocketClient&, int code, const std::string&, bool) {
  endWith(fmt::format("closed with code {}", code));
}

// What has ended already stays as it ended.
void SocketTrial::endWith(const std::string& problem) {
  opening_.fail(problem);
  heartbeat_.fail(problem);
  timer_.reset();
  over_ = true;
}

}  // namespace ferrox::command
