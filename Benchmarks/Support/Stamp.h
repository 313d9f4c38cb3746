// The mark inside each text by which the sink knows when it was posted and whether one is missing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>

namespace ferrox::bench {

inline constexpr std::size_t textSize = 500;
inline constexpr char stampMark = '#';
/// The mark, sixteen letters of time, eight of number, one that says whether more follows.
inline constexpr std::size_t stampSize = 1 + 16 + 8 + 1;

inline std::uint64_t nowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<std::uint64_t>(now.tv_nsec);
}

/// Four bits a letter, 'a' to 'p': valid in any text, never escaped in JSON, and cheap to read back.
inline void writeLetters(char* to, std::uint64_t value, std::size_t letters) {
  for (std::size_t i = 0; i < letters; ++i) to[i] = static_cast<char>('a' + (value >> (4 * i) & 15));
}

/// Eight letters in one word, as they stand in memory of a little-endian machine.
inline std::uint32_t readLetters(std::uint64_t word) {
  word -= 0x6161616161616161U;
  word = (word | word >> 4) & 0x00FF00FF00FF00FFU;
  word = (word | word >> 8) & 0x0000FFFF0000FFFFU;
  return static_cast<std::uint32_t>(word | word >> 16);
}

inline void writeStamp(char* to, std::uint32_t number, bool last) {
  to[0] = stampMark;
  writeLetters(to + 1, nowNs(), 16);
  writeLetters(to + 17, number, 8);
  to[25] = last ? 'b' : 'a';
}

/// A text of `textSize` bytes that begins with its stamp.
inline std::string stampedText(std::uint32_t number, bool last) {
  std::string text(textSize, '.');
  writeStamp(text.data(), number, last);
  return text;
}

}  // namespace ferrox::bench
