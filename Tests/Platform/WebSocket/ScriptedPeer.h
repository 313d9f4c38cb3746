// The server's side of a WebSocket, byte by byte in the hands of a test.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/WebSocket/WebSocketHandshake.h"
#include "Tests/Support/ScriptedHTTPServer.h"

namespace ferrox::test {

/// A frame as a server sends it. `opcode` with the final bit, for example 0x81.
inline std::string frameOf(int firstByte, std::string_view payload) {
  std::string frame(1, static_cast<char>(firstByte));
  const std::size_t size = payload.size();
  if (size < 126) {
    frame += static_cast<char>(size);
  } else if (size < 65536) {
    frame += {static_cast<char>(126), static_cast<char>(size >> 8), static_cast<char>(size & 255)};
  } else {
    frame += static_cast<char>(127);
    for (int shift = 56; shift >= 0; shift -= 8) frame += static_cast<char>((size >> shift) & 255);
  }
  return frame.append(payload);
}

inline std::string textFrame(std::string_view text) { return frameOf(0x81, text); }
inline std::string closeFrame(int code, std::string_view reason = {}) {
  return frameOf(0x88,
                 std::string{static_cast<char>(code >> 8), static_cast<char>(code & 255)}.append(reason));
}

struct ClientFrame {
  int firstByte = 0;
  std::string key;
  std::string payload;

  int opcode() const { return firstByte & 15; }
  int closeCode() const {
    if (payload.size() < 2) return 0;
    return static_cast<unsigned char>(payload[0]) * 256 + static_cast<unsigned char>(payload[1]);
  }
};

/// Takes one frame off the beginning of `bytes`; nothing when it is not whole or not masked.
inline std::optional<ClientFrame> takeFrame(std::string& bytes) {
  const auto byteAt = [&bytes](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
  if (bytes.size() < 6 || (byteAt(1) & 0x80) == 0) return std::nullopt;
  std::size_t size = byteAt(1) & 0x7FU, header = 2;
  const std::size_t lengthBytes = size < 126 ? 0 : size == 126 ? 2 : 8;
  if (lengthBytes > 0) size = 0;
  if (bytes.size() < header + lengthBytes + 4) return std::nullopt;
  for (std::size_t i = 0; i < lengthBytes; ++i) size = size * 256 + byteAt(header++);
  ClientFrame frame{byteAt(0), bytes.substr(header, 4), {}};
  header += 4;
  if (bytes.size() < header + size) return std::nullopt;
  frame.payload = bytes.substr(header, size);
  for (std::size_t i = 0; i < size; ++i) {
    frame.payload[i] = static_cast<char>(frame.payload[i] ^ frame.key[i % 4]);
  }
  bytes.erase(0, header + size);
  return frame;
}

class ScriptedPeer {
 public:
  explicit ScriptedPeer(ScriptedConnection& connection) : connection_(connection) {}

  /// The answer that the client's handshake deserves.
  static std::string answerTo(const std::string& request) {
    const std::string name = "Sec-WebSocket-Key: ";
    const std::size_t at = request.find(name) + name.size();
    return "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
           "Sec-WebSocket-Accept: " +
           webSocketAcceptKey(request.substr(at, request.find('\r', at) - at)) + "\r\n\r\n";
  }
  /// Completes the handshake; `behind` leaves together with the answer.
  void accept(const std::string& behind = {}) {
    request = connection_.readRequest();
    connection_.send(answerTo(request) + behind);
  }
  /// The next frame; nothing when the client has gone.
  std::optional<ClientFrame> readFrame() {
    while (true) {
      if (auto frame = takeFrame(unread_)) return frame;
      const std::string more = connection_.readOnce();
      if (more.empty()) return std::nullopt;
      unread_.append(more);
    }
  }
  bool send(std::string_view bytes) { return connection_.send(bytes); }
  /// Reads until the client closes its side.
  void waitForEnd() { connection_.stall(); }

  std::string request;

 private:
  ScriptedConnection& connection_;
  std::string unread_;
};

}  // namespace ferrox::test
