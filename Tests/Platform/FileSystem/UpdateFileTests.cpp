#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

#include "Platform/FileSystem/UpdateFile.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox::test {
namespace {

std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(UpdateFileTests, MissingFileIsMadeAndAnExistingOneIsKept) {
  const TemporaryDirectory directory;
  const auto path = directory.path() / "file";
  UpdateFile::Problem problem;
  EXPECT_TRUE(UpdateFile::open(path, problem));
  EXPECT_EQ(UpdateFile::sizeOf(path), 0u);
  directory.write("file", "0123456789");
  auto file = UpdateFile::open(path, problem);
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->moveTo(3));
  EXPECT_EQ(file->write("abc"), std::nullopt);
  EXPECT_EQ(file->write("d"), std::nullopt);
  EXPECT_EQ(contentOf(path), "012abcd789");
  EXPECT_EQ(file->append("end"), std::nullopt);
  EXPECT_EQ(contentOf(path), "012abcd789end");
  EXPECT_EQ(UpdateFile::sizeOf(path), 13u);
}

TEST(UpdateFileTests, PositionBehindTheEndLeavesAHole) {
  const TemporaryDirectory directory;
  const auto path = directory.path() / "file";
  UpdateFile::Problem problem;
  auto file = UpdateFile::open(path, problem);
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->moveTo(4));
  EXPECT_EQ(file->write("x"), std::nullopt);
  EXPECT_EQ(contentOf(path), std::string(4, '\0') + "x");
  EXPECT_FALSE(file->moveTo(std::numeric_limits<std::uint64_t>::max()));
}

TEST(UpdateFileTests, SaysWhetherMakingOrOpeningFailed) {
  const TemporaryDirectory directory;
  UpdateFile::Problem problem;
  EXPECT_FALSE(UpdateFile::open(directory.path() / "missing" / "file", problem));
  EXPECT_TRUE(problem.whileCreating);
  EXPECT_EQ(problem.reason, "No such file or directory");
  EXPECT_FALSE(UpdateFile::open(directory.path(), problem));
  EXPECT_FALSE(problem.whileCreating);
  EXPECT_EQ(problem.reason, "Is a directory");
  EXPECT_FALSE(UpdateFile::open(std::string("a\0b", 3), problem));
  EXPECT_TRUE(problem.whileCreating);
}

TEST(UpdateFileTests, FullDiskIsToldAndAnUnreadableSizeIsZero) {
  UpdateFile::Problem problem;
  auto file = UpdateFile::open("/dev/full", problem);
  ASSERT_TRUE(file);
  EXPECT_EQ(file->write("x"), "No space left on device");
  EXPECT_EQ(file->write(""), std::nullopt);
  EXPECT_EQ(UpdateFile::sizeOf("/nowhere/at/all"), 0u);
}

}  // namespace
}  // namespace ferrox::test
