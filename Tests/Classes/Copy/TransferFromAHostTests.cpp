#include <gtest/gtest.h>

#include <string>

#include "Classes/Copy/FRXContentLengthOperation.h"
#include "Classes/Copy/FRXDownloadOperation.h"
#include "Classes/Copy/FRXFileJoiningOperation.h"
#include "Platform/Queues/OperationQueue.h"
#include "Tests/Classes/Copy/TransferFixture.h"
#include "Tests/Classes/HTTPServer/HostFixture.h"

namespace ferrox::test {
namespace {

/// The steps against the server that they were made for.
class TransferFromAHostTests : public HostFixture {
 protected:
  TransferFromAHostTests() {
    disk_.write("P1/clip.mov", content_);
    shareProject("P1", disk_.fileURL() + "/P1");
    start();
    platform_.httpClient = client_.get();
  }
  std::string url(const std::string& name = "clip.mov") const {
    return "http://127.0.0.1:" + std::to_string(server_->port()) + "/projects/P1/files/" + name;
  }

  const std::string content_ = recognisableBytes(250'000);
  const TemporaryDirectory disk_;
  const TemporaryDirectory target_;
  ScriptedResolver resolver_;
  const std::unique_ptr<HTTPClient> client_ = HTTPClient::make(resolver_);
  PlatformServices platform_;
  OperationQueue queue_;
};

TEST_F(TransferFromAHostTests, SizeIsLearned) {
  const auto probe = std::make_shared<FRXContentLengthOperation>(url(), 5.0, platform_);
  const auto missing = std::make_shared<FRXContentLengthOperation>(url("absent"), 5.0, platform_);
  queue_.addOperation(probe);
  queue_.addOperation(missing);
  queue_.waitUntilAllOperationsAreFinished();
  EXPECT_FALSE(probe->error());
  EXPECT_EQ(probe->contentLengthBytes(), content_.size());
  ASSERT_TRUE(missing->error());
  EXPECT_EQ(missing->error()->localizedDescription, "Content-Length request failed with status code 404");
}

TEST_F(TransferFromAHostTests, FileFetchedInPiecesAndJoinedEqualsTheOriginal) {
  constexpr std::int64_t pieceSize = 100'000;
  const std::string master = target_.path() / "clip.mov";
  const auto join = std::make_shared<FRXFileJoiningOperation>(master);
  for (std::int64_t offset = 0; offset < 250'000; offset += pieceSize) {
    const std::string piece = master + "." + std::to_string(offset);
    const auto download = std::make_shared<FRXDownloadOperation>(url(), piece, 0.0, platform_);
    download->setContentRange(offset, pieceSize);
    join->addFile(piece);
    join->addDependency(download);
    queue_.addOperation(download);
  }
  queue_.addOperation(join);
  queue_.waitUntilAllOperationsAreFinished();
  EXPECT_FALSE(join->error());
  EXPECT_TRUE(contentOf(master) == content_);
  EXPECT_EQ(namesIn(target_.path()), std::vector<std::string>{"clip.mov"});
}

TEST_F(TransferFromAHostTests, ExclusiveEndBringsExactlyTheLengthAndTheTimeComesAlong) {
  const auto download =
      std::make_shared<FRXDownloadOperation>(url(), target_.path() / "piece", 0.0, platform_);
  download->setContentRange(0, 100);
  queue_.addOperation(download);
  queue_.waitUntilAllOperationsAreFinished();
  EXPECT_FALSE(download->error());
  EXPECT_EQ(download->sizeInBytes(), 100u);
  EXPECT_TRUE(contentOf(target_.path() / "piece") == content_.substr(0, 100));
  EXPECT_TRUE(download->lastModified());
}

}  // namespace
}  // namespace ferrox::test
