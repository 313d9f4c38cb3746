#include <gtest/gtest.h>

#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {
namespace {

TEST(TerminalText, ControlCharactersBecomeVisible) {
  EXPECT_EQ(escapedForTerminal("a\x1b[31mb\r\n\t\x7f"), "a\\x1b[31mb\\x0d\\x0a\\x09\\x7f");
  EXPECT_EQ(escapedForTerminal(std::string_view("a\0b", 3)), "a\\x00b");
}

TEST(TerminalText, DirectionOverridesAndLineSeparatorsBecomeVisible) {
  EXPECT_EQ(escapedForTerminal("a\u202eb\u2028c\u200bd"), "a\\u202eb\\u2028c\\u200bd");
  EXPECT_EQ(escapedForTerminal("\xc2\x9b"), "\\u009b");
}

TEST(TerminalText, BytesThatAreNotUtf8BecomeVisible) {
  EXPECT_EQ(escapedForTerminal("\xff\xc3("), "\\xff\\xc3(");
  EXPECT_EQ(escapedForTerminal("\xc0\xaf"), "\\xc0\\xaf") << "overlong";
  EXPECT_EQ(escapedForTerminal("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "a surrogate";
  EXPECT_EQ(escapedForTerminal("\xe2\x82"), "\\xe2\\x82") << "cut off";
}

TEST(TerminalText, OrdinaryTextOfAnyScriptStays) {
  EXPECT_EQ(escapedForTerminal("Büro 3 編集室 🎬"), "Büro 3 編集室 🎬");
}

TEST(TerminalText, WideCharactersCountTwoAndCombiningOnesNone) {
  EXPECT_EQ(displayWidth("Büro"), 4U);
  EXPECT_EQ(displayWidth("編集"), 4U);
  EXPECT_EQ(displayWidth("e\u0301"), 1U);
}

TEST(TerminalText, IsCutWithAnEllipsisAndPaddedToTheColumn) {
  EXPECT_EQ(fitted("abc", 5), "abc  ");
  EXPECT_EQ(fitted("abc", 5, Align::Right), "  abc");
  EXPECT_EQ(fitted("abcdef", 4), "abc…");
  EXPECT_EQ(fitted("abcdef", 0), "");
  EXPECT_EQ(fitted("編集室", 4), "編… ") << "half a wide character is never shown";
}

TEST(TerminalText, KeepsTheEndWhereMachinesDiffer) {
  EXPECT_EQ(shortenedInside("EDIT SUITE ON THE FLOOR 12", 12), "EDIT SU…R 12");
  EXPECT_EQ(shortenedInside("EDIT SUITE 1", 12), "EDIT SUITE 1");
  EXPECT_EQ(shortenedInside("EDIT SUITE 1", 7), "EDIT S…") << "too narrow for both";
  EXPECT_EQ(shortenedInside("abcdefghijke\u0301fg", 9), "abcde…e\u0301fg");
  EXPECT_EQ(shortenedInside("abcdefghijklme\u0301g", 9).find("…\u0301"), std::string::npos);
  for (std::size_t columns = 0; columns < 30; ++columns) {
    EXPECT_LE(displayWidth(shortenedInside("メイン編集室メイン編集室 25", columns)), columns);
  }
}

}  // namespace
}  // namespace ferrox::command
