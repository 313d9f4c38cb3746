// Opens a WebSocket to a peer as peers do, asks for one heartbeat, and takes leave.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "Apps/ferrox/Doctor/Attempt.h"
#include "Apps/ferrox/Doctor/ClockDifference.h"
#include "Classes/Discovery/FRXPeerAddress.h"
#include "Platform/WebSocket/WebSocketClient.h"

namespace ferrox {
class HostNameResolver;
class RunLoop;
class Timer;
}  // namespace ferrox

namespace ferrox::command {

/// Says who it is, but not where it can be reached, so that the peer neither adopts it nor dials back.
/// Thread: the loop's
class SocketTrial final : public WebSocketClientDelegate, public std::enable_shared_from_this<SocketTrial> {
 public:
  SocketTrial(RunLoop& loop, HostNameResolver& resolver, FRXPeerAddress address);
  ~SocketTrial() override;

  /// Both attempts together end within `patience`, and the leave within another second.
  void begin(std::chrono::milliseconds patience);
  bool isOver() const { return over_; }

  /// The opening handshake.
  const Attempt& opening() const { return opening_; }
  /// Not made where the socket did not open.
  const Attempt& heartbeat() const { return heartbeat_; }
  /// By the time in the peer's heartbeat.
  const std::optional<ClockDifference>& clock() const { return clock_; }

  void webSocketDidOpen(WebSocketClient& socket) override;
  void webSocketDidFailWithError(WebSocketClient& socket, const FRXError& error) override;
  void webSocketDidCloseWithCode(WebSocketClient& socket, int code, const std::string& reason,
                                 bool wasClean) override;
  void webSocketDidReceiveMessage(WebSocketClient& socket, std::string_view text) override;

 private:
  void runOutOfTime(std::chrono::milliseconds patience);
  void endWith(const std::string& problem);

  RunLoop& loop_;
  HostNameResolver& resolver_;
  const FRXPeerAddress address_;
  std::shared_ptr<WebSocketClient> client_;
  std::unique_ptr<Timer> timer_;
  Attempt opening_;
  Attempt heartbeat_;
  WallTime asked_{};
  std::optional<ClockDifference> clock_;
  bool over_ = false;
};

}  // namespace ferrox::command
