#include <gtest/gtest.h>

#include "Classes/HTTPServer/RequestPath.h"

namespace ferrox {
namespace {

TEST(RequestPath, TheFilePatternNeedsAProjectAndAFile) {
  for (const char* path : {"/projects/P1/files/a.mov", "/projects/P1/files/sub/a.mov",
                           "/projects/a/b/files/c", "/projects/P/files/files/x", "/projects//files/files/x",
                           "/projects/x/files//", "/projects/x/files/a?b", "/projects/%0A/files/%0A"}) {
    EXPECT_TRUE(isProjectFilePath(path)) << path;
  }
  for (const char* path :
       {"/projects/P1/files/", "/projects/P1/files", "/projects//files/a", "/projects/files/a",
        "/project/P1/files/a", "/Projects/P1/files/a", "/projects/P1/Files/a", " /projects/P1/files/a",
        "projects/P1/files/a", "", "/projects/"}) {
    EXPECT_FALSE(isProjectFilePath(path)) << path;
  }
}

TEST(RequestPath, ALineBreakIsNoCharacterOfThePattern) {
  for (const char* lineBreak : {"\n", "\v", "\f", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
    EXPECT_FALSE(isProjectFilePath(std::string("/projects/P1/files/a") + lineBreak)) << lineBreak;
    EXPECT_FALSE(isProjectFilePath(std::string("/projects/") + lineBreak + "/files/a")) << lineBreak;
  }
  EXPECT_TRUE(isProjectFilePath("/projects/\xC3\xA9\xE2\x80\xA6/files/\xE2\x82\xAC"));
}

TEST(RequestPath, TheLastComponentDisregardsSlashesAtTheEnd) {
  EXPECT_EQ(lastPathComponent("/projects/abc"), "abc");
  EXPECT_EQ(lastPathComponent("/projects/abc/"), "abc");
  EXPECT_EQ(lastPathComponent("/projects/abc//"), "abc");
  EXPECT_EQ(lastPathComponent("/projects/"), "projects");
  EXPECT_EQ(lastPathComponent("/a"), "a");
  EXPECT_EQ(lastPathComponent("a"), "a");
  EXPECT_EQ(lastPathComponent("/"), "/");
  EXPECT_EQ(lastPathComponent(""), "");
}

TEST(RequestPath, TheParentHasNoSlashAtItsEnd) {
  EXPECT_EQ(deletingLastPathComponent("/streams/angle1/index.m3u8"), "/streams/angle1");
  EXPECT_EQ(deletingLastPathComponent("/streams/angle1/"), "/streams");
  EXPECT_EQ(deletingLastPathComponent("/streams/angle1//x"), "/streams/angle1");
  EXPECT_EQ(deletingLastPathComponent("/streams"), "/");
  EXPECT_EQ(deletingLastPathComponent("/"), "/");
  EXPECT_EQ(deletingLastPathComponent("a"), "");
  EXPECT_EQ(deletingLastPathComponent(""), "");
}

}  // namespace
}  // namespace ferrox
