// WebSocket frames as bytes, for a client that sends exactly what a test wants.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "Tests/Support/RawSocket.h"

namespace ferrox::test {

struct Frame {
  int opcode = -1;
  bool final = false;
  std::string payload;
  int closeCode() const {
    return payload.size() < 2
               ? 0
               : static_cast<unsigned char>(payload[0]) * 256 + static_cast<unsigned char>(payload[1]);
  }
};

/// A client's frame; `firstByte` holds opcode and flags.
inline std::string masked(int firstByte, const std::string& payload) {
  std::string frame(1, static_cast<char>(firstByte));
  const std::size_t size = payload.size();
  if (size < 126) {
    frame += static_cast<char>(0x80 | size);
  } else if (size < 65536) {
    frame += {static_cast<char>(0xFE), static_cast<char>(size >> 8), static_cast<char>(size & 255)};
  } else {
    frame += static_cast<char>(0xFF);
    for (int shift = 56; shift >= 0; shift -= 8) frame += static_cast<char>((size >> shift) & 255);
  }
  const char key[] = {0x11, 0x22, 0x33, 0x44};
  frame.append(key, 4);
  for (std::size_t i = 0; i < size; ++i) frame += static_cast<char>(payload[i] ^ key[i % 4]);
  return frame;
}

inline std::string textFrame(const std::string& text) { return masked(0x81, text); }
inline std::string closeFrame(int code) {
  return masked(0x88, {static_cast<char>(code >> 8), static_cast<char>(code & 255)});
}

/// The next frame of a server.
inline std::optional<Frame> readFrame(RawSocket& client) {
  const std::string head = client.read(2);
  if (head.size() < 2) return std::nullopt;
  Frame frame;
  frame.opcode = head[0] & 15;
  frame.final = (head[0] & 0x80) != 0;
  std::size_t size = static_cast<unsigned char>(head[1]);
  EXPECT_LT(size, 128U) << "a server's frames are not masked";
  if (size >= 126) {
    const std::string more = client.read(size == 126 ? 2 : 8);
    size = 0;
    for (const char c : more) size = size * 256 + static_cast<unsigned char>(c);
  }
  frame.payload = client.read(size);
  if (frame.payload.size() != size) return std::nullopt;
  return frame;
}

}  // namespace ferrox::test
