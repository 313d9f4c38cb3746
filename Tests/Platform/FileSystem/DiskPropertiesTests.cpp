#include <gtest/gtest.h>

#include "Platform/FileSystem/DiskProperties.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox {
namespace {

TEST(DiskPropertiesTests, FreeBytesAreThoseOfThePathsDisk) {
  EXPECT_GT(freeBytesOfDisk("/"), 0U);
  EXPECT_EQ(freeBytesOfDisk("/proc"), 0U);
  EXPECT_EQ(freeBytesOfDisk("/no/such/path"), 0U);
}

TEST(DiskPropertiesTests, AnOrdinaryDiskTellsLetterCaseApart) {
  const test::TemporaryDirectory folder;
  folder.write("File", "x");
  ASSERT_FALSE(std::filesystem::exists(folder.path() / "FILE")) << "the test's own disk folds case";
  EXPECT_FALSE(foldsCaseBelow(folder.path().string()));
  EXPECT_FALSE(foldsCaseBelow((folder.path() / "not/there/yet").string()));
  EXPECT_FALSE(foldsCaseBelow((folder.path() / "File/below").string()));
  EXPECT_FALSE(foldsCaseBelow("relative"));
  EXPECT_FALSE(foldsCaseBelow(""));
}

}  // namespace
}  // namespace ferrox
