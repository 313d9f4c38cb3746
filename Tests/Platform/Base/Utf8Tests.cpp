#include <gtest/gtest.h>

#include <string>

#include "Platform/Base/Utf8.h"

namespace ferrox {
namespace {

/// Coded without any check, as RFC 3629 section 3 draws it.
std::string coded(char32_t c) {
  const auto byte = [](char32_t value) { return static_cast<char>(value); };
  if (c < 0x80) return {byte(c)};
  if (c < 0x800) return {byte(0xc0 | c >> 6), byte(0x80 | (c & 0x3f))};
  if (c < 0x10000) return {byte(0xe0 | c >> 12), byte(0x80 | (c >> 6 & 0x3f)), byte(0x80 | (c & 0x3f))};
  return {byte(0xf0 | c >> 18), byte(0x80 | (c >> 12 & 0x3f)), byte(0x80 | (c >> 6 & 0x3f)),
          byte(0x80 | (c & 0x3f))};
}

TEST(Utf8, ReadsEveryCharacterAndNoSurrogate) {
  for (char32_t c = 0; c <= 0x10ffff; ++c) {
    const std::string text = coded(c);
    std::size_t position = 0;
    const auto read = nextCharacter(text, position);
    const bool isSurrogate = c >= 0xd800 && c <= 0xdfff;
    ASSERT_EQ(read.has_value(), !isSurrogate) << static_cast<unsigned>(c);
    ASSERT_EQ(position, isSurrogate ? 1 : text.size()) << static_cast<unsigned>(c);
    if (read) {
      ASSERT_EQ(*read, c);
    }
  }
}

TEST(Utf8, StepsOverOneBadByteAtATime) {
  for (const std::string text :
       {"\x80", "\xc0\x80", "\xc1\xbf", "\xe0\x9f\xbf", "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80",
        "\xf5\x80\x80\x80", "\xff", "\xc3", "\xe2\x82", "\xf0\x9f\x98", "\xc3z", "\xe2\x82z"}) {
    std::size_t position = 0;
    EXPECT_FALSE(nextCharacter(text, position));
    EXPECT_EQ(position, 1U);
    EXPECT_FALSE(isUtf8(text));
  }
  EXPECT_TRUE(isUtf8(""));
  EXPECT_TRUE(isUtf8("plain \u00e9 \u20ac \U0001f600"));
  EXPECT_FALSE(isUtf8("good until \xe2\x82"));
}

}  // namespace
}  // namespace ferrox
