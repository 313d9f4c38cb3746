#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Platform/FileSystem/TreeRemoval.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;

class TreeRemovalTests : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return (files_.path() / name).string(); }
  int codeOf(const std::string& path) {
    FRXError error;
    return removeTree(path, &error) ? 0 : error.code;
  }

  const test::TemporaryDirectory files_;
};

TEST_F(TreeRemovalTests, AFolderGoesWithEverythingInIt) {
  for (int i = 0; i < 200; ++i)
    files_.write("tree/d" + std::to_string(i % 9) + "/e/f" + std::to_string(i), "x");
  fs::create_directories(path("tree/empty/folders"));
  ASSERT_EQ(::mkfifo(path("tree/pipe").c_str(), 0600), 0);
  files_.write("beside", "stays");
  EXPECT_EQ(codeOf(path("tree")), 0);
  EXPECT_FALSE(fs::exists(path("tree")));
  EXPECT_TRUE(fs::exists(path("beside")));
}

TEST_F(TreeRemovalTests, WhatIsNotThereIsGoneAlready) {
  EXPECT_EQ(codeOf(path("absent")), 0);
  EXPECT_EQ(codeOf(path("absent/below")), 0);
}

TEST_F(TreeRemovalTests, AFileGoesToo) {
  files_.write("file", "x");
  EXPECT_EQ(codeOf(path("file/below")), ENOTDIR);
  EXPECT_EQ(codeOf(path("file")), 0);
  EXPECT_FALSE(fs::exists(path("file")));
}

TEST_F(TreeRemovalTests, LinksGoAndWhatTheyLeadToStays) {
  files_.write("elsewhere/kept", "x");
  fs::create_directories(path("tree/below"));
  fs::create_directory_symlink(path("elsewhere"), path("tree/link"));
  fs::create_symlink(path("elsewhere/kept"), path("tree/below/link"));
  EXPECT_EQ(codeOf(path("tree")), 0);
  fs::create_directory_symlink(path("elsewhere"), path("tree"));
  EXPECT_EQ(codeOf(path("tree///")), 0);
  EXPECT_FALSE(fs::is_symlink(path("tree")));
  fs::create_symlink("nowhere", path("dangling"));
  EXPECT_EQ(codeOf(path("dangling")), 0);
  EXPECT_FALSE(fs::is_symlink(path("dangling")));
  EXPECT_TRUE(fs::exists(path("elsewhere/kept")));
}

TEST_F(TreeRemovalTests, PathsThatNameNoEntryAreRefused) {
  files_.write("a/b", "x");
  for (const std::string& name :
       {std::string(), std::string("/"), std::string("///"), std::string("."), path("a/."), path("a/.."),
        path("a/../"), path("a") + std::string("\0x", 2)}) {
    EXPECT_EQ(codeOf(name), EINVAL) << name;
  }
  EXPECT_TRUE(fs::exists(path("a/b")));
}

/// Deeper than a path can be long and than there may be descriptors.
TEST_F(TreeRemovalTests, AnyDepthWillDo) {
  fs::create_directory(path("tree"));
  int folder = ::open(path("tree").c_str(), O_RDONLY | O_DIRECTORY);
  const std::string name(100, 'd');
  for (int i = 0; i < 3000; ++i) {
    ASSERT_EQ(::mkdirat(folder, name.c_str(), 0700), 0);
    const int next = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(folder);
    folder = next;
    if (i % 100 == 0) ::close(::openat(folder, "file", O_CREAT | O_WRONLY, 0600));
  }
  ::close(folder);
  EXPECT_EQ(codeOf(path("tree")), 0);
  EXPECT_FALSE(fs::exists(path("tree")));
}

TEST_F(TreeRemovalTests, TheFirstEntryThatCannotGoEndsIt) {
  EXPECT_NE(codeOf("/proc/self"), 0);
  EXPECT_NE(codeOf("/proc/self/status"), 0);
}

TEST_F(TreeRemovalTests, ItCanBeBrokenOff) {
  for (int i = 0; i < 50; ++i) files_.write("tree/f" + std::to_string(i), "x");
  int asked = 0;
  FRXError error;
  EXPECT_FALSE(removeTree(path("tree"), &error, [&asked] { return ++asked <= 10; }));
  EXPECT_EQ(error.code, ECANCELED);
  const auto left = std::distance(fs::directory_iterator(path("tree")), fs::directory_iterator());
  EXPECT_GT(left, 30);
  EXPECT_LT(left, 50);
}

}  // namespace
}  // namespace ferrox
