#include <gtest/gtest.h>

#include "Platform/FileSystem/PathRules.h"

namespace ferrox {
namespace {

TEST(PathRulesTests, PlainRelativePathsMayBeUsed) {
  for (const std::string& path :
       {std::string("a"), std::string("a/b/c.mov"), std::string(".hidden"), std::string("..."),
        std::string("..a/b.."), std::string(" "), std::string("a b/100%"), std::string("%2e%2e/%00"),
        std::string("..\\..\\a"), std::string("C:\\x"), std::string("\xC3\xA9/\xE6\x97\xA5/\xF0\x9F\x8E\xAC"),
        std::string("~"), std::string("-rf"), std::string("a\xC2\xA0"), std::string(255, 'x'),
        std::string(255, 'x') + "/" + std::string(255, 'y')}) {
    EXPECT_EQ(whyUnusable(path), std::nullopt) << path;
  }
}

TEST(PathRulesTests, OthersMayNotAndTheReasonIsTold) {
  struct Case {
    std::string path;
    std::string reason;
  };
  for (const Case& test : {
           Case{"", "is empty"},
           Case{"/", "is absolute"},
           Case{"/a", "is absolute"},
           Case{"..", "leads out of its folder (\"..\")"},
           Case{"a/../b", "leads out of its folder (\"..\")"},
           Case{"a/..", "leads out of its folder (\"..\")"},
           Case{".", "has a \".\" component"},
           Case{"a/.", "has a \".\" component"},
           Case{"a//b", "has an empty component"},
           Case{"a/", "has an empty component"},
           Case{std::string("a\0b", 3), "holds a NUL"},
           Case{"a\nb", "holds a control character"},
           Case{"\x7F", "holds a control character"},
           Case{"\xC2\x85", "holds a control character"},
           Case{"\xFF", "is no UTF-8"},
           Case{"\xC0\xAF", "is no UTF-8"},
           Case{"\xED\xA0\x80", "is no UTF-8"},
           Case{"a/" + std::string(256, 'x'), "has a component of more than 255 bytes"},
       }) {
    EXPECT_EQ(whyUnusable(test.path), test.reason) << test.path;
  }
}

TEST(PathRulesTests, TheRoomForAPathCanBeLimited) {
  EXPECT_EQ(whyUnusable("abc", 3), std::nullopt);
  EXPECT_EQ(whyUnusable("abcd", 3), "is longer than the 3 bytes there is room for");
  std::string path = "d";
  while (path.size() < longestPath) path += "/d";
  EXPECT_EQ(whyUnusable(path), std::nullopt);
  EXPECT_NE(whyUnusable(path + "/d"), std::nullopt);
}

TEST(PathRulesTests, PathsAreShownWithoutHarm) {
  EXPECT_EQ(shownPath("a b/\xC3\xA9"), "\"a b/\xC3\xA9\"");
  EXPECT_EQ(shownPath("a\n\x1B[2J\xFF"), "\"a\\x0a\\x1b[2J\\xff\"");
  EXPECT_EQ(shownPath(std::string(300, 'x')), "\"" + std::string(100, 'x') + "...\"");
  EXPECT_EQ(shownPath(""), "\"\"");
}

}  // namespace
}  // namespace ferrox
