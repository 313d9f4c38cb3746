#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>

#include "Platform/FileSystem/FileCopy.h"
#include "Platform/Net/FileDescriptor.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox::test {
namespace {

using Outcome = FileCopyResult::Outcome;

class FileCopyTests : public ::testing::Test {
 protected:
  std::string path(const std::string& name) const { return folder_.path() / name; }
  FileDescriptor open(const std::string& name, int flags) const {
    FileDescriptor file(::open(name.c_str(), flags | O_CLOEXEC, 0600));
    EXPECT_TRUE(file.isOpen()) << name;
    return file;
  }
  std::string contentOf(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const TemporaryDirectory folder_;
};

TEST_F(FileCopyTests, CopiesFromWhereTheFilesStand) {
  folder_.write("source", "0123456789");
  folder_.write("target", "abcdef");
  const auto source = open(path("source"), O_RDONLY);
  const auto target = open(path("target"), O_WRONLY);
  ::lseek(source.get(), 7, SEEK_SET);
  ::lseek(target.get(), 2, SEEK_SET);
  EXPECT_EQ(copyFileContent(source.get(), target.get()).outcome, Outcome::Copied);
  EXPECT_EQ(contentOf("target"), "ab789f");
  EXPECT_EQ(::lseek(target.get(), 0, SEEK_CUR), 5);
}

TEST_F(FileCopyTests, CopiesWhatHasNoSizeAndWhatIsNoFile) {
  const auto kernel = open("/proc/sys/kernel/ostype", O_RDONLY);
  const auto target = open(path("target"), O_WRONLY | O_CREAT);
  EXPECT_EQ(copyFileContent(kernel.get(), target.get()).outcome, Outcome::Copied);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  ASSERT_EQ(::write(writing.get(), "piped", 5), 5);
  writing.reset();
  EXPECT_EQ(copyFileContent(reading.get(), target.get()).outcome, Outcome::Copied);
  EXPECT_EQ(contentOf("target"), "Linux\npiped");
}

TEST_F(FileCopyTests, TellsWhichSideFailed) {
  folder_.write("source", std::string(100000, 'x'));
  const auto source = open(path("source"), O_RDONLY);
  const auto full = open("/dev/full", O_WRONLY);
  const auto writing = copyFileContent(source.get(), full.get());
  EXPECT_EQ(writing.outcome, Outcome::WriteFailed);
  EXPECT_EQ(writing.code, ENOSPC);
  const auto folder = open(folder_.path(), O_RDONLY | O_DIRECTORY);
  const auto target = open(path("target"), O_WRONLY | O_CREAT);
  const auto reading = copyFileContent(folder.get(), target.get());
  EXPECT_EQ(reading.outcome, Outcome::ReadFailed);
  EXPECT_EQ(reading.code, EISDIR);
}

TEST_F(FileCopyTests, StopsBetweenTwoSteps) {
  folder_.write("source", "");
  constexpr std::uintmax_t size = std::uintmax_t{100} << 20;
  std::filesystem::resize_file(path("source"), size);
  const auto source = open(path("source"), O_RDONLY);
  const auto target = open(path("target"), O_WRONLY | O_CREAT);
  int asked = 0;
  const auto result = copyFileContent(source.get(), target.get(), [&asked] { return ++asked < 3; });
  EXPECT_EQ(result.outcome, Outcome::Stopped);
  EXPECT_EQ(asked, 3);
  EXPECT_GT(std::filesystem::file_size(path("target")), 0u);
  EXPECT_LT(std::filesystem::file_size(path("target")), size);
  const auto none = copyFileContent(source.get(), target.get(), [] { return false; });
  EXPECT_EQ(none.outcome, Outcome::Stopped);
}

TEST_F(FileCopyTests, FileAppendedToItselfIsDoubledOnce) {
  folder_.write("both", "twice");
  const auto source = open(path("both"), O_RDONLY);
  const auto target = open(path("both"), O_WRONLY);
  ::lseek(target.get(), 0, SEEK_END);
  EXPECT_EQ(copyFileContent(source.get(), target.get()).outcome, Outcome::Copied);
  EXPECT_EQ(contentOf("both"), "twicetwice");
}

TEST_F(FileCopyTests, FlushAsksWhetherItMayGoOnAndReportsTheDisk) {
  folder_.write("file", "");
  std::filesystem::resize_file(path("file"), std::uintmax_t{100} << 20);
  const auto file = open(path("file"), O_RDWR);
  int asked = 0;
  EXPECT_EQ(flushFileContent(file.get(), [&asked] { return ++asked < 3; }).outcome, Outcome::Stopped);
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(flushFileContent(file.get()).outcome, Outcome::Copied);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const FileDescriptor reading(ends[0]), writing(ends[1]);
  EXPECT_EQ(flushFileContent(writing.get()).code, EINVAL);
}

}  // namespace
}  // namespace ferrox::test
