#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "Classes/Copy/FRXDownloadOperation.h"
#include "Platform/Queues/OperationQueue.h"
#include "Tests/Classes/Copy/TransferFixture.h"
#include "Tests/Support/ScriptedHTTPClient.h"
#include "Tests/Support/ScriptedHTTPServer.h"

namespace ferrox::test {
namespace {

using Names = std::vector<std::string>;

class FRXDownloadOperationCancelTests : public TransferFixture {
 protected:
  std::shared_ptr<FRXDownloadOperation> listenedDownload(const std::string& url) {
    auto operation = download(url);
    operation->setDelegate(listener_);
    return operation;
  }

  const std::shared_ptr<RecordingDownloadListener> listener_ = std::make_shared<RecordingDownloadListener>();
};

TEST_F(FRXDownloadOperationCancelTests, CancelledBeforeItsStartItEndsWithoutErrorListenerOrRequest) {
  ScriptedHTTPClient scripted;
  platform_.httpClient = &scripted;
  const auto operation = listenedDownload("http://peer/");
  operation->cancel();
  OperationQueue queue;
  queue.addOperation(operation);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(operation->isFinished());
  EXPECT_FALSE(operation->isExecuting());
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(scripted.requestCount(), 0u);
  EXPECT_TRUE(listener_->events().empty());
}

TEST_F(FRXDownloadOperationCancelTests, CancellingWhileItWaitsForTheAnswerEndsIt) {
  ScriptedHTTPServer mute([](ScriptedConnection& connection) { connection.stall(); });
  const auto operation = listenedDownload(mute.url());
  operation->start();
  ASSERT_TRUE(waitFor([&mute] { return mute.acceptCount() == 1; }, longPatience));
  operation->cancel();
  awaitEnd(*operation);
  endClient();
  EXPECT_FALSE(operation->error());
  EXPECT_TRUE(listener_->events().empty());
  EXPECT_TRUE(namesIn(folder_.path()).empty());
}

TEST_F(FRXDownloadOperationCancelTests, CancellingInTheMiddleOfTheBodyLeavesNothingBehind) {
  folder_.write("target", "before");
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10000000\r\n\r\n" + std::string(300000, 'x'));
    connection.stall();
  });
  const auto operation = listenedDownload(server.url());
  operation->start();
  ASSERT_TRUE(waitFor([&operation] { return operation->bytesReceived() == 300000; }, longPatience));
  EXPECT_EQ(namesIn(folder_.path()).size(), 2u);
  operation->cancel();
  awaitEnd(*operation);
  endClient();
  EXPECT_FALSE(operation->error());
  EXPECT_TRUE(listener_->events().empty());
  EXPECT_EQ(namesIn(folder_.path()), Names{"target"});
  EXPECT_EQ(contentOf(path()), "before");
}

TEST_F(FRXDownloadOperationCancelTests, CancellingEndsOneThatWaitsForItsTurn) {
  ScriptedHTTPServer mute([](ScriptedConnection& connection) { connection.stall(); });
  std::vector<std::shared_ptr<FRXDownloadOperation>> operations;
  for (std::size_t i = 0; i < HTTPClientMaxTransfersPerHost + 5; ++i) {
    operations.push_back(listenedDownload(mute.url()));
    operations.back()->start();
  }
  for (auto operation = operations.rbegin(); operation != operations.rend(); ++operation) {
    (*operation)->cancel();
    awaitEnd(**operation);
    EXPECT_FALSE((*operation)->error());
  }
}

TEST_F(FRXDownloadOperationCancelTests, FailureOfACancelledOneIsStillAFailure) {
  ScriptedHTTPClient scripted;
  platform_.httpClient = &scripted;
  scripted.hold();
  scripted.answer({ScriptedHTTPClient::refused(), 0, ""});
  const auto operation = listenedDownload("http://peer/");
  operation->start();
  operation->cancel();
  scripted.release();
  awaitEnd(*operation);
  EXPECT_EQ(operation->error(), ScriptedHTTPClient::refused());
  EXPECT_TRUE(waitFor([this] { return listener_->events() == Names{"failure 7"}; }, longPatience));
}

TEST_F(FRXDownloadOperationCancelTests, CancelledAtAnyMomentTheFileIsWholeOrAbsent) {
  const std::string body = recognisableBytes(400000);
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer(body)));
  for (int delay = 0; delay < 30; ++delay) {
    std::filesystem::remove(path());
    const auto operation = listenedDownload(server.url());
    std::thread canceller([&operation, delay] {
      std::this_thread::sleep_for(std::chrono::microseconds(80 * delay));
      operation->cancel();
    });
    operation->start();
    awaitEnd(*operation);
    canceller.join();
    EXPECT_FALSE(operation->error());
    if (operation->sizeInBytes() == 0) {
      EXPECT_TRUE(namesIn(folder_.path()).empty());
    } else {
      EXPECT_EQ(namesIn(folder_.path()), Names{"target"});
      EXPECT_TRUE(contentOf(path()) == body);
    }
  }
}

TEST_F(FRXDownloadOperationCancelTests, CancellingAQueueEndsAllThatItHolds) {
  ScriptedHTTPServer mute([](ScriptedConnection& connection) { connection.stall(); });
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(8);
  for (int i = 0; i < 100; ++i) queue.addOperation(listenedDownload(mute.url()));
  ASSERT_TRUE(waitFor([&mute] { return mute.acceptCount() == 8; }, longPatience));
  queue.cancelAllOperations();
  queue.waitUntilAllOperationsAreFinished();
  endClient();
  EXPECT_TRUE(listener_->events().empty());
  EXPECT_TRUE(namesIn(folder_.path()).empty());
}

}  // namespace
}  // namespace ferrox::test
