#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Tests/Classes/Copy/SegmentedDownloadFixture.h"

namespace ferrox::test {
namespace {

using Operation = FRXSegmentedDownloadOperation;
using Events = std::vector<std::string>;

constexpr const char* domain = "com.ferrox.download.FRXSegmentedDownloadOperation.ErrorDomain";

using FRXSegmentedDownloadOperationFailureTests = SegmentedDownloadFixture;

TEST_F(FRXSegmentedDownloadOperationFailureTests, MissingFileIsReportedTwiceAndKeepsItsSegment) {
  serveStatus("HTTP/1.1 404 Not Found");
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  operation->enqueueSegmentStartingAt(100, 100);
  ASSERT_TRUE(waitForEvents(2));
  settle();
  EXPECT_EQ(listener_->events, (Events{"failure -404 http call failed with status code 404",
                                       "failure -404 HTTP 404 error: File not Found"}));
  EXPECT_EQ(listener_->domains, (Events{domain, domain}));
  EXPECT_FALSE(listener_->wasExecuting);
  EXPECT_EQ(operation->error()->code, -404);
  EXPECT_EQ(operation->segmentQueue().size(), 2u);
  EXPECT_EQ(requestCount(), 1u);
  EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, StoredMissingFileErrorHoldsUntilItIsCleared) {
  const auto exists = std::make_shared<std::atomic<bool>>(false);
  serve([this, exists](const SeenRequest& request, ScriptedConnection& connection) {
    if (*exists) return answerRange(remote_, request, connection);
    connection.send(ScriptedHTTPServer::answer("no", "HTTP/1.1 404 Not Found"));
  });
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(2));
  *exists = true;
  operation->start();
  ASSERT_TRUE(waitForEvents(3));
  EXPECT_EQ(listener_->events.back(), "failure -404 HTTP 404 error: File not Found");
  operation->setError(std::nullopt);
  operation->start();
  ASSERT_TRUE(waitForEvents(4));
  EXPECT_EQ(listener_->events.back(), "success 100");
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, OtherStatusIsAFailureThenASuccessAndTheQueueMovesOn) {
  serve([this](const SeenRequest& request, ScriptedConnection& connection) {
    if (request.index > 0) return answerRange(remote_, request, connection);
    connection.send(ScriptedHTTPServer::answer("busy", "HTTP/1.1 503 Busy"));
  });
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  operation->enqueueSegmentStartingAt(100, 100);
  ASSERT_TRUE(waitForEvents(3));
  EXPECT_EQ(listener_->events,
            (Events{"failure -1 http call failed with status code 503", "success 0", "success 200"}));
  EXPECT_EQ(listener_->received, remote_.substr(100, 100));
  EXPECT_EQ(operation->error()->code, -1);
  EXPECT_EQ(operation->error()->domain, domain);
  EXPECT_EQ(operation->responseStatus(), 206);
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, EveryStatusFrom200To299IsTaken) {
  for (const auto& [line, isTaken] :
       {std::pair{"HTTP/1.1 200 OK", true}, std::pair{"HTTP/1.1 299 Odd", true},
        std::pair{"HTTP/1.1 300 Choices", false}, std::pair{"HTTP/1.1 416 Beyond", false}}) {
    SCOPED_TRACE(line);
    serveStatus(line);
    listener_->events.clear();
    const auto operation = makeOperation();
    operation->enqueueSegmentStartingAt(0, 2);
    ASSERT_TRUE(waitForEvents(isTaken ? 1 : 2));
    EXPECT_EQ(listener_->events.front().starts_with("success"), isTaken);
  }
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, TransportErrorIsHandedOnAndKeepsItsSegment) {
  server_ = std::make_unique<ScriptedHTTPServer>([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send(head(100) + "only this");
  });
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  operation->enqueueSegmentStartingAt(100, 100);
  ASSERT_TRUE(waitForEvents(1));
  settle();
  ASSERT_EQ(listener_->events.size(), 1u);
  EXPECT_TRUE(listener_->events[0].starts_with("failure ")) << listener_->events[0];
  EXPECT_EQ(listener_->domains[0], HTTPClientErrorDomain);
  EXPECT_EQ(operation->error()->domain, HTTPClientErrorDomain);
  EXPECT_EQ(content(), "only this");
  EXPECT_FALSE(operation->isExecuting());
  EXPECT_EQ(operation->segmentQueue().size(), 2u);
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, FailedSegmentComesFirstAtTheNextEnqueuing) {
  serve([this](const SeenRequest& request, ScriptedConnection& connection) {
    if (request.index == 0) {
      connection.send(ScriptedHTTPServer::answer("no", "HTTP/1.1 404 Not Found"));
    } else {
      answerRange(remote_, request, connection);
    }
  });
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(2));
  operation->setError(std::nullopt);
  operation->enqueueSegmentStartingAt(500, 100);
  ASSERT_TRUE(waitForEvents(4));
  EXPECT_EQ(ranges(), (Events{"bytes=0-99", "bytes=0-99", "bytes=500-599"}));
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, SilentServerTimesOut) {
  serve([](const SeenRequest&, ScriptedConnection& connection) { connection.stall(); });
  const auto operation = makeOperation(0.1);
  operation->enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(operation->error()->code, HTTPClientErrorTimedOut);
  EXPECT_FALSE(operation->isExecuting());
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, WhatIsNoURLFails) {
  Operation operation("file:///etc/passwd", path(), 5, platform());
  operation.setDelegate(listener_);
  operation.enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(operation.error()->code, HTTPClientErrorBadURL);
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, FileThatCannotBeMadeIsReportedOnce) {
  serveContent();
  const std::string target = path("missing/file.mov");
  Operation operation(server_->url(), target, 30, platform());
  operation.setDelegate(listener_);
  operation.enqueueSegmentStartingAt(0, 100);
  operation.enqueueSegmentStartingAt(100, 100);
  ASSERT_TRUE(waitForEvents(1));
  settle();
  EXPECT_EQ(listener_->events,
            Events{"failure -1 Could not create a file with default attributes at " + target});
  EXPECT_EQ(listener_->domains, Events{domain});
  EXPECT_FALSE(operation.isExecuting());
  EXPECT_EQ(operation.segmentQueue().size(), 2u);
  EXPECT_EQ(requestCount(), 1u);
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, FileThatCannotBeOpenedIsReportedOnce) {
  serveContent();
  Operation operation(server_->url(), directory_.path().string(), 30, platform());
  operation.setDelegate(listener_);
  operation.enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(1));
  settle();
  EXPECT_EQ(listener_->events, Events{"failure -1 Error attempting to write 100 bytes to " +
                                      directory_.path().string() + ": Is a directory"});
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, FullDiskIsReportedOnceAndTheSegmentCanBeTriedAgain) {
  serveContent();
  Operation operation(server_->url(), "/dev/full", 30, platform());
  operation.setDelegate(listener_);
  operation.enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(1));
  settle();
  const std::string message =
      "failure -1 Error attempting to write 100 bytes to /dev/full: No space left on device";
  EXPECT_EQ(listener_->events, Events{message});
  EXPECT_FALSE(operation.isExecuting());
  operation.start();
  ASSERT_TRUE(waitForEvents(2));
  EXPECT_EQ(listener_->events, (Events{message, message}));
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, FileThatCannotBePositionedIsWrittenToAllTheSame) {
  serveContent();
  ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
  const int reader = ::open(path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(300, 100);
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_TRUE(log_->has(LogLevel::Error,
                        "Unable to write to file at " + path() + ". It could wind up being corrupted."));
  std::string received(200, '\0');
  const auto count = ::read(reader, received.data(), received.size());
  ::close(reader);
  ASSERT_EQ(count, 100);
  EXPECT_EQ(received.substr(0, 100), remote_.substr(300, 100));
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, MissingBlockBeginsTheSegmentAgain) {
  serve([this](const SeenRequest& request, ScriptedConnection& connection) {
    if (request.index > 0) return answerRange(remote_, request, connection);
    connection.send(head(100) + std::string(30, '!'));
    connection.stall();
  });
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(200, 100);
  ASSERT_TRUE(wait([this] { return listener_->received.size() == 30; }));
  const auto first = operation->transferTask();
  operation->dataTaskDidReceiveData(*first, std::nullopt);
  EXPECT_TRUE(log_->has(LogLevel::Warn, "Data parameter was unexpectedly nil"));
  EXPECT_NE(operation->transferTask(), first);
  EXPECT_EQ(operation->getRequestedSegment(), (Operation::SegmentParams{200, 100, 1}));
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(listener_->events, Events{"success 300"});
  EXPECT_EQ(content(), std::string(200, '\0') + remote_.substr(200, 100));
}

TEST_F(FRXSegmentedDownloadOperationFailureTests, AfterElevenAttemptsItStopsThere) {
  serve([](const SeenRequest&, ScriptedConnection& connection) { connection.stall(); });
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(7, 100);
  const std::string message = "Too many retries for segment starting at byte 7 with length 100.";
  for (std::size_t attempt = 1; attempt <= 11; ++attempt) {
    ASSERT_TRUE(wait([&] { return requestCount() == attempt; })) << attempt;
    EXPECT_FALSE(log_->has(LogLevel::Error, message));
    operation->dataTaskDidReceiveData(*std::shared_ptr(operation->transferTask()), std::nullopt);
  }
  EXPECT_EQ(log_->count(LogLevel::Error, message), 1u);
  settle();
  EXPECT_EQ(requestCount(), 11u);
  EXPECT_TRUE(listener_->events.empty());
  EXPECT_TRUE(operation->isExecuting());
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(operation->getRequestedSegment(), (Operation::SegmentParams{7, 100, 10}));
  operation->start();
  settle();
  EXPECT_EQ(requestCount(), 11u);
}

}  // namespace
}  // namespace ferrox::test
