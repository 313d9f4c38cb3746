#include <gtest/gtest.h>
#include <sys/stat.h>

#include <future>
#include <limits>
#include <string>
#include <thread>

#include "Classes/Copy/DownloadBody.h"
#include "Classes/Copy/FRXDownloadOperation.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Tests/Classes/Copy/TransferFixture.h"
#include "Tests/Support/ScriptedHTTPClient.h"
#include "Tests/Support/ScriptedHTTPServer.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

class FRXDownloadOperationTests : public TransferFixture {
 protected:
  /// What is asked for as "Range"; nothing without one.
  std::optional<std::string> rangeOf(const std::shared_ptr<FRXDownloadOperation>& operation) {
    run(operation);
    const auto headers = scripted_.requests().back().headers;
    for (const auto& [name, value] : headers) {
      if (name == "Range") return value;
    }
    return std::nullopt;
  }
  std::shared_ptr<FRXDownloadOperation> scriptedDownload(double timeout = noTransferTimeout) {
    platform_.httpClient = &scripted_;
    return download("http://peer/file", timeout);
  }

  ScriptedHTTPClient scripted_;
};

TEST_F(FRXDownloadOperationTests, BeginsWithNothingConfigured) {
  const FRXDownloadOperation operation("http://peer/a", "/tmp/a", noTransferTimeout, platform_);
  EXPECT_EQ(operation.fromURL(), "http://peer/a");
  EXPECT_EQ(operation.toPath(), "/tmp/a");
  EXPECT_EQ(operation.timeout(), std::numeric_limits<double>::max());
  EXPECT_FALSE(operation.rangeSet());
  EXPECT_EQ(operation.rangeStart(), 0);
  EXPECT_EQ(operation.rangeEnd(), 0);
  EXPECT_EQ(operation.sizeInBytes(), 0u);
  EXPECT_EQ(operation.bytesReceived(), 0u);
  EXPECT_FALSE(operation.lastModified());
  EXPECT_FALSE(operation.delegate());
  EXPECT_FALSE(operation.error());
}

TEST_F(FRXDownloadOperationTests, BodiesOfEverySizeArriveWhole) {
  constexpr std::size_t small = DownloadBody::smallSize, large = DownloadBody::largeWriteSize;
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, small - 1, small, small + 1, large - 1,
                                 large, large + 1, 20 * small + 7}) {
    const std::string body = recognisableBytes(size);
    for (const bool announced : {true, false}) {
      ScriptedHTTPServer server([&body, announced](ScriptedConnection& connection) {
        connection.readRequest();
        connection.send(announced ? ScriptedHTTPServer::answer(body) : "HTTP/1.1 200 OK\r\n\r\n" + body);
      });
      const auto operation = download(server.url());
      run(operation);
      ASSERT_FALSE(operation->error()) << operation->error()->localizedDescription;
      EXPECT_EQ(operation->sizeInBytes(), size);
      EXPECT_EQ(operation->bytesReceived(), size);
      EXPECT_TRUE(contentOf(path()) == body) << size << announced;
      EXPECT_EQ(namesIn(folder_.path()), Names{"target"});
    }
  }
}

TEST_F(FRXDownloadOperationTests, ACompletionQueueOfItsOwnWritesTheFileAndTellsTheListener) {
  struct ThreadListener final : FRXDownloadOperationDelegate {
    void downloadOperationDidSucceed(FRXDownloadOperation&, std::uint64_t) override {
      told.set_value(std::this_thread::get_id());
    }
    std::promise<std::thread::id> told;
  };
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("small")));
  const auto queue = BackgroundQueue::makePool(1);
  std::promise<std::thread::id> queueThread;
  queue->post([&] { queueThread.set_value(std::this_thread::get_id()); });
  const auto listener = std::make_shared<ThreadListener>();
  const auto operation = download(server.url());
  operation->setDelegate(listener);
  operation->setCompletionQueue(*queue);
  operation->setLikelySize(1);  // wrong, and without harm
  run(operation);
  EXPECT_EQ(listener->told.get_future().get(), queueThread.get_future().get());
  EXPECT_EQ(contentOf(path()), "small");
}

TEST_F(FRXDownloadOperationTests, ChunkedBodyIsPutTogether) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n"));
  run(download(server.url()));
  EXPECT_EQ(contentOf(path()), "abcde");
}

