#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>

#include "Platform/Base/PosixError.h"
#include "Platform/FileSystem/ReplacementFile.h"
#include "Tests/Support/OpenDescriptors.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox::test {
namespace {

class ReplacementFileTests : public ::testing::Test {
 protected:
  std::string path(const std::string& name = "target") const { return folder_.path() / name; }
  std::string content() const {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::size_t entryCount() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder_.path()), {}));
  }
  struct stat status() const {
    struct stat status {};
    EXPECT_EQ(::stat(path().c_str(), &status), 0);
    return status;
  }

  const TemporaryDirectory folder_;
};

TEST_F(ReplacementFileTests, TakesItsPlaceAtTheCommitAndNotBefore) {
  folder_.write("target", "before");
  auto file = ReplacementFile::create(path());
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->write("af"));
  EXPECT_TRUE(file->write("ter"));
  EXPECT_EQ(file->size(), 5u);
  EXPECT_EQ(content(), "before");
  EXPECT_EQ(entryCount(), 2u);
  EXPECT_TRUE(file->commit());
  EXPECT_EQ(content(), "after");
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(ReplacementFileTests, WithoutACommitNothingIsLeftOfIt) {
  const std::size_t open = openDescriptorCount();
  {
    auto dropped = ReplacementFile::create(path());
    ASSERT_TRUE(dropped);
    EXPECT_TRUE(dropped->write("content"));
    auto moved = std::move(*dropped);
    auto other = ReplacementFile::create(path());
    ASSERT_TRUE(other);
    *other = std::move(moved);
    EXPECT_EQ(entryCount(), 1u);
    EXPECT_EQ(other->size(), 7u);
  }
  EXPECT_EQ(entryCount(), 0u);
  EXPECT_EQ(openDescriptorCount(), open);
}

TEST_F(ReplacementFileTests, ReservesRoomWithoutChangingTheSize) {
  auto file = ReplacementFile::create(path());
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->preallocate(1 << 20));
  EXPECT_TRUE(file->write("short"));
  EXPECT_TRUE(file->commit());
  EXPECT_EQ(content(), "short");
  EXPECT_LT(status().st_blocks * 512, 1 << 20);
}

TEST_F(ReplacementFileTests, RoomThatNoDiskHasIsRefusedAtOnce) {
  auto file = ReplacementFile::create(path());
  ASSERT_TRUE(file);
  FRXError error;
  EXPECT_FALSE(file->preallocate(std::uint64_t{1} << 60, &error));
  EXPECT_EQ(error.domain, PosixErrorDomain);
  EXPECT_EQ(error.code, ENOSPC);
  EXPECT_FALSE(file->preallocate(~std::uint64_t{0}, &error));
  EXPECT_EQ(error.code, EFBIG);
}

TEST_F(ReplacementFileTests, PermissionsAreThoseOfTheReplacedFileOrOfTheMask) {
  const mode_t mask = ::umask(027);
  auto fresh = ReplacementFile::create(path());
  ::umask(mask);
  ASSERT_TRUE(fresh);
  EXPECT_TRUE(fresh->commit());
  EXPECT_EQ(status().st_mode & 07777, 0640u);
  ::chmod(path().c_str(), 0755);
  auto second = ReplacementFile::create(path());
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->commit());
  EXPECT_EQ(status().st_mode & 07777, 0755u);
}

TEST_F(ReplacementFileTests, ModificationTimeIsKeptToTheNanosecond) {
  auto file = ReplacementFile::create(path());
  ASSERT_TRUE(file);
  using namespace std::chrono;
  EXPECT_TRUE(file->setModificationTime(system_clock::time_point(seconds(784111777) + nanoseconds(5))));
  EXPECT_TRUE(file->commit());
  EXPECT_EQ(status().st_mtim.tv_sec, 784111777);
  EXPECT_EQ(status().st_mtim.tv_nsec, 5);
  auto old = ReplacementFile::create(path());
  ASSERT_TRUE(old);
  EXPECT_TRUE(old->setModificationTime(system_clock::time_point(milliseconds(-1500))));
  EXPECT_TRUE(old->commit());
  EXPECT_EQ(status().st_mtim.tv_sec, -2);
  EXPECT_EQ(status().st_mtim.tv_nsec, 500'000'000);
}

TEST_F(ReplacementFileTests, NameThatIsNoSingleComponentIsRefused) {
  const auto directory = openParentDirectory(path());
  ASSERT_TRUE(directory);
  for (const std::string& leaf : {std::string(".."), std::string("."), std::string(), std::string("a/b"),
                                  std::string("/etc/x"), std::string("a\0b", 3)}) {
    FRXError error;
    EXPECT_FALSE(ReplacementFile::createIn(directory, leaf, &error)) << leaf;
    EXPECT_EQ(error.domain, PosixErrorDomain);
  }
  EXPECT_EQ(entryCount(), 0u);
}

TEST_F(ReplacementFileTests, FollowsItsDirectoryAndNotThePath) {
  std::filesystem::create_directory(path("one"));
  auto file = ReplacementFile::create(path("one/target"));
  ASSERT_TRUE(file);
  std::filesystem::rename(path("one"), path("two"));
  std::filesystem::create_directory(path("one"));
  EXPECT_TRUE(file->commit());
  EXPECT_TRUE(std::filesystem::exists(path("two/target")));
  EXPECT_TRUE(std::filesystem::is_empty(path("one")));
}

TEST_F(ReplacementFileTests, CommitThatFailsDiscards) {
  auto file = ReplacementFile::create(path());
  ASSERT_TRUE(file);
  std::filesystem::create_directory(path());
  FRXError error;
  EXPECT_FALSE(file->commit(&error));
  EXPECT_EQ(error.code, EISDIR);
  EXPECT_EQ(entryCount(), 1u);
}

TEST_F(ReplacementFileTests, PipeIsNotReplaced) {
  ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
  FRXError error;
  EXPECT_FALSE(ReplacementFile::create(path(), &error));
  EXPECT_EQ(error.code, EOPNOTSUPP);
  EXPECT_TRUE(std::filesystem::is_fifo(path()));
}

TEST_F(ReplacementFileTests, PathWithoutAFolderMeansTheWorkingDirectory) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  auto file = ReplacementFile::create("target");
  std::filesystem::current_path(before);
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->write("here"));
  EXPECT_TRUE(file->commit());
  EXPECT_EQ(content(), "here");
}

}  // namespace
}  // namespace ferrox::test
