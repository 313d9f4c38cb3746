#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Platform/Base/Json.h"
#include "Tests/Classes/HTTPServer/HostFixture.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;

std::string hundredBytes() {
  std::string bytes;
  for (int i = 0; i < 100; ++i) bytes += static_cast<char>(i);
  return bytes;
}

class ProjectRoutes : public test::HostFixture {
 protected:
  ProjectRoutes() {
    disk_.write("secret.txt", "SECRET");
    disk_.write("P1/a.mov", content_);
    disk_.write("P1/a b.mov", "with blank");
    disk_.write("P1/empty", "");
    disk_.write("P1/sub/b.mov", "below");
    shareProject("P1", disk_.fileURL() + "/P1");
    shareProject("my project", disk_.fileURL() + "/P1/");
    shareProject("gone", disk_.fileURL() + "/absent");
    start();
  }

  std::string bodyOfRange(const std::string& range) {
    const auto response = get("/projects/P1/files/a.mov", "Range: " + range + "\r\n");
    EXPECT_EQ(response.status, 200) << range;
    EXPECT_EQ(response.field("content-range"), "") << range;
    EXPECT_EQ(response.field("content-length"), std::to_string(response.body.size())) << range;
    return response.body;
  }

  const std::string content_ = hundredBytes();
  const test::TemporaryDirectory disk_;
};

TEST_F(ProjectRoutes, AFileIsServedWhole) {
  const auto response = get("/projects/P1/files/a.mov");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, content_);
  EXPECT_EQ(get("/projects/P1/files/empty").status, 200);
  EXPECT_EQ(get("/projects/P1/files/empty").body, "");
}

TEST_F(ProjectRoutes, NamesAndIdsAreDecoded) {
  EXPECT_EQ(get("/projects/P1/files/a%20b.mov").body, "with blank");
  EXPECT_EQ(get("/projects/my%20project/files/a%20b.mov").body, "with blank");
  EXPECT_EQ(get("/projects/%50%31/files/%61.mov").body, content_);
}

TEST_F(ProjectRoutes, AFileInASubDirectoryIsNamedWithAnEncodedSlash) {
  EXPECT_EQ(get("/projects/P1/files/sub%2Fb.mov").body, "below");
  EXPECT_EQ(head("/projects/P1/files/sub%2fb.mov").field("content-length"), "5");
  EXPECT_EQ(get("/projects/P1/files/sub/b.mov").status, 404);
}

TEST_F(ProjectRoutes, TheProjectIsTheThirdPieceFromTheEnd) {
  EXPECT_EQ(get("/projects/x/files/P1/anything/a.mov").body, content_);
  EXPECT_EQ(get("/projects/P1/files/x/y/a.mov").status, 404);
}

TEST_F(ProjectRoutes, TheEndOfARangeIsNotIncluded) {
  EXPECT_EQ(bodyOfRange("bytes=10-20"), content_.substr(10, 10));
  EXPECT_EQ(bodyOfRange("bytes=10-"), content_.substr(10));
  EXPECT_EQ(bodyOfRange("bytes=0-99"), content_.substr(0, 99));
  EXPECT_EQ(bodyOfRange("bytes=0-0"), content_);
  EXPECT_EQ(bodyOfRange("bytes=-30"), content_.substr(0, 30));
  EXPECT_EQ(bodyOfRange("bytes=-"), content_);
}

TEST_F(ProjectRoutes, RangesBeyondTheFileYieldWhatExists) {
  EXPECT_EQ(bodyOfRange("bytes=90-500"), content_.substr(90));
  EXPECT_EQ(bodyOfRange("bytes=90-99999999999999999999999"), content_.substr(90));
  EXPECT_EQ(bodyOfRange("bytes=100-"), "");
  EXPECT_EQ(bodyOfRange("bytes=9223372036854775807-9223372036854775807"), "");
  EXPECT_EQ(bodyOfRange("bytes=50-10"), "");
  EXPECT_EQ(bodyOfRange("bytes=50-50"), "");
}

