#include <gtest/gtest.h>

#include "Classes/HTTPServer/ProjectStructure.h"
#include "Classes/HTTPServer/ProjectStructureResponse.h"
#include "Platform/Base/Json.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;

FRXArray listOf(const std::optional<std::string>& json, std::string_view key) {
  const auto document = json ? parseJson(*json) : std::nullopt;
  const FRXValue* list = document ? document->member(key) : nullptr;
  EXPECT_TRUE(list != nullptr && list->asArray() != nullptr) << json.value_or("nothing");
  return list != nullptr && list->asArray() != nullptr ? *list->asArray() : FRXArray();
}

TEST(ProjectStructure, TellsFilesFromDirectories) {
  const test::TemporaryDirectory project;
  project.write("a.mov", "");
  project.write("Takes/1/b \"c\".mov", "");
  project.write(".hidden", "");
  const auto json = projectStructureJson(project.path().string());
  EXPECT_EQ(listOf(json, "files"), (FRXArray{".hidden", "Takes/1/b \"c\".mov", "a.mov"}));
  EXPECT_EQ(listOf(json, "directories"), (FRXArray{"Takes", "Takes/1"}));
}

TEST(ProjectStructure, WithoutDirectoryBothListsAreEmpty) {
  const test::TemporaryDirectory project;
  EXPECT_EQ(projectStructureJson(project.path().string()), R"({"files":[],"directories":[]})");
  EXPECT_EQ(projectStructureJson((project.path() / "absent").string()), R"({"files":[],"directories":[]})");
}

TEST(ProjectStructure, LinksAreClassifiedByWhatTheyLeadTo) {
  const test::TemporaryDirectory project;
  project.write("real/f", "");
  fs::create_directory_symlink("real", project.path() / "linkToDirectory");
  fs::create_symlink("real/f", project.path() / "linkToFile");
  fs::create_symlink("nowhere", project.path() / "dangling");
  const auto json = projectStructureJson(project.path().string());
  EXPECT_EQ(listOf(json, "files"), (FRXArray{"dangling", "linkToDirectory/f", "linkToFile", "real/f"}));
  EXPECT_EQ(listOf(json, "directories"), (FRXArray{"linkToDirectory", "real"}));
}

TEST(ProjectStructure, NamesThatAreNotUtf8AreLeftOutAndLogged) {
  const test::LogRecording log;
  const test::TemporaryDirectory project;
  project.write("good", "");
  project.write("bad\xFF", "");
  if (!fs::exists(project.path() / "bad\xFF")) GTEST_SKIP() << "this file system takes UTF-8 names only";
  EXPECT_EQ(listOf(projectStructureJson(project.path().string()), "files"), (FRXArray{"good"}));
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "Left 1 entries"));
}

TEST(ProjectStructure, AProjectBeyondTheLimitsHasNoDocument) {
  const test::LogRecording log(LogLevel::Warn);
  const test::TemporaryDirectory project;
  for (int i = 0; i < 5; ++i) project.write("file" + std::to_string(i), "");
  EXPECT_TRUE(projectStructureJson(project.path().string(), {.entries = 5, .bytes = 1000}));
  EXPECT_FALSE(projectStructureJson(project.path().string(), {.entries = 4, .bytes = 1000}));
  EXPECT_FALSE(projectStructureJson(project.path().string(), {.entries = 5, .bytes = 20}));
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "too large"));
}

TEST(ProjectStructureResponse, DocumentsOnTheirWayShareABudget) {
  const test::LogRecording log(LogLevel::Warn);
  const test::TemporaryDirectory project;
  project.write("a.mov", "");
  const std::string root = project.path().string();
  const std::size_t size = projectStructureJson(root).value_or("").size();

  auto first = ProjectStructureResponse::make(root, 1);  // alone, and so sent beyond the budget
  EXPECT_EQ(first->status(), 200);
  EXPECT_EQ(first->contentLength(), size);
  EXPECT_EQ(first->httpHeaders(), (HTTPHeaders{{"Content-Type", "application/json"}}));
  const auto second = ProjectStructureResponse::make(root, 2 * size);
  EXPECT_EQ(second->status(), 200);
  EXPECT_EQ(ProjectStructureResponse::make(root, 3 * size - 1)->status(), 503);
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "Too many project structures"));
  first.reset();
  EXPECT_EQ(ProjectStructureResponse::make(root, 2 * size)->status(), 200);
}

}  // namespace
}  // namespace ferrox
