#include <gtest/gtest.h>

#include "Platform/GraphQLEngine/BlockString.h"

namespace ferrox::graphql {
namespace {

TEST(BlockString, CommonIndentationIsTakenFromAllLinesButTheFirst) {
  EXPECT_EQ(blockStringValue("\n    Hello,\n      World!\n\n    Yours,\n      GraphQL.\n  "),
            "Hello,\n  World!\n\nYours,\n  GraphQL.");
  EXPECT_EQ(blockStringValue("  first\n    second\n     third"), "  first\nsecond\n third");
}

TEST(BlockString, BlankLinesLeaveBothEndsOnly) {
  EXPECT_EQ(blockStringValue("\n \t\n  a\n\n  b\n \n"), "a\n\nb");
}

TEST(BlockString, BlankLinesDoNotCountForTheIndentation) {
  EXPECT_EQ(blockStringValue("\n    a\n \n    b"), "a\n\nb");
  EXPECT_EQ(blockStringValue("\n    a\n      \n    b"), "a\n  \nb");
}

TEST(BlockString, NothingButBlanksIsEmpty) {
  EXPECT_EQ(blockStringValue(""), "");
  EXPECT_EQ(blockStringValue("  \t "), "");
  EXPECT_EQ(blockStringValue("\n\n  \n"), "");
}

TEST(BlockString, EveryLineTerminatorBecomesALineFeed) {
  EXPECT_EQ(blockStringValue("a\r\n b\r c\n d"), "a\nb\nc\nd");
}

TEST(BlockString, TabsAreIndentationToo) {
  EXPECT_EQ(blockStringValue("a\n\t\tb\n \tc\n\td"), "a\n\tb\n\tc\nd");
}

TEST(BlockString, OneLineKeepsItsBlanks) { EXPECT_EQ(blockStringValue("  a  "), "  a  "); }

}  // namespace
}  // namespace ferrox::graphql
