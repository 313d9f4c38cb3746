#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "Apps/ferrox/Copy/CopyRequest.h"
#include "Apps/ferrox/Events/Command.h"
#include "Platform/Base/Json.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox::command {
namespace {

namespace fs = std::filesystem;

std::optional<CopyRequest> read(std::string_view json, std::string& problem) {
  return CopyRequest::fromCommand({"copy", parseJson(json).value_or(FRXValue())}, problem);
}

TEST(CopyRequest, HasDefaultsForAllButUrlAndDestination) {
  std::string problem;
  const auto request = read(R"({"url": "http://a/projects/P", "dest": "/tmp/x/"})", problem);
  ASSERT_TRUE(request) << problem;
  EXPECT_EQ(request->url, "http://a/projects/P");
  EXPECT_EQ(request->destination, "/tmp/x");
  EXPECT_EQ(request->maxContentLength, -1);
  EXPECT_EQ(request->maxConcurrentDownloads, -1);
  EXPECT_EQ(request->fileDownloadTimeout, CopyRequest::defaultTimeout);
  EXPECT_EQ(request->onLowStorage, OnLowStorage::Abort);
  EXPECT_FALSE(request->resumes || request->verifiesSizes || request->allowsEmptyFiles ||
               request->preservesModificationTimes);
}

TEST(CopyRequest, TakesEveryMember) {
  std::string problem;
  const auto request = read(R"({"url": "http://a/projects/P", "dest": "/tmp/x", "maxContentLength": 1000,
      "maxConcurrentDownloads": 3, "fileDownloadTimeout": 2.5, "onLowStorage": "continue", "resumes": true,
      "verifiesSizes": true, "allowsEmptyFiles": true, "preservesModificationTimes": true})",
                            problem);
  ASSERT_TRUE(request) << problem;
  EXPECT_EQ(request->maxContentLength, 1000);
  EXPECT_EQ(request->maxConcurrentDownloads, 3);
  EXPECT_EQ(request->fileDownloadTimeout, 2.5);
  EXPECT_EQ(request->onLowStorage, OnLowStorage::Continue);
  EXPECT_TRUE(request->resumes && request->verifiesSizes && request->allowsEmptyFiles &&
              request->preservesModificationTimes);
}

TEST(CopyRequest, OfOtherTypesIsRefused) {
  for (const auto& [json, expected] :
       {std::pair{R"({"dest": "/tmp/x"})", R"("url" must be a text)"},
        std::pair{R"({"url": "u"})", R"("dest" must be a text)"},
        std::pair{R"({"url": "u", "dest": " "})", R"("dest" must not be blank)"},
        std::pair{R"({"url": "u", "dest": "/tmp/x", "maxContentLength": 1.5})",
                  R"("maxContentLength" must be a whole number)"},
        std::pair{R"({"url": "u", "dest": "/tmp/x", "fileDownloadTimeout": "1"})",
                  R"("fileDownloadTimeout" must be a number)"},
        std::pair{R"({"url": "u", "dest": "/tmp/x", "onLowStorage": "ask"})",
                  R"("onLowStorage" must be "abort" or "continue")"},
        std::pair{R"({"url": "u", "dest": "/tmp/x", "resumes": 1})", R"("resumes" must be true or false)"}}) {
    std::string problem;
    EXPECT_FALSE(read(json, problem)) << json;
    EXPECT_EQ(problem, expected);
  }
}

class CopyDestination : public testing::Test {
 protected:
  CopyDestination() {
    fs::create_directories(folder_ / "home" / "films");
    ::setenv("HOME", (folder_ / "home").c_str(), 1);
  }
  ~CopyDestination() override {
    if (home_) ::setenv("HOME", home_->c_str(), 1);
  }
  static bool isTaken(const fs::path& destination, bool resumes = false) {
    CopyRequest request;
    request.destination = destination.string();
    request.resumes = resumes;
    std::string problem;
    const bool taken = settleDestination(request, problem);
    EXPECT_EQ(taken, problem.empty());
    return taken;
  }
  static std::string settled(const fs::path& destination) {
    CopyRequest request;
    request.destination = destination.string();
    std::string problem;
    EXPECT_TRUE(settleDestination(request, problem)) << problem;
    return request.destination;
  }

  const test::TemporaryDirectory directory_;
  const fs::path folder_ = fs::canonical(directory_.path());
  const std::optional<std::string> home_ =
      std::getenv("HOME") == nullptr ? std::nullopt : std::optional<std::string>(std::getenv("HOME"));
};

TEST_F(CopyDestination, IsNeverAFolderThatHoldsHomeOrTheCurrentOne) {
  EXPECT_FALSE(isTaken("/"));
  EXPECT_FALSE(isTaken("."));
  EXPECT_FALSE(isTaken(".."));
  EXPECT_FALSE(isTaken("./x/.."));
  EXPECT_FALSE(isTaken(fs::current_path()));
  EXPECT_FALSE(isTaken(folder_));
  EXPECT_FALSE(isTaken(folder_ / "home"));
  EXPECT_FALSE(isTaken(folder_ / "home/"));
  EXPECT_FALSE(isTaken(folder_ / "home" / "films" / ".."));
  EXPECT_TRUE(isTaken(folder_ / "home" / "films"));
  EXPECT_TRUE(isTaken(folder_ / "homework"));
  EXPECT_TRUE(isTaken(folder_ / "new" / "folder"));
}

TEST_F(CopyDestination, MayBeAnyFolderWhereNothingIsRemoved) {
  EXPECT_TRUE(isTaken(folder_ / "home", true));
  EXPECT_TRUE(isTaken(".", true));
}

TEST_F(CopyDestination, BehindALinkIsTheFolderItLeadsTo) {
  fs::create_symlink(folder_, folder_ / "home" / "films" / "up");
  EXPECT_FALSE(isTaken(folder_ / "home" / "films" / "up" / "home"));
  EXPECT_TRUE(isTaken(folder_ / "home" / "films" / "up")) << "the link itself is replaced";
}

TEST_F(CopyDestination, IsMadeAbsolute) {
  EXPECT_EQ(settled("film"), (fs::canonical(fs::current_path()) / "film").string());
  EXPECT_EQ(settled(folder_ / "a" / "." / "b" / ".." / "c" / ""), (folder_ / "a" / "c").string());
}

}  // namespace
}  // namespace ferrox::command
