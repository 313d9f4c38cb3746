#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Platform/FileSystem/OpenBeneath.h"
#include "Platform/Net/FileDescriptor.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;

/// Both ways have to give the same answers.
class OpenBeneathTests : public testing::TestWithParam<decltype(&openBeneath)> {
 protected:
  OpenBeneathTests() {
    files_.write("secret", "outside");
    files_.write("root/a", "inside");
    files_.write("root/sub/deep/b", "below");
    fs::create_symlink("a", root() / "link");
    fs::create_symlink("../secret", root() / "out");
    fs::create_directory_symlink("sub", root() / "folder link");
    fs::create_symlink("nowhere", root() / "dangling");
  }
  fs::path root() const { return files_.path() / "root"; }

  /// What is read through the name, or the errno.
  std::string read(std::string_view name, int flags = O_RDONLY) const {
    const FileDescriptor folder(::open(root().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const FileDescriptor file(GetParam()(folder.get(), name, flags | O_CLOEXEC, 0600));
    if (!file.isOpen()) return "errno " + std::to_string(errno);
    char buffer[64];
    const auto count = ::read(file.get(), buffer, sizeof buffer);
    return count < 0 ? "open" : std::string(buffer, static_cast<std::size_t>(count));
  }
  static std::string failure(int code) { return "errno " + std::to_string(code); }

  const test::TemporaryDirectory files_;
};

TEST_P(OpenBeneathTests, WhatStandsBeneathOpens) {
  EXPECT_EQ(read("a"), "inside");
  EXPECT_EQ(read("sub/deep/b"), "below");
  EXPECT_EQ(read("./sub//deep/./b"), "below");
  EXPECT_EQ(read("sub/deep/", O_PATH | O_DIRECTORY), "open");
  EXPECT_EQ(read("", O_PATH | O_DIRECTORY), "open");
  EXPECT_EQ(read(".", O_PATH | O_DIRECTORY), "open");
}

TEST_P(OpenBeneathTests, LinksAreRefusedWhereverTheyStand) {
  for (const char* name :
       {"link", "out", "dangling", "folder link/deep/b", "out/x", "link/x", "folder link/"}) {
    EXPECT_EQ(read(name), failure(ELOOP)) << name;
  }
  EXPECT_EQ(read("folder link", O_PATH | O_DIRECTORY), failure(ELOOP));
  for (const char* name : {"link", "out", "dangling", "folder link"}) {
    EXPECT_EQ(read(name, O_PATH), failure(ELOOP)) << name;
  }
  EXPECT_EQ(read("dangling", O_WRONLY | O_CREAT), failure(ELOOP));
}

TEST_P(OpenBeneathTests, FailuresSayWhatIsWrong) {
  EXPECT_EQ(read("absent"), failure(ENOENT));
  EXPECT_EQ(read("absent/x"), failure(ENOENT));
  EXPECT_EQ(read("a/x"), failure(ENOTDIR));
  EXPECT_EQ(read("a/"), failure(ENOTDIR));
  EXPECT_EQ(read("sub", O_WRONLY), failure(EISDIR));
  EXPECT_EQ(read("a", O_WRONLY | O_CREAT | O_EXCL), failure(EEXIST));
  EXPECT_EQ(read(std::string(300, 'x')), failure(ENAMETOOLONG));
}

TEST_P(OpenBeneathTests, FilesAreMadeBeneath) {
  EXPECT_EQ(read("sub/new", O_RDWR | O_CREAT | O_EXCL), "");
  EXPECT_TRUE(fs::is_regular_file(root() / "sub/new"));
}

INSTANTIATE_TEST_SUITE_P(Ways, OpenBeneathTests, testing::Values(&openBeneath, &openBeneathStepwise),
                         [](const auto& info) { return info.index == 0 ? "InOneCall" : "Stepwise"; });

}  // namespace
}  // namespace ferrox
