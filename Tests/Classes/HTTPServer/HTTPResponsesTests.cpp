#include <gtest/gtest.h>

#include "Classes/HTTPServer/HTTPErrorResponse.h"
#include "Classes/HTTPServer/HTTPHeadResponse.h"
#include "Classes/HTTPServer/HTTPJsonResponse.h"
#include "Classes/HTTPServer/HTTPVideoResponse.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox {
namespace {

TEST(HTTPErrorResponse, IsAStatusAndNothingElse) {
  HTTPErrorResponse response(404);
  response.setOffset(5);
  EXPECT_EQ(response.status(), 404);
  EXPECT_EQ(response.contentLength(), 0U);
  EXPECT_EQ(response.offset(), 0U);
  EXPECT_TRUE(response.isDone());
  EXPECT_EQ(response.readDataOfLength(10), "");
  EXPECT_TRUE(response.httpHeaders().empty());
}

TEST(HTTPHeadResponse, AnnouncesALengthWithoutBody) {
  HTTPHeadResponse response(1'048'576);
  EXPECT_EQ(response.contentLength(), 1'048'576U);
  EXPECT_EQ(response.sizeInBytes(), 1'048'576U);
  EXPECT_EQ(response.status(), 200);
  EXPECT_EQ(response.readDataOfLength(10), "");
}

TEST(HTTPJsonResponse, CarriesTheBytesAndOneHeader) {
  HTTPJsonResponse response("{}");
  EXPECT_EQ(response.httpHeaders(), (HTTPHeaders{{"Content-Type", "application/json"}}));
  EXPECT_EQ(response.contentLength(), 2U);
  EXPECT_EQ(response.status(), 200);
  EXPECT_EQ(response.readDataOfLength(10), "{}");
}

TEST(HTTPVideoResponse, TheContentTypeFollowsTheExactExtension) {
  const test::TemporaryDirectory files;
  const auto typeOf = [&files](const std::string& name) {
    const auto response = HTTPVideoResponse::initWithFilePath(files.write(name, "x").string());
    return response ? response->mimeType() : "not opened";
  };
  EXPECT_EQ(typeOf("index.m3u8"), "application/x-mpegURL");
  EXPECT_EQ(typeOf("00001.ts"), "video/MP2T");
  EXPECT_EQ(typeOf("clip.mov"), "video/quicktime");
  EXPECT_EQ(typeOf("clip.MOV"), "application/octet-stream");
  EXPECT_EQ(typeOf("clip.mp4"), "application/octet-stream");
  EXPECT_EQ(typeOf("clip"), "application/octet-stream");
  EXPECT_EQ(typeOf("mov"), "application/octet-stream");
  EXPECT_EQ(typeOf(".mov"), "application/octet-stream");
  EXPECT_EQ(typeOf("clip.mov.part"), "application/octet-stream");
  EXPECT_EQ(typeOf("take.ts/clip"), "application/octet-stream");
}

TEST(HTTPVideoResponse, TheHeaderFollowsTheMimeType) {
  const test::TemporaryDirectory files;
  const auto response = HTTPVideoResponse::initWithFilePath(files.write("a.mov", "12345").string());
  ASSERT_TRUE(response);
  EXPECT_EQ(response->httpHeaders(), (HTTPHeaders{{"Content-Type", "video/quicktime"}}));
  response->setMimeType("video/other");
  EXPECT_EQ(response->httpHeaders(), (HTTPHeaders{{"Content-Type", "video/other"}}));
  EXPECT_EQ(response->contentLength(), 5U);
  EXPECT_TRUE(response->supportsByteRanges());
}

TEST(HTTPVideoResponse, AFileThatCannotBeOpenedGivesNothing) {
  const test::TemporaryDirectory files;
  EXPECT_EQ(HTTPVideoResponse::initWithFilePath((files.path() / "absent.mov").string()), nullptr);
  EXPECT_EQ(HTTPVideoResponse::initWithFilePath(files.path().string()), nullptr);
}

}  // namespace
}  // namespace ferrox
