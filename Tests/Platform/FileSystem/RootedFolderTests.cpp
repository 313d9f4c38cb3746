#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "Platform/FileSystem/RootedFolder.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;

class RootedFolderTests : public testing::Test {
 protected:
  RootedFolderTests() {
    files_.write("elsewhere/kept", "kept");
    files_.write("root/file", "1234");
    fs::create_directory_symlink("../elsewhere", root() / "link");
    fs::create_symlink("../elsewhere/kept", root() / "file link");
    folder_ = RootedFolder::make(root().string());
  }
  fs::path root() const { return files_.path() / "root"; }
  int codeOf(bool succeeded) const { return succeeded ? 0 : error_.code; }
  int made(std::string_view name) { return codeOf(folder_->makeFolders(name, &error_)); }

  const test::TemporaryDirectory files_;
  std::optional<RootedFolder> folder_;
  FRXError error_;
};

TEST_F(RootedFolderTests, IsMadeWithTheFoldersAboveIt) {
  const auto path = (files_.path() / "x/y/z").string();
  ASSERT_TRUE(RootedFolder::make(path));
  ASSERT_TRUE(RootedFolder::make(path));
  EXPECT_TRUE(fs::is_directory(path));
}

TEST_F(RootedFolderTests, CannotBeAFileOrALink) {
  for (const char* name : {"root/file", "root/link", "root/file link", "root/file/below"}) {
    EXPECT_FALSE(RootedFolder::make((files_.path() / name).string(), &error_)) << name;
    EXPECT_TRUE(error_.code == ENOTDIR || error_.code == ELOOP) << error_.localizedDescription;
    EXPECT_EQ(error_.domain, "com.ferrox.posix.ErrorDomain");
  }
  EXPECT_FALSE(RootedFolder::make(std::string("/tmp/a\0b", 8)));
  EXPECT_FALSE(RootedFolder::make("", &error_));
}

TEST_F(RootedFolderTests, FoldersAreMadeAtAnyDepthAndMayExist) {
  EXPECT_EQ(made("a/b/c"), 0);
  EXPECT_EQ(made("a/b/c"), 0);
  EXPECT_EQ(made("a/d"), 0);
  EXPECT_TRUE(fs::is_directory(root() / "a/b/c"));
  EXPECT_TRUE(fs::is_directory(root() / "a/d"));
  EXPECT_EQ(made("file"), ENOTDIR);
  EXPECT_EQ(made("file/x/y"), ENOTDIR);
}

TEST_F(RootedFolderTests, NoNameLeadsOut) {
  for (const char* name : {"..", "../x", "a/../../x", "/x", ""}) {
    EXPECT_EQ(made(name), ENOENT) << name;
    EXPECT_EQ(folder_->openParent(name), nullptr) << name;
    EXPECT_FALSE(folder_->removeFile(name));
    EXPECT_FALSE(folder_->rename("file", name));
    EXPECT_FALSE(folder_->makeEmptyFile(name));
  }
  EXPECT_FALSE(fs::exists(files_.path() / "x"));
}

TEST_F(RootedFolderTests, NoOperationPassesThroughALink) {
  EXPECT_EQ(made("link/new"), ELOOP);
  EXPECT_EQ(made("link"), ELOOP);
  EXPECT_EQ(codeOf(folder_->makeEmptyFile("link/new", &error_)), ELOOP);
  EXPECT_EQ(codeOf(folder_->removeFile("link/kept", &error_)), ELOOP);
  EXPECT_EQ(codeOf(folder_->rename("file", "link/new", &error_)), ELOOP);
  EXPECT_EQ(codeOf(folder_->rename("link/kept", "new", &error_)), ELOOP);
  EXPECT_EQ(folder_->openParent("link/kept", &error_), nullptr);
  EXPECT_EQ(folder_->regularFileSize("link/kept"), std::nullopt);
  EXPECT_EQ(folder_->regularFileSize("file link"), std::nullopt);
  EXPECT_TRUE(folder_->setModificationTime("file link", {}));
  struct stat status {};
  ASSERT_EQ(::stat((files_.path() / "elsewhere/kept").c_str(), &status), 0);
  EXPECT_GT(status.st_mtime, 1'500'000'000);
}

TEST_F(RootedFolderTests, FilesAreLookedAtMadeRenamedAndRemoved) {
  EXPECT_EQ(folder_->regularFileSize("file"), 4U);
  EXPECT_EQ(folder_->regularFileSize("absent"), std::nullopt);
  EXPECT_EQ(made("sub"), 0);
  EXPECT_EQ(folder_->regularFileSize("sub"), std::nullopt);
  EXPECT_TRUE(folder_->makeEmptyFile("sub/empty"));
  EXPECT_EQ(folder_->regularFileSize("sub/empty"), 0U);
  EXPECT_TRUE(folder_->rename("file", "sub/empty"));
  EXPECT_EQ(folder_->regularFileSize("sub/empty"), 4U);
  EXPECT_TRUE(
      folder_->setModificationTime("sub/empty", std::chrono::system_clock::from_time_t(1'000'000'000)));
  struct stat status {};
  ASSERT_EQ(::stat((root() / "sub/empty").c_str(), &status), 0);
  EXPECT_EQ(status.st_mtime, 1'000'000'000);
  EXPECT_TRUE(folder_->removeFile("sub/empty"));
  EXPECT_EQ(codeOf(folder_->removeFile("sub/empty", &error_)), ENOENT);
  EXPECT_NE(error_.localizedDescription.find("sub/empty: No such file"), std::string::npos);
}

TEST_F(RootedFolderTests, ALinkInTheFoldersPlaceLaterChangesNothing) {
  fs::rename(root(), files_.path() / "moved");
  fs::create_directory_symlink("elsewhere", root());
  EXPECT_EQ(made("a"), 0);
  EXPECT_TRUE(fs::is_directory(files_.path() / "moved/a"));
  EXPECT_FALSE(fs::exists(files_.path() / "elsewhere/a"));
}

}  // namespace
}  // namespace ferrox
