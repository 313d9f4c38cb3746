#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "Platform/FileSystem/TreeWalk.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;

/// Paths in the order of the visit, directories with a "/" at the end.
std::vector<std::string> walked(const fs::path& root) {
  std::vector<std::string> seen;
  EXPECT_TRUE(walkTree(root.string(), [&seen](std::string_view path, bool isDirectory) {
    seen.push_back(std::string(path) + (isDirectory ? "/" : ""));
    return true;
  }));
  return seen;
}

using Paths = std::vector<std::string>;

TEST(TreeWalk, VisitsADirectoryBeforeItsContentsHiddenEntriesIncluded) {
  const test::TemporaryDirectory tree;
  tree.write("b.txt", "");
  tree.write("a/z.txt", "");
  tree.write("a/m/deep.txt", "");
  tree.write(".hidden/x", "");
  fs::create_directory(tree.path() / "empty");
  EXPECT_EQ(walked(tree.path()),
            (Paths{".hidden/", ".hidden/x", "a/", "a/m/", "a/m/deep.txt", "a/z.txt", "b.txt", "empty/"}));
}

TEST(TreeWalk, AnEmptyRootHasNoEntries) {
  const test::TemporaryDirectory tree;
  EXPECT_TRUE(walked(tree.path()).empty());
}

TEST(TreeWalk, LinkedDirectoriesAreDescendedAndDanglingLinksAreFiles) {
  const test::TemporaryDirectory outside;
  outside.write("o.txt", "");
  const test::TemporaryDirectory tree;
  tree.write("real/f.txt", "");
  fs::create_directory_symlink(outside.path(), tree.path() / "out");
  fs::create_directory_symlink("real", tree.path() / "again");
  fs::create_symlink("nowhere", tree.path() / "dangling");
  EXPECT_EQ(walked(tree.path()),
            (Paths{"again/", "again/f.txt", "dangling", "out/", "out/o.txt", "real/", "real/f.txt"}));
}

TEST(TreeWalk, ALinkBackIntoTheWalkIsListedButNotDescended) {
  const test::TemporaryDirectory tree;
  tree.write("a/f.txt", "");
  fs::create_directory_symlink("..", tree.path() / "a/up");
  fs::create_directory_symlink(".", tree.path() / "self");
  fs::create_symlink("circle2", tree.path() / "circle1");
  fs::create_symlink("circle1", tree.path() / "circle2");
  EXPECT_EQ(walked(tree.path()), (Paths{"a/", "a/f.txt", "a/up/", "circle1", "circle2", "self/"}));
}

/// Gives root's right to read everything up for a while; does nothing for other users.
class WithoutPrivileges {
 public:
  explicit WithoutPrivileges(const fs::path& readable) {
    constexpr uid_t nobody = 65534;
    if (::geteuid() != 0) return;
    // The group stays root's.
    fs::permissions(readable, fs::perms::group_read | fs::perms::group_exec, fs::perm_options::add);
    dropped_ = ::seteuid(nobody) == 0;
  }
  ~WithoutPrivileges() {
    if (dropped_ && ::seteuid(0) != 0) std::abort();
  }
  WithoutPrivileges(const WithoutPrivileges&) = delete;
  WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

 private:
  bool dropped_ = false;
};

TEST(TreeWalk, ADirectoryThatCannotBeReadIsListedWithoutContents) {
  const test::TemporaryDirectory tree;
  tree.write("closed/f.txt", "");
  tree.write("open/f.txt", "");
  fs::permissions(tree.path() / "closed", fs::perms::none);
  {
    const WithoutPrivileges asNobody(tree.path());
    EXPECT_EQ(walked(tree.path()), (Paths{"closed/", "open/", "open/f.txt"}));
  }
  fs::permissions(tree.path() / "closed", fs::perms::owner_all);
}

TEST(TreeWalk, ADeepTreeUsesNoDescriptorForEachLevel) {
  constexpr int levels = 300;
  const test::TemporaryDirectory tree;
  fs::path path = tree.path();
  for (int level = 0; level < levels; ++level) path /= "d";
  fs::create_directories(path);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit few = before;
  few.rlim_cur = 100;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  const auto seen = walked(tree.path());
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(levels));
}

TEST(TreeWalk, TheVisitorEndsTheWalk) {
  const test::TemporaryDirectory tree;
  tree.write("a", "");
  tree.write("b", "");
  int visits = 0;
  EXPECT_FALSE(walkTree(tree.path().string(), [&visits](std::string_view, bool) { return ++visits < 1; }));
  EXPECT_EQ(visits, 1);
}

TEST(TreeWalk, ARootThatIsNoDirectoryFails) {
  const test::TemporaryDirectory tree;
  const auto file = tree.write("file", "");
  const auto visit = [](std::string_view, bool) { return true; };
  EXPECT_FALSE(walkTree(file.string(), visit));
  EXPECT_FALSE(walkTree((tree.path() / "absent").string(), visit));
}

}  // namespace
}  // namespace ferrox
