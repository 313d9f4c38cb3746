// The framing of one WebSocket (RFC 6455 section 5) for either role. It sees bytes only, never a socket.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "Platform/WebSocket/MaskingKeys.h"
#include "Platform/WebSocket/WebSocketFrame.h"

namespace ferrox {

/// Reads the peer's frames into whole texts and writes frames of its own. Pings and the peer's close frame
/// are answered. Of what the peer sends amiss, the first thing is refused with a close frame and nothing is
/// read after it: a binary message with code 1003, one above the limit with 1009, text that is not UTF-8 with
/// 1007, all else with 1002. Nothing follows a close frame.
/// Thread: one at a time
class WebSocketFraming {
 public:
  enum class Role { Server, Client };
  /// The text lives as long as the call.
  using TextSink = std::function<void(std::string_view text)>;

  /// `maxMessage` in bytes. `onText` is called while bytes are read.
  WebSocketFraming(Role role, std::size_t maxMessage, TextSink onText);
  WebSocketFraming(const WebSocketFraming&) = delete;
  WebSocketFraming& operator=(const WebSocketFraming&) = delete;

  /// Takes what the peer sent, in pieces of any size; ignored once nothing is read any more.
  void read(std::string_view bytes);

  void queueText(std::string_view text) { queue(WebSocketOpcode::Text, text); }
  void queuePing() { queue(WebSocketOpcode::Ping, {}); }
  /// A code that may not be sent becomes none. Nothing after the first close frame.
  void queueClose(int code, std::string_view reason) {
    queue(WebSocketOpcode::Close, closePayload(code, reason));
  }
  /// Whoever writes frames beside this one has written its close frame: nothing more is queued, no answer
  /// either.
  void stopWriting();
  /// Appends the frames queued so far.
  void write(std::string& output);

  /// Until the peer's close frame, or something that was refused.
  bool isReading() const { return reading_; }
  /// A close frame of ours has left `write`.
  bool hasWrittenClose() const { return closeWritten_; }
  bool hasReceivedClose() const { return closeReceived_; }
  /// Of the peer's close frame; 1005 when it gave none.
  std::uint16_t closeCode() const { return closeCode_; }
  const std::string& closeReason() const { return closeReason_; }
  /// The code with which something was refused, 0 while nothing was.
  std::uint16_t refusal() const { return refusal_; }

 private:
  static constexpr std::size_t longestHeader = 14;

  std::size_t headerSize() const;
  void readHeader(std::string_view& bytes);
  std::uint16_t judgeHeader() const;
  void beginFrame();
  void readPayload(std::string_view& bytes);
  void endFrame();
  void receivedText();
  void receivedClose(std::string_view payload);
  void refuse(std::uint16_t code);
  void queue(WebSocketOpcode opcode, std::string_view payload);

  const Role role_;
  const std::size_t maxMessage_;
  const TextSink onText_;

  // Of the frame that is being read.
  std::array<unsigned char, longestHeader> header_{};
  std::size_t headerUsed_ = 0;
  MaskingKey key_{};
  std::size_t left_ = 0;
  bool insideFrame_ = false;
  bool isControl_ = false;
  std::string control_;

  std::string message_;
  bool insideMessage_ = false;
  bool reading_ = true;
  std::uint16_t refusal_ = 0;

  std::string output_;
  bool closeQueued_ = false;
  bool closeWritten_ = false;

  bool closeReceived_ = false;
  std::uint16_t closeCode_ = 0;
  std::string closeReason_;
};

}  // namespace ferrox
