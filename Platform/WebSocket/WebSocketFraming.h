// The framing of one WebSocket (RFC 6455 section 5) for either role. It sees bytes only, never a socket.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

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
  ~WebSocketFraming();
  WebSocketFraming(const WebSocketFraming&) = delete;
  WebSocketFraming& operator=(const WebSocketFraming&) = delete;

  /// Takes what the peer sent, in pieces of any size; ignored once nothing is read any more.
  void read(std::string_view bytes);

  void queueText(std::string_view text);
  void queuePing();
  /// A code that may not be sent becomes none. Nothing after the first close frame.
  void queueClose(int code, std::string_view reason);
  /// Whoever writes frames beside this one has written its close frame: nothing more is queued, no answer
  /// either.
  void stopWriting();
  /// Appends the frames queued so far. False when there is no memory for it.
  [[nodiscard]] bool write(std::string& output);

  /// Until the peer's close frame, or something that was refused.
  bool isReading() const;
  /// A close frame of ours has left `write`.
  bool hasWrittenClose() const { return closeWritten_; }
  bool hasReceivedClose() const { return closeReceived_; }
  /// Of the peer's close frame; 1005 when it gave none.
  std::uint16_t closeCode() const { return closeCode_; }
  std::string closeReason() const;
  /// The code with which something was refused, 0 while nothing was.
  std::uint16_t refusal() const { return refusal_; }

 private:
  struct Library;

  void frameStarts(std::uint8_t opcode, std::uint64_t size);
  void chunkArrives(std::string_view bytes);
  void frameEnds();
  void refuse(std::uint16_t code);
  void receivedClose(std::uint16_t code);
  void receivedText();
  void readFailed();

  const Role role_;
  const std::size_t maxMessage_;
  const TextSink onText_;
  std::unique_ptr<Library> library_;
  std::string_view input_;
  std::string* output_ = nullptr;
  std::string message_;
  /// A close frame made by hand.
  std::string lastFrame_;
  bool insideControlFrame_ = false;
  bool insideCloseFrame_ = false;
  bool closeQueued_ = false;
  bool closeReceived_ = false;
  bool closeWritten_ = false;
  std::uint16_t closeCode_ = 0;
  std::uint16_t refusal_ = 0;
  std::string closePayload_;
};

}  // namespace ferrox
