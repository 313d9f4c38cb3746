#include "Platform/WebSocket/WebSocketFrame.h"

#include <cstring>

#include "Platform/Base/Utf8.h"

namespace ferrox {
namespace {

constexpr std::size_t maxHeader = 14;
constexpr std::size_t maxReason = 123;

std::string_view cutAtCharacter(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  return text.substr(0, limit);
}

/// Without a masking key.
std::size_t writeHeader(unsigned char* to, WebSocketOpcode opcode, std::size_t payloadSize, bool isMasked) {
  constexpr unsigned char final = 0x80;
  const unsigned char masked = isMasked ? 0x80 : 0;
  std::size_t used = 0;
  to[used++] = static_cast<unsigned char>(final | static_cast<unsigned char>(opcode));
  std::size_t lengthBytes = 0;
  if (payloadSize < 126) {
    to[used++] = static_cast<unsigned char>(masked | payloadSize);
  } else {
    lengthBytes = payloadSize < 65536 ? 2 : 8;
    to[used++] = static_cast<unsigned char>(masked | (lengthBytes == 2 ? 126 : 127));
  }
  for (std::size_t i = lengthBytes; i > 0; --i) {
    to[used++] = static_cast<unsigned char>(payloadSize >> ((i - 1) * 8));
  }
  return used;
}

}  // namespace

bool isSendableCloseCode(int code) {
  const bool ofTheProtocol = (code >= 1000 && code <= 1003) || (code >= 1007 && code <= 1014);
  return ofTheProtocol || (code >= 3000 && code <= 4999);
}

std::string closePayload(int code, std::string_view reason) {
  if (!isSendableCloseCode(code)) return {};
  std::string payload{static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
  if (isUtf8(reason)) payload.append(cutAtCharacter(reason, maxReason));
  return payload;
}

void copyMasked(char* to, const char* from, std::size_t count, MaskingKey key) {
  std::uint32_t half = 0;
  std::memcpy(&half, key.data(), sizeof(half));
  const std::uint64_t whole = std::uint64_t{half} << 32 | half;
  // Four words a round, which compilers turn into vector instructions.
  constexpr std::size_t words = 4;
  constexpr std::size_t round = words * sizeof(std::uint64_t);
  std::size_t done = 0;
  for (; done + round <= count; done += round) {
    std::uint64_t block[words];
    std::memcpy(block, from + done, round);
    for (std::uint64_t& word : block) word ^= whole;
    std::memcpy(to + done, block, round);
  }
  for (; done < count; ++done) to[done] = static_cast<char>(from[done] ^ static_cast<char>(key[done % 4]));
}

void appendFrame(std::string& to, WebSocketOpcode opcode, std::string_view payload) {
  unsigned char header[maxHeader];
  const std::size_t headerSize = writeHeader(header, opcode, payload.size(), false);
  to.append(reinterpret_cast<const char*>(header), headerSize).append(payload);
}

void appendMaskedFrame(std::string& to, WebSocketOpcode opcode, std::string_view payload, MaskingKey key) {
  unsigned char header[maxHeader];
  std::size_t headerSize = writeHeader(header, opcode, payload.size(), true);
  std::memcpy(header + headerSize, key.data(), key.size());
  headerSize += key.size();
  const std::size_t start = to.size();
  to.resize(start + headerSize + payload.size());
  std::memcpy(to.data() + start, header, headerSize);
  copyMasked(to.data() + start + headerSize, payload.data(), payload.size(), key);
}

}  // namespace ferrox