TEST_F(FRXDownloadOperationTests, WhatFollowsTheAnnouncedLengthIsNotTaken) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello and more");
  });
  const auto operation = download(server.url());
  run(operation);
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(contentOf(path()), "hello");
}

TEST_F(FRXDownloadOperationTests, FileOfThatNameIsReplacedAndHandsItsPermissionsOn) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("new")));
  folder_.write("target", "something that is longer");
  ::chmod(path().c_str(), 0600);
  run(download(server.url()));
  EXPECT_EQ(contentOf(path()), "new");
  struct stat status {};
  ASSERT_EQ(::stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(FRXDownloadOperationTests, RangeEndsOnePastTheLastByte) {
  const auto operation = scriptedDownload();
  operation->setContentRange(0, 100);
  EXPECT_TRUE(operation->rangeSet());
  EXPECT_EQ(operation->rangeStart(), 0);
  EXPECT_EQ(operation->rangeEnd(), 100);
  EXPECT_EQ(rangeOf(operation), "bytes=0-100");
}

TEST_F(FRXDownloadOperationTests, RangeIsAskedForAsConfiguredLast) {
  const auto operation = scriptedDownload();
  operation->setContentRange(0, 100);
  operation->setContentRange(5'000'000'000, 1);
  EXPECT_EQ(rangeOf(operation), "bytes=5000000000-5000000001");
  const auto byFields = scriptedDownload();
  byFields->setRangeStart(7);
  byFields->setRangeEnd(9);
  byFields->setRangeSet(true);
  EXPECT_EQ(rangeOf(byFields), "bytes=7-9");
}

TEST_F(FRXDownloadOperationTests, RangesThatCannotBeAreIgnored) {
  constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
  for (const auto& [start, length] :
       {std::pair<std::int64_t, std::int64_t>{-1, 10}, {0, 0}, {5, -1}, {least, 1}, {0, least}}) {
    const auto operation = scriptedDownload();
    operation->setContentRange(start, length);
    EXPECT_FALSE(operation->rangeSet());
    EXPECT_EQ(rangeOf(operation), std::nullopt) << start << " " << length;
  }
}

TEST_F(FRXDownloadOperationTests, RangeBeyondTheLargestOffsetEndsThere) {
  constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
  const auto operation = scriptedDownload();
  operation->setContentRange(10, largest);
  EXPECT_EQ(rangeOf(operation), "bytes=10-9223372036854775807");
}

TEST_F(FRXDownloadOperationTests, RangeSetAfterTheStartOrTheCancellationHasNoEffect) {
  const auto operation = scriptedDownload();
  scripted_.hold();
  operation->start();
  operation->setContentRange(0, 100);
  EXPECT_FALSE(operation->rangeSet());
  scripted_.release();
  awaitEnd(*operation);
  operation->setContentRange(0, 100);
  EXPECT_FALSE(operation->rangeSet());
  const auto cancelled = scriptedDownload();
  cancelled->cancel();
  cancelled->setContentRange(0, 100);
  EXPECT_FALSE(cancelled->rangeSet());
}

TEST_F(FRXDownloadOperationTests, TimeoutThatIsNotPositiveIsNone) {
  for (const double timeout : {0.0, -3.0, std::numeric_limits<double>::max()}) {
    const auto operation = scriptedDownload(timeout);
    EXPECT_EQ(operation->timeout(), std::numeric_limits<double>::max());
    run(operation);
    EXPECT_FALSE(scripted_.requests().back().inactivityTimeout);
  }
  run(scriptedDownload(2.5));
  EXPECT_EQ(scripted_.requests().back().inactivityTimeout, 2500ms);
}

TEST_F(FRXDownloadOperationTests, ListenerLearnsOfTheSizeOnceTheOperationIsFinished) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("hello")));
  const auto listener = std::make_shared<RecordingDownloadListener>();
  const auto operation = download(server.url());
  operation->setDelegate(listener);
  EXPECT_EQ(operation->delegate(), listener);
  run(operation);
  endClient();
  EXPECT_EQ(listener->events(), Names{"success 5"});
}

