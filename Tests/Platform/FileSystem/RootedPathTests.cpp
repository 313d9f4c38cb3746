#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Platform/FileSystem/RootedPath.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;
using Links = RootedPath::Links;

class RootedPathTests : public testing::Test {
 protected:
  RootedPathTests() {
    files_.write("secret.txt", "outside");
    files_.write("root/a.txt", "inside");
    files_.write("root/sub/b.txt", "below");
    fs::create_symlink("../secret.txt", files_.path() / "root/out.txt");
    fs::create_directory_symlink("sub", files_.path() / "root/link");
  }

  std::string readThrough(std::string_view name, Links links = Links::Follow) {
    const int descriptor = root_.openRegularFile(name, links);
    if (descriptor < 0) return "errno " + std::to_string(errno);
    char buffer[64];
    const auto count = ::read(descriptor, buffer, sizeof buffer);
    ::close(descriptor);
    return std::string(buffer, static_cast<std::size_t>(count));
  }
  static std::string failure(int code) { return "errno " + std::to_string(code); }

  const test::TemporaryDirectory files_;
  const RootedPath root_{(files_.path() / "root").string()};
};

TEST_F(RootedPathTests, NamesThatStayBelowTheirRootAreConfined) {
  for (const char* name : {"a", "a/b", "..a", "a..", "a/..b/c", "...", ".", "a//b", "a/", "..\\..\\etc"}) {
    EXPECT_TRUE(RootedPath::isConfined(name)) << name;
  }
}

TEST_F(RootedPathTests, NamesThatLeaveTheirRootAreNot) {
  for (const std::string_view name :
       {std::string_view(""), std::string_view("/"), std::string_view("/a"), std::string_view(".."),
        std::string_view("../a"), std::string_view("a/.."), std::string_view("a/../b"),
        std::string_view("a//../b"), std::string_view("a\0b", 3), std::string_view("\0", 1)}) {
    EXPECT_FALSE(RootedPath::isConfined(name)) << name;
    EXPECT_EQ(root_.open(name, O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(root_.regularFileSize(name), std::nullopt);
  }
}

TEST_F(RootedPathTests, FilesBelowTheRootOpen) {
  EXPECT_EQ(readThrough("a.txt"), "inside");
  EXPECT_EQ(readThrough("sub/b.txt"), "below");
  EXPECT_EQ(readThrough("./sub//b.txt"), "below");
  EXPECT_EQ(readThrough("absent"), failure(ENOENT));
}

TEST_F(RootedPathTests, TheOwnersLinksAreFollowedWhereverTheyLead) {
  EXPECT_EQ(readThrough("out.txt"), "outside");
  EXPECT_EQ(readThrough("link/b.txt"), "below");
  EXPECT_EQ(root_.regularFileSize("out.txt"), 7U);
}

TEST_F(RootedPathTests, LinksAreRefusedWhereTheCallerWantsNone) {
  EXPECT_EQ(readThrough("a.txt", Links::Refuse), "inside");
  EXPECT_EQ(readThrough("sub/b.txt", Links::Refuse), "below");
  EXPECT_EQ(readThrough("out.txt", Links::Refuse), failure(ELOOP));
  EXPECT_EQ(readThrough("link/b.txt", Links::Refuse), failure(ELOOP));
}

TEST_F(RootedPathTests, FilesCanBeMadeBelowTheRoot) {
  const int descriptor = root_.open("sub/new.txt", O_WRONLY | O_CREAT | O_EXCL, 0600, Links::Refuse);
  ASSERT_GE(descriptor, 0);
  ::close(descriptor);
  EXPECT_TRUE(fs::is_regular_file(files_.path() / "root/sub/new.txt"));
  EXPECT_EQ(root_.open("link/new.txt", O_WRONLY | O_CREAT | O_EXCL, 0600, Links::Refuse), -1);
  EXPECT_EQ(errno, ELOOP);
}

TEST_F(RootedPathTests, OnlyRegularFilesOpenAsSuch) {
  ASSERT_EQ(::mkfifo((files_.path() / "root/pipe").c_str(), 0600), 0);
  EXPECT_EQ(readThrough("sub"), failure(EISDIR));
  EXPECT_EQ(readThrough("pipe"), failure(EISDIR));
  EXPECT_EQ(readThrough("."), failure(EISDIR));
  EXPECT_EQ(readThrough("a.txt/"), failure(ENOTDIR));
  EXPECT_EQ(root_.regularFileSize("sub"), std::nullopt);
  EXPECT_EQ(root_.regularFileSize("pipe"), std::nullopt);
  EXPECT_EQ(root_.regularFileSize("a.txt"), 6U);
}

TEST_F(RootedPathTests, AMissingRootHasNoFiles) {
  const RootedPath gone((files_.path() / "gone").string());
  EXPECT_EQ(gone.openRegularFile("a.txt"), -1);
  EXPECT_EQ(gone.openRegularFile("a.txt", Links::Refuse), -1);
}

}  // namespace
}  // namespace ferrox
