// The client's side of one WebSocket over a connected channel: handshake, messages, closing handshake.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Base/FRXError.h"
#include "Platform/WebSocket/OutgoingQueue.h"
#include "Platform/WebSocket/WebSocketFraming.h"
#include "Platform/WebSocket/WebSocketOpening.h"

namespace ferrox {

class ByteChannel;
struct WebSocketURL;

/// How a socket ended: by an error, or with a close code.
struct WebSocketEnding {
  std::optional<FRXError> error;
  int code = 0;
  std::string reason;
  bool wasClean = false;
  /// The close code with which something the peer sent was refused; 0 when nothing was.
  int refusal = 0;
};

/// Told about one session, while it is being called.
class WebSocketClientSessionListener {
 public:
  virtual ~WebSocketClientSessionListener() = default;
  virtual void sessionDidOpen() = 0;
  virtual void sessionDidReceiveText(std::string_view text) = 0;
  /// From now on the peer has the close time-out.
  virtual void sessionDidStartClosing() = 0;
  /// Exactly once.
  virtual void sessionDidEnd(WebSocketEnding ending) = 0;
};

/// Knows neither threads nor clocks: its owner calls it when the channel is ready or a deadline has passed.
/// Thread: one at a time
class WebSocketClientSession {
 public:
  struct Limits {
    std::size_t message;
    std::size_t sendQueue;
  };

  WebSocketClientSession(ByteChannel& channel, const WebSocketURL& url, Limits limits,
                         WebSocketClientSessionListener& listener);

  /// Sends the handshake.
  void start();
  /// `space` is where received bytes are put. Whether there were any.
  bool channelIsReadable(std::span<char> space);
  void channelIsWritable();
  /// Whatever the peer owed has not come in time.
  void deadlinePassed();

  /// Frames for the peer, ready as they are. With `closes` the last one is a close frame. Dropped unless
  /// open.
  void enqueue(OutgoingQueue::Bytes bytes, std::size_t begin, std::size_t end, bool closes);
  /// Sends what is queued, unless the channel is known to take nothing.
  void flush();
  void ping();
  /// A peer that must wait until its texts are taken is not read meanwhile.
  void setReading(bool reading);
  /// Ends it, with nothing said to the peer.
  void fail(FRXError error);
  void failFull();

  bool isOpen() const { return phase_ == Phase::Open; }
  /// The channel is of no more use.
  bool isDone() const { return phase_ == Phase::Done; }
  bool isReading() const { return reading_; }
  std::size_t unsentBytes() const { return output_.size(); }

 private:
  enum class Phase { Opening, Open, Closing, Draining, Done };

  void read(std::string_view bytes);
  void readAnswer(std::string_view bytes);
  void takeAnswers();
  void channelEnded(int error);
  void settle();
  void drain();
  void end(WebSocketEnding ending);
  void awaitChannel();

  ByteChannel& channel_;
  const Limits limits_;
  WebSocketClientSessionListener& listener_;
  std::optional<WebSocketOpening> opening_;
  WebSocketFraming framing_;
  OutgoingQueue output_;
  Phase phase_ = Phase::Opening;
  bool reading_ = true;
  bool blocked_ = false;
  bool ended_ = false;
  bool closingToldOf_ = false;
};

}  // namespace ferrox
