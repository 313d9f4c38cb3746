#include <gtest/gtest.h>

#include "Classes/Utilities/FileURL.h"

namespace ferrox {
namespace {

TEST(FileURL, GivesThePathPart) {
  EXPECT_EQ(pathFromFileURL("file:///Users/x/P1"), "/Users/x/P1");
  EXPECT_EQ(pathFromFileURL("file:///a%20b/"), "/a b");
  EXPECT_EQ(pathFromFileURL("FILE://localhost/a"), "/a");
  EXPECT_EQ(pathFromFileURL("file:/a"), "/a");
  EXPECT_EQ(pathFromFileURL("file:///"), "/");
  EXPECT_EQ(pathFromFileURL("file:///a?query#fragment"), "/a");
}

TEST(FileURL, TakesAnAbsolutePathAsItStands) {
  EXPECT_EQ(pathFromFileURL("/media/50% grey #1/"), "/media/50% grey #1");
}

TEST(FileURL, RefusesWhatNamesNoFileOfThisDisk) {
  for (const char* bad : {"", "relative", "file:", "file://", "file://host", "file:relative", "http://h/a",
                          "file:///%zz", "file:///a%00b", "file:///%ff"}) {
    EXPECT_EQ(pathFromFileURL(bad), std::nullopt) << bad;
  }
}

}  // namespace
}  // namespace ferrox
