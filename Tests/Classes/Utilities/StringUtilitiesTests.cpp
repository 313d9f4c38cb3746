#include <gtest/gtest.h>

#include <limits>

#include "Classes/Utilities/StringUtilities.h"

namespace ferrox {
namespace {

TEST(StringUtilities, OnlyAbsentAndEmptyTextCountAsEmpty) {
  EXPECT_TRUE(isNilOrEmpty(std::nullopt));
  EXPECT_TRUE(isNilOrEmpty(""));
  EXPECT_FALSE(isNilOrEmpty("   "));
  EXPECT_FALSE(isNilOrEmpty("a"));
}

TEST(StringUtilities, TrimRemovesUnicodeWhiteSpaceAndLineBreaksAtBothEnds) {
  EXPECT_EQ(trim(" \t\r\n a b \n"), "a b");
  EXPECT_EQ(trim("\xC2\xA0\xE2\x80\xA8x\xE3\x80\x80"), "x");  // no-break, line separator, ideographic
  EXPECT_EQ(trim(" \n"), "");
  EXPECT_EQ(trim(""), "");
}

TEST(StringUtilities, IntegerValueReadsWhatIsThere) {
  EXPECT_EQ(integerValue("42"), 42);
  EXPECT_EQ(integerValue(" \t+42abc"), 42);
  EXPECT_EQ(integerValue("-7."), -7);
  EXPECT_EQ(integerValue(""), 0);
  EXPECT_EQ(integerValue("abc"), 0);
  EXPECT_EQ(integerValue("- 1"), 0);
  EXPECT_EQ(integerValue("+-1"), 0);
}

TEST(StringUtilities, IntegerValueStopsAtTheEndsOfTheRange) {
  constexpr auto largest = std::numeric_limits<std::int64_t>::max();
  constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(integerValue("9223372036854775807"), largest);
  EXPECT_EQ(integerValue("9223372036854775808"), largest);
  EXPECT_EQ(integerValue("99999999999999999999999999"), largest);
  EXPECT_EQ(integerValue("-9223372036854775808"), smallest);
  EXPECT_EQ(integerValue("-9223372036854775809"), smallest);
}

}  // namespace
}  // namespace ferrox
