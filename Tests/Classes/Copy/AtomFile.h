// Small files of atoms, made by hand.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ferrox::test {

inline std::string bigEndianBytes(std::uint64_t value, int count) {
  std::string bytes;
  for (int shift = (count - 1) * 8; shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<char>(value >> shift & 0xff));
  }
  return bytes;
}

/// A header that tells any size, true or not.
inline std::string atomHeader(std::uint32_t size, std::string_view type) {
  return bigEndianBytes(size, 4) + std::string(type);
}
inline std::string extendedAtomHeader(std::uint64_t size, std::string_view type) {
  return atomHeader(1, type) + bigEndianBytes(size, 8);
}

inline std::string filling(std::size_t size, char first = 'A') {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(first + static_cast<char>(i % 23));
  return bytes;
}

inline std::string atom(std::string_view type, std::size_t payload) {
  return atomHeader(static_cast<std::uint32_t>(payload + 8), type) + filling(payload);
}
inline std::string extendedAtom(std::string_view type, std::size_t payload) {
  return extendedAtomHeader(payload + 16, type) + filling(payload);
}

}  // namespace ferrox::test