TEST_F(FRXDownloadOperationTests, ListenerIsHeldWeaklyAndMayBeTakenAway) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("hello")));
  auto listener = std::make_shared<RecordingDownloadListener>();
  const auto removed = download(server.url());
  removed->setDelegate(listener);
  removed->setDelegate(nullptr);
  const auto forgotten = download(server.url());
  forgotten->setDelegate(std::make_shared<RecordingDownloadListener>());
  EXPECT_FALSE(forgotten->delegate());
  run(removed);
  run(forgotten);
  endClient();
  EXPECT_TRUE(listener->events().empty());
  EXPECT_FALSE(forgotten->error());
}

class SilentListener final : public FRXDownloadOperationDelegate {};

class ThrowingListener final : public FRXDownloadOperationDelegate {
 public:
  void downloadOperationDidSucceed(FRXDownloadOperation&, std::uint64_t) override {
    throw std::runtime_error("from the listener");
  }
};

TEST_F(FRXDownloadOperationTests, ListenerThatImplementsNothingOrThrowsDoesNoHarm) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("hello")));
  const auto silent = std::make_shared<SilentListener>();
  const auto throwing = std::make_shared<ThrowingListener>();
  const auto first = download(server.url());
  first->setDelegate(silent);
  run(first);
  const auto second = download(server.url());
  second->setDelegate(throwing);
  run(second);
  endClient();
  EXPECT_EQ(contentOf(path()), "hello");
}

TEST_F(FRXDownloadOperationTests, TimeOfTheLastModificationIsKnownAndKeptWhenAsked) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(
      "HTTP/1.1 200 OK\r\nLast-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\nContent-Length: 1\r\n\r\nx"));
  const auto modified = std::chrono::system_clock::from_time_t(784111777);
  for (const bool preserves : {false, true}) {
    const auto operation = download(server.url());
    operation->setPreservesModificationTime(preserves);
    run(operation);
    EXPECT_EQ(operation->lastModified(), modified);
    struct stat status {};
    ASSERT_EQ(::stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mtime == 784111777, preserves);
  }
  ScriptedHTTPServer undated(ScriptedHTTPServer::answeringWith(
      "HTTP/1.1 200 OK\r\nLast-Modified: yesterday\r\nContent-Length: 1\r\n\r\nx"));
  const auto operation = download(undated.url());
  operation->setPreservesModificationTime(true);
  run(operation);
  EXPECT_FALSE(operation->error());
  EXPECT_FALSE(operation->lastModified());
}

TEST_F(FRXDownloadOperationTests, BytesAreCountedWhileTheyArrive) {
  std::promise<void> mayGoOn;
  ScriptedHTTPServer server([&mayGoOn](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 200000\r\n\r\n" + std::string(150000, 'a'));
    mayGoOn.get_future().wait();
    connection.send(std::string(50000, 'b'));
  });
  const auto operation = download(server.url());
  operation->start();
  EXPECT_TRUE(waitFor([&operation] { return operation->bytesReceived() == 150000; }, longPatience));
  EXPECT_EQ(operation->sizeInBytes(), 0u);
  EXPECT_FALSE(std::filesystem::exists(path()));
  mayGoOn.set_value();
  awaitEnd(*operation);
  EXPECT_EQ(operation->bytesReceived(), 200000u);
}

TEST_F(FRXDownloadOperationTests, GivenDirectoryIsWhereTheFileLands) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("hello")));
  std::filesystem::create_directory(folder_.path() / "real");
  const auto operation = std::make_shared<FRXDownloadOperation>(server.url(), "/nowhere/at/all/leaf",
                                                                noTransferTimeout, platform_);
  operation->setDirectory([this](FRXError* error) { return openParentDirectory(path("real/x"), error); });
  run(operation);
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(contentOf(path("real/leaf")), "hello");
}

TEST_F(FRXDownloadOperationTests, SecondStartFinishesTheOperation) {
  const auto operation = scriptedDownload();
  scripted_.hold();
  operation->start();
  EXPECT_TRUE(operation->isExecuting());
  operation->start();
  EXPECT_TRUE(operation->isFinished());
  EXPECT_FALSE(operation->isExecuting());
  scripted_.release();
  EXPECT_TRUE(waitFor([&operation] { return operation->error().has_value(); }, longPatience));
  EXPECT_EQ(scripted_.requestCount(), 1u);
}

}  // namespace
}  // namespace ferrox::test
