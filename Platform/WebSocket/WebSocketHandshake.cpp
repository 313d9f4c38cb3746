#include "Platform/WebSocket/WebSocketHandshake.h"

#include <openssl/evp.h>

#include <array>

namespace ferrox {

std::string webSocketAcceptKey(std::string_view key) {
  std::string text(key);
  text.append("258EAFA5-E914-47DA-95CA-C5AB0DC85B11");
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha1(), nullptr) != 1) return {};
  std::array<unsigned char, 64> encoded{};
  const int length = EVP_EncodeBlock(encoded.data(), digest.data(), static_cast<int>(size));
  return std::string(reinterpret_cast<const char*>(encoded.data()), static_cast<std::size_t>(length));
}

}  // namespace ferrox
