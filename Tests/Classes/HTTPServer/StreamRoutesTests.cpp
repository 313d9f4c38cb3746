#include <gtest/gtest.h>

#include "Tests/Classes/HTTPServer/HostFixture.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;

class StreamRoutes : public test::HostFixture {
 protected:
  StreamRoutes() {
    disk_.write("secret.txt", "SECRET");
    disk_.write("cam/index.m3u8", "#EXTM3U");
    disk_.write("cam/00001.ts", "0123456789");
    disk_.write("cam/clip.MOV", "movie");
    disk_.write("cam/two words.ts", "blank");
    disk_.write("cam/sub/x.ts", "below");
    disk_.write("cam/empty.ts", "");
    offerStream("cam A", disk_.fileURL() + "/cam");
    offerStream("a/b", disk_.fileURL() + "/cam");
    offerStream("nowhere", "http://elsewhere/cam");
    start();
  }

  const test::TemporaryDirectory disk_;
};

TEST_F(StreamRoutes, FilesAreServedWithTheTypeOfTheirExtension) {
  const auto list = get("/streams/cam%20A/index.m3u8");
  EXPECT_EQ(list.status, 200);
  EXPECT_EQ(list.body, "#EXTM3U");
  EXPECT_EQ(list.field("content-type"), "application/x-mpegURL");
  EXPECT_EQ(get("/streams/cam%20A/00001.ts").field("content-type"), "video/MP2T");
  EXPECT_EQ(get("/streams/cam%20A/clip.MOV").field("content-type"), "application/octet-stream");
  EXPECT_EQ(get("/streams/a/b/index.m3u8").body, "#EXTM3U");
}

TEST_F(StreamRoutes, NamesAreDecoded) {
  EXPECT_EQ(get("/streams/cam%20A/two%20words.ts").body, "blank");
  EXPECT_EQ(get("/streams/cam%20A/sub%2Fx.ts").body, "below");
}

TEST_F(StreamRoutes, HeadAnnouncesWhatGetWouldSend) {
  const auto response = head("/streams/cam%20A/00001.ts");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.field("content-length"), "10");
  EXPECT_EQ(response.field("content-type"), "video/MP2T");
}

TEST_F(StreamRoutes, RangesArePartialContent) {
  const auto response = get("/streams/cam%20A/00001.ts", "Range: bytes=2-5\r\n");
  EXPECT_EQ(response.status, 206);
  EXPECT_EQ(response.body, "2345");
  EXPECT_EQ(response.field("content-range"), "bytes 2-5/10");
  EXPECT_EQ(get("/streams/cam%20A/00001.ts", "Range: bytes=9-\r\n").body, "9");
}

TEST_F(StreamRoutes, ARangeThatStartsAtOrPastTheEndHasNoContent) {
  for (const char* range : {"bytes=10-", "bytes=10-20", "bytes=99999999999999999999-"}) {
    const auto response = get("/streams/cam%20A/00001.ts", std::string("Range: ") + range + "\r\n");
    EXPECT_EQ(response.status, 204) << range;
    EXPECT_EQ(response.body, "") << range;
  }
  EXPECT_EQ(get("/streams/cam%20A/empty.ts", "Range: bytes=0-\r\n").status, 204);
  EXPECT_EQ(get("/streams/cam%20A/empty.ts").status, 200);
}

TEST_F(StreamRoutes, WhatIsNotRegisteredIsNotFound) {
  for (const char* target :
       {"/streams/other/index.m3u8", "/streams/cam/index.m3u8", "/streams/Cam%20A/index.m3u8", "/streams/x",
        "/streams/", "/streams/nowhere/index.m3u8", "/streams/cam%20A/absent.ts", "/streams/cam%20A/sub",
        "/streams/cam%20A/sub/x.ts", "/streams/cam%20A", "/streams/%zz/index.m3u8", "/streams/cam%20A/%zz",
        "/streams/cam%20A/index.m3u8?x=1"}) {
    EXPECT_EQ(get(target).status, 404) << target;
    EXPECT_EQ(head(target).status, 404) << target;
  }
  EXPECT_EQ(get("/streams/cam%20A/absent.ts", "Range: bytes=0-\r\n").status, 404);
}

TEST_F(StreamRoutes, ARemovedStreamIsGone) {
  EXPECT_TRUE(streaming_->removeStreamWithServedPath("/streams/cam A"));
  EXPECT_EQ(get("/streams/cam%20A/index.m3u8").status, 404);
}

TEST_F(StreamRoutes, NoSpellingOfANameLeavesTheStream) {
  for (const char* name : {"../secret.txt",
                           "..%2fsecret.txt",
                           "%2e%2e/secret.txt",
                           "%2e%2e%2Fsecret.txt",
                           "sub%2f..%2f..%2fsecret.txt",
                           "%2F..%2Fsecret.txt",
                           "%2Fetc%2Fpasswd",
                           "%252e%252e%252fsecret.txt",
                           "%c0%ae%c0%ae%2fsecret.txt",
                           "..%c0%afsecret.txt",
                           "%e0%80%ae%e0%80%ae%2fsecret.txt",
                           "..%5csecret.txt",
                           "..\\secret.txt",
                           "00001.ts%00",
                           "..%2fsecret.txt%00.ts",
                           "%00",
                           "..;%2fsecret.txt",
                           "..%3b%2fsecret.txt",
                           "..",
                           "%2e%2e",
                           ".",
                           "%2f",
                           "..%2f"}) {
    const std::string target = std::string("/streams/cam%20A/") + name;
    const auto response = get(target);
    EXPECT_EQ(response.status, 404) << target;
    EXPECT_EQ(response.body, "") << target;
    EXPECT_EQ(head(target).status, 404) << target;
  }
}

TEST_F(StreamRoutes, TheOwnersLinksAreFollowedOutOfTheStream) {
  fs::create_symlink("../secret.txt", disk_.path() / "cam/link.ts");
  EXPECT_EQ(get("/streams/cam%20A/link.ts").body, "SECRET");
}

}  // namespace
}  // namespace ferrox