TEST_F(ProjectRoutes, ARangeThatIsNotUnderstoodGivesTheWholeFile) {
  for (const char* range : {"bytes=0-1,5-9", "bytes=5", "0-5", "Bytes=0-5", "items=1-2", ""}) {
    EXPECT_EQ(bodyOfRange(range), content_) << range;
  }
}

TEST_F(ProjectRoutes, HeadAnnouncesTheWholeSize) {
  const auto response = head("/projects/P1/files/a.mov", "Range: bytes=10-20\r\n");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.field("content-length"), "100");
  EXPECT_EQ(head("/projects/P1/files/empty").field("content-length"), "0");
}

TEST_F(ProjectRoutes, WhatIsMissingIsNotFoundByEitherMethod) {
  ASSERT_EQ(::mkfifo((disk_.path() / "P1/pipe").c_str(), 0600), 0);
  for (const char* target :
       {"/projects/P1/files/absent", "/projects/P2/files/a.mov", "/projects/p1/files/a.mov",
        "/projects/gone/files/a.mov", "/projects/P1/files/sub", "/projects/P1/files/pipe",
        "/projects/x/files//", "/projects/P1/files/a.mov?x=1", "/projects/P1/files/a.mov%2F",
        "/projects/%zz/files/a.mov"}) {
    EXPECT_EQ(get(target).status, 404) << target;
    EXPECT_EQ(head(target).status, 404) << target;
  }
}

TEST_F(ProjectRoutes, TheStructureListsEverythingBelowTheRoot) {
  for (const char* target : {"/projects/P1", "/projects/P1/", "/projects/my%20project", "/projects/a/b/P1"}) {
    const auto response = get(target);
    EXPECT_EQ(response.status, 200) << target;
    EXPECT_EQ(response.field("content-type"), "application/json") << target;
    EXPECT_EQ(parseJson(response.body),
              FRXValue(FRXDictionary{{"files", FRXArray{"a b.mov", "a.mov", "empty", "sub/b.mov"}},
                                     {"directories", FRXArray{"sub"}}}))
        << target;
  }
}

TEST_F(ProjectRoutes, AnUnknownProjectHasAnEmptyStructure) {
  for (const char* target : {"/projects/P2", "/projects/", "/projects/P1/files/", "/projects/gone",
                             "/projects/%zz", "/projects/P1?x=1", "/projects/..", "/projects/%2e%2e%2f"}) {
    const auto response = get(target);
    EXPECT_EQ(response.status, 200) << target;
    EXPECT_EQ(response.body, R"({"files":[],"directories":[]})") << target;
  }
}

TEST_F(ProjectRoutes, TheWorkingDirectoryStaysWhereItIs) {
  const auto before = fs::current_path();
  get("/projects/P1");
  get("/projects/P1/files/a.mov");
  EXPECT_EQ(fs::current_path(), before);
}

