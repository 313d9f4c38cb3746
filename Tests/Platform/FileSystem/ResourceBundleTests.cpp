#include <gtest/gtest.h>

#include <algorithm>

#include "Platform/FileSystem/ResourceBundle.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox {
namespace {

TEST(ResourceBundle, LooksBesideTheProgramAndAboveItAndNowhereRelative) {
  const auto folders = ResourceBundle::searchFolders();
  ASSERT_GE(folders.size(), 2U);
  const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  EXPECT_EQ(folders[0], program / "share/ferrox");
  EXPECT_EQ(folders[1], program.parent_path() / "share/ferrox");
  EXPECT_TRUE(
      std::all_of(folders.begin(), folders.end(), [](const auto& path) { return path.is_absolute(); }));
}

TEST(ResourceBundle, IsFoundByNameAndExtension) {
  const auto bundle = ResourceBundle::named("GraphQL", "bundle");
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->folder().filename(), "GraphQL.bundle");
  EXPECT_TRUE(bundle->text("Schema", "graphql"));
  EXPECT_FALSE(ResourceBundle::named("GraphQL", "other"));
  EXPECT_FALSE(ResourceBundle::named("NoSuchName", "bundle"));
}

TEST(ResourceBundle, GivesTheTextOfAFile) {
  const test::TemporaryDirectory folder;
  folder.write("A.txt", "\xC3\xA9\n");
  folder.write("empty.txt", "");
  folder.write("longest.txt", std::string(1 << 20, 'x'));
  const ResourceBundle bundle(folder.path());
  EXPECT_EQ(bundle.text("A", "txt"), "\xC3\xA9\n");
  EXPECT_EQ(bundle.text("empty", "txt"), "");
  EXPECT_TRUE(bundle.has("empty", "txt"));
  EXPECT_FALSE(bundle.has("empty", "text"));
  EXPECT_EQ(bundle.text("longest", "txt").value_or("").size(), std::size_t{1} << 20);
}

TEST(ResourceBundle, WhatIsNoTextFileIsNothing) {
  const test::TemporaryDirectory folder;
  folder.write("binary.txt", "\xFF");
  folder.write("tooLong.txt", std::string((1 << 20) + 1, 'x'));
  std::filesystem::create_directory(folder.path() / "folder.txt");
  const ResourceBundle bundle(folder.path());
  for (const char* name : {"binary", "tooLong", "folder", "missing"}) {
    EXPECT_EQ(bundle.text(name, "txt"), std::nullopt) << name;
  }
  EXPECT_EQ(ResourceBundle("/no/such/folder").text("A", "txt"), std::nullopt);
  EXPECT_EQ(ResourceBundle("/dev").text("zero", ""), std::nullopt);
}

}  // namespace
}  // namespace ferrox
