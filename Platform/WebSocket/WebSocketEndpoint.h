// One upgraded connection: framing, control frames, and the way in and out for its WebSocket.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/HTTP/Server/HTTPServerLimits.h"
#include "Platform/HTTP/Server/Session.h"
#include "Platform/WebSocket/WebSocket.h"

namespace ferrox {

class NetworkThread;
class StreamChannel;
class WebSocketFraming;

/// Made before the upgrade is answered, opened afterwards; what is sent before then waits.
/// Thread: network; the WebSocketTransport operations any
class WebSocketEndpoint final : public Session, public WebSocketTransport {
 public:
  /// `keepAlive` is let go when the connection is over.
  WebSocketEndpoint(std::shared_ptr<NetworkThread> thread, const HTTPServerLimits& limits,
                    const StreamChannel& channel, std::shared_ptr<void> keepAlive);
  ~WebSocketEndpoint() override;

  /// `answer` is the 101 response, `received` what the client sent behind its handshake.
  void open(std::unique_ptr<StreamChannel> channel, std::shared_ptr<WebSocket> socket, std::string answer,
            std::string_view received);

  bool sendText(std::string text) override;
  void close(std::uint16_t code, std::string reason) override;
  void setReading(bool reading) override;
  std::string connectedHost() const override { return peerHost_; }
  std::uint16_t localPort() const override { return localPort_; }
  std::size_t unsentBytes() const override { return queuedBytes_ + unsentOutput_; }
  int refusal() const override;
  bool wasOverfull() const override { return overfull_; }

  void didReceive(std::size_t bytes) override;
  void didBecomeWritable() override;
  void didFail() override;
  void sweep(Instant now) override;
  void abort() override;

 private:
  struct Closing {
    std::uint16_t code;
    std::string reason;
  };
  enum class Phase { Waiting, Open, Closing, Draining, Ended };

  void armReceive();
  void receivedText(std::string_view text);
  void takePosted();
  void schedule();
  /// Frames what waits and sends it; ends the connection when both sides are done.
  void pump();
  bool flush();
  bool sendOutput();
  void enter(Phase phase);
  void end();
  void tellListener(const std::function<void(WebSocketListener&)>& tell);

  const std::shared_ptr<NetworkThread> thread_;
  const HTTPServerLimits limits_;
  const std::string peerHost_;
  const std::uint16_t localPort_;
  std::shared_ptr<void> keepAlive_;
  std::unique_ptr<StreamChannel> channel_;
  std::shared_ptr<WebSocket> socket_;
  std::unique_ptr<WebSocketFraming> framing_;
  Phase phase_ = Phase::Waiting;
  Instant phaseSince_;
  Instant lastHeard_;
  Instant lastSent_;
  bool pinged_ = false;
  bool awaitingWritable_ = false;
  bool receiving_ = false;
  bool paused_ = false;
  bool overfull_ = false;
  std::vector<char> input_;
  std::string output_;
  std::size_t outputSent_ = 0;

  std::mutex mutex_;
  std::deque<std::string> posted_;        // guarded by mutex_
  std::optional<Closing> postedClosing_;  // guarded by mutex_
  bool scheduled_ = false;                // guarded by mutex_
  bool finished_ = false;                 // guarded by mutex_
  /// Accepted by `sendText` and not yet framed; and framed, but not yet taken by the system.
  std::atomic<std::size_t> queuedBytes_{0};
  std::atomic<std::size_t> unsentOutput_{0};
};

}  // namespace ferrox