TEST_F(ProjectRoutes, NoSpellingOfANameLeavesTheProject) {
  const std::string encodedSecret = "%2F" + disk_.path().filename().string() + "%2Fsecret.txt";
  std::vector<std::string> names = {"../secret.txt",
                                    "..%2fsecret.txt",
                                    "..%2Fsecret.txt",
                                    "%2e%2e/secret.txt",
                                    "%2e%2e%2fsecret.txt",
                                    "%2E.%2Fsecret.txt",
                                    ".%2e%2fsecret.txt",
                                    "sub%2f..%2f..%2fsecret.txt",
                                    "sub%2F%2e%2e%2F%2E%2E%2Fsecret.txt",
                                    ".%2F..%2Fsecret.txt",
                                    "%2F..%2Fsecret.txt",
                                    "..%2F%2Fsecret.txt",
                                    "%2F%2Fetc%2Fpasswd",
                                    "%2Fetc%2Fpasswd",
                                    "%252e%252e%252fsecret.txt",
                                    "..%252fsecret.txt",
                                    "%c0%ae%c0%ae%2fsecret.txt",
                                    "%c0%ae%c0%ae%c0%afsecret.txt",
                                    "..%c0%afsecret.txt",
                                    "%e0%80%ae%e0%80%ae%2fsecret.txt",
                                    "%f0%80%80%ae.%2fsecret.txt",
                                    "..%5csecret.txt",
                                    "..\\secret.txt",
                                    "%2e%2e%5Csecret.txt",
                                    "a.mov%00",
                                    "..%2fsecret.txt%00",
                                    "%00",
                                    "..%2fsecret.txt%00.mov",
                                    "..;%2fsecret.txt",
                                    "..%3b%2fsecret.txt",
                                    "..%2fsecret.txt;",
                                    "..%2fsecret.txt?",
                                    "..%2fsecret.txt%3f",
                                    "%u002e%u002e%2fsecret.txt",
                                    "..%ef%bc%8fsecret.txt",
                                    "%ef%bc%8e%ef%bc%8e%2fsecret.txt",
                                    "..",
                                    "%2e%2e",
                                    ".",
                                    "%2e",
                                    "..%2f",
                                    "%2f",
                                    "a.mov%2f..%2f..%2fsecret.txt",
                                    "..%2fP1%2fa.mov",
                                    "..%2f%2e%2e%2fetc%2fpasswd",
                                    "%2Ftmp" + encodedSecret};
  for (const auto& name : names) {
    const auto response = get("/projects/P1/files/" + name);
    EXPECT_EQ(response.status, 404) << name;
    EXPECT_EQ(response.body, "") << name;
    EXPECT_EQ(head("/projects/P1/files/" + name).status, 404) << name;
  }
}

TEST_F(ProjectRoutes, NoSpellingOfAnIdNamesADirectoryThatIsNotShared) {
  for (const char* id :
       {"..", "%2e%2e", "..%2f", "%2fetc", "P1%2f..", "P1%00", ".%2fP1", "P1%2f", "%252e%252e"}) {
    EXPECT_EQ(get(std::string("/projects/") + id + "/files/secret.txt").status, 404) << id;
    EXPECT_EQ(get(std::string("/projects/") + id).body, R"({"files":[],"directories":[]})") << id;
  }
}

TEST_F(ProjectRoutes, OddNamesWithinTheProjectAreServed) {
  for (const char* name : {"..hidden", "...", "a..b", "semi;colon", "back\\slash", "100%", "q?x", "h#x"}) {
    disk_.write(fs::path("P1") / name, name);
    std::string encoded;
    for (const char* c = name; *c != '\0'; ++c) {
      constexpr const char* digits = "0123456789ABCDEF";
      encoded += {'%', digits[(*c >> 4) & 15], digits[*c & 15]};
    }
    EXPECT_EQ(get("/projects/P1/files/" + encoded).body, name);
  }
}

TEST_F(ProjectRoutes, TheOwnersLinksAreFollowedOutOfTheProject) {
  fs::create_symlink("../secret.txt", disk_.path() / "P1/link.txt");
  fs::create_symlink("nowhere", disk_.path() / "P1/dangling");
  EXPECT_EQ(get("/projects/P1/files/link.txt").body, "SECRET");
  EXPECT_EQ(head("/projects/P1/files/link.txt").field("content-length"), "6");
  EXPECT_EQ(get("/projects/P1/files/dangling").status, 404);
}

TEST_F(ProjectRoutes, ALargeFileArrivesByteForByte) {
  std::string large(3'000'001, '\0');
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i * 7 % 251);
  disk_.write("P1/large", large);
  EXPECT_EQ(get("/projects/P1/files/large").body, large);
  const auto part = get("/projects/P1/files/large", "Range: bytes=1000-2000000\r\n");
  EXPECT_EQ(part.status, 200);
  EXPECT_EQ(part.body, large.substr(1000, 2'000'000 - 1000));
}

}  // namespace
}  // namespace ferrox
