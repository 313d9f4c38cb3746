#include "Platform/Base/Utf8.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace ferrox {
namespace {

unsigned byteAt(std::string_view text, std::size_t index) { return static_cast<unsigned char>(text[index]); }

/// How many bytes from `position` are surely ASCII; a multiple of 8.
std::size_t plainBytes(std::string_view text, std::size_t position) {
  constexpr std::uint64_t highBits = 0x8080808080808080;
  std::size_t count = 0;
  for (std::uint64_t word = 0; text.size() - position - count >= sizeof(word); count += sizeof(word)) {
    std::memcpy(&word, text.data() + position + count, sizeof(word));
    if ((word & highBits) != 0) break;
  }
  return count;
}

}  // namespace

std::optional<char32_t> nextCharacter(std::string_view utf8, std::size_t& position) {
  const std::size_t start = position++;
  const unsigned lead = byteAt(utf8, start);
  if (lead < 0x80) return static_cast<char32_t>(lead);
  if (lead < 0xc2 || lead > 0xf4) return std::nullopt;
  const std::size_t trail = lead < 0xe0 ? 1 : lead < 0xf0 ? 2 : 3;
  if (utf8.size() - start <= trail) return std::nullopt;
  char32_t character = lead & (0x3fU >> trail);
  for (std::size_t i = 1; i <= trail; ++i) {
    const unsigned byte = byteAt(utf8, start + i);
    if ((byte & 0xc0) != 0x80) return std::nullopt;
    character = character << 6 | (byte & 0x3f);
  }
  constexpr std::array<char32_t, 4> smallest = {0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = character >= 0xd800 && character <= 0xdfff;
  if (character < smallest[trail] || character > 0x10ffff || isSurrogate) return std::nullopt;
  position = start + 1 + trail;
  return character;
}

bool isUtf8(std::string_view bytes) {
  for (std::size_t position = plainBytes(bytes, 0); position < bytes.size();) {
    // ASCII is most of what is checked.
    if (byteAt(bytes, position) < 0x80) {
      ++position;
      position += plainBytes(bytes, position);
    } else if (!nextCharacter(bytes, position)) {
      return false;
    }
  }
  return true;
}

}  // namespace ferrox
