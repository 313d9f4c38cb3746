#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <thread>

#include "Classes/Copy/FRXSegmentedDownloadOperation.h"
#include "Platform/Host/Localization.h"
#include "Tests/Classes/Copy/DownloadFixture.h"

namespace ferrox::test {
namespace {

using Operation = FRXSegmentedDownloadOperation;
using Events = std::vector<std::string>;

constexpr const char* domain = "com.ferrox.download.FRXSegmentedDownloadOperation.ErrorDomain";

struct Listener final : FRXSegmentedDownloadOperationDelegate {
  void downloadOperationDidSucceed(Operation& operation, std::uint64_t size) override {
    events.push_back("success " + std::to_string(size));
    wasExecuting = operation.isExecuting();
    if (onSuccess) onSuccess(operation);
  }
  void downloadOperationDidFail(Operation& operation, const FRXError& error) override {
    events.push_back("failure " + std::to_string(error.code) + " " + error.localizedDescription);
    domains.push_back(error.domain);
    wasExecuting = operation.isExecuting();
    if (onFailure) onFailure(operation);
  }
  bool shouldWriteToFileWithDownloadOperation(Operation& operation, std::string_view data) override {
    received.append(data);
    return onData ? onData(operation, data) : true;
  }

  Events events;
  Events domains;
  std::string received;
  bool wasExecuting = false;
  std::function<void(Operation&)> onSuccess;
  std::function<void(Operation&)> onFailure;
  std::function<bool(Operation&, std::string_view)> onData;
};

/// Implements nothing but the report of failures.
struct FailureListener final : FRXSegmentedDownloadOperationDelegate {
  void downloadOperationDidFail(Operation&, const FRXError&) override { ++failures; }
  int failures = 0;
};

class FRXSegmentedDownloadOperationTests : public DownloadFixture {
 protected:
  FRXSegmentedDownloadOperationTests() { loop_.runPending(); }

  std::shared_ptr<Operation> makeOperation(double timeout = 30) {
    auto operation = std::make_shared<Operation>(server_->url("/file.mov"), path(), timeout, platform());
    operation->setDelegate(listener_);
    return operation;
  }
  void serveContent() {
    serve([this](const SeenRequest& request, ScriptedConnection& connection) {
      answerRange(remote_, request, connection);
    });
  }
  void serveStatus(const std::string& statusLine) {
    serve([statusLine](const SeenRequest&, ScriptedConnection& connection) {
      connection.send(ScriptedHTTPServer::answer("no", statusLine));
    });
  }
  bool waitForEvents(std::size_t count) {
    return wait([this, count] { return listener_->events.size() >= count; });
  }

  const std::string remote_ = [] {
    std::string bytes(1000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>('a' + i % 26);
    return bytes;
  }();
  std::shared_ptr<Listener> listener_ = std::make_shared<Listener>();
};

TEST_F(FRXSegmentedDownloadOperationTests, BeginsIdleWithoutATimeoutUnlessOneIsGiven) {
  const Operation operation("http://127.0.0.1/x", path(), noTransferTimeout, platform());
  EXPECT_EQ(operation.fromURL(), "http://127.0.0.1/x");
  EXPECT_EQ(operation.toPath(), path());
  EXPECT_EQ(operation.timeout(), std::numeric_limits<double>::max());
  EXPECT_FALSE(operation.isExecuting());
  EXPECT_FALSE(operation.error());
  EXPECT_FALSE(operation.getRequestedSegment());
  for (const double none : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(Operation("http://127.0.0.1/x", path(), none, platform()).timeout(),
              std::numeric_limits<double>::max());
  }
  EXPECT_EQ(Operation("http://127.0.0.1/x", path(), 2.5, platform()).timeout(), 2.5);
}

TEST_F(FRXSegmentedDownloadOperationTests, SegmentsArriveOneAfterAnotherInTheirPlaces) {
  serveContent();
  const auto operation = makeOperation();
  EXPECT_TRUE(operation->enqueueSegmentStartingAt(0, 100));
  EXPECT_TRUE(operation->enqueueSegmentStartingAt(100, 100));
  EXPECT_TRUE(operation->enqueueSegmentStartingAt(900, 100));
  EXPECT_TRUE(operation->isExecuting());
  EXPECT_EQ(operation->getRequestedSegment(), (Operation::SegmentParams{0, 100, 0}));
  EXPECT_EQ(operation->segmentQueue().front(), (Operation::SegmentParams{900, 100, 0}));
  ASSERT_TRUE(waitForEvents(3));
  EXPECT_EQ(listener_->events, (Events{"success 100", "success 200", "success 1000"}));
  EXPECT_FALSE(listener_->wasExecuting);
  EXPECT_EQ(ranges(), (Events{"bytes=0-99", "bytes=100-199", "bytes=900-999"}));
  EXPECT_EQ(content(), remote_.substr(0, 200) + std::string(700, '\0') + remote_.substr(900));
  EXPECT_FALSE(operation->isExecuting());
  EXPECT_TRUE(operation->segmentQueue().empty());
  EXPECT_EQ(log_->entries().size(), 0u);
}

TEST_F(FRXSegmentedDownloadOperationTests, ExistingFileIsUpdatedInPlace) {
  serveContent();
  directory_.write("file.mov", std::string(500, '#'));
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(200, 50);
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(listener_->events, Events{"success 500"});
  EXPECT_EQ(content(), std::string(200, '#') + remote_.substr(200, 50) + std::string(250, '#'));
}

TEST_F(FRXSegmentedDownloadOperationTests, EnqueuingDuringATransferOnlyQueues) {
  serveContent();
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 10);
  const auto task = operation->transferTask();
  operation->enqueueSegmentStartingAt(10, 10);
  operation->start();
  EXPECT_EQ(operation->transferTask(), task);
  ASSERT_TRUE(waitForEvents(2));
  EXPECT_EQ(ranges().size(), 2u);
}

TEST_F(FRXSegmentedDownloadOperationTests, StartWithNothingToDoDoesNothing) {
  serveContent();
  const auto operation = makeOperation();
  operation->start();
  EXPECT_FALSE(operation->isExecuting());
  settle();
  EXPECT_EQ(requestCount(), 0u);
}

TEST_F(FRXSegmentedDownloadOperationTests, SegmentsMayComeFromAnyThread) {
  serveContent();
  const auto operation = makeOperation();
  std::vector<std::thread> threads;
  for (std::uint64_t i = 0; i < 4; ++i) {
    threads.emplace_back([&operation, i] {
      for (std::uint64_t j = 0; j < 5; ++j) operation->enqueueSegmentStartingAt(i * 250 + j * 50, 50);
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(waitForEvents(20));
  EXPECT_EQ(content(), remote_);
}

TEST_F(FRXSegmentedDownloadOperationTests, SegmentsThatNoRangeCanAskForAreRefused) {
  serveContent();
  const auto operation = makeOperation();
  constexpr auto largest = std::numeric_limits<std::uint64_t>::max();
  constexpr std::uint64_t largestFile = std::numeric_limits<std::int64_t>::max();
  EXPECT_FALSE(operation->enqueueSegmentStartingAt(0, 0));
  EXPECT_FALSE(operation->enqueueSegmentStartingAt(5, 0));
  EXPECT_FALSE(operation->enqueueSegmentStartingAt(largest, 2));
  EXPECT_FALSE(operation->enqueueSegmentStartingAt(5, largest - 2));
  EXPECT_FALSE(operation->enqueueSegmentStartingAt(largestFile, 1));
  EXPECT_FALSE(operation->enqueueSegmentStartingAt(1, largestFile));
  EXPECT_TRUE(log_->has(LogLevel::Error, "No segment can start at byte 5 with length 0."));
  EXPECT_TRUE(operation->segmentQueue().empty());
  settle();
  EXPECT_EQ(requestCount(), 0u);
  EXPECT_TRUE(operation->enqueueSegmentStartingAt(largestFile - 1, 1));
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(ranges(), Events{"bytes=9223372036854775806-9223372036854775806"});
}

TEST_F(FRXSegmentedDownloadOperationTests, OtherLengthThanAskedForIsTakenAfterAWarning) {
  serve([](const SeenRequest& request, ScriptedConnection& connection) {
    if (request.index == 0) connection.send(ScriptedHTTPServer::answer("short"));
    if (request.index == 1) connection.send(ScriptedHTTPServer::answer("longer than"));
    if (request.index == 2) {
      connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nfour\r\n0\r\n\r\n");
    }
  });
  const auto operation = makeOperation();
  for (const std::uint64_t start : {std::uint64_t{0}, std::uint64_t{100}, std::uint64_t{200}})
    operation->enqueueSegmentStartingAt(start, 10);
  ASSERT_TRUE(waitForEvents(3));
  EXPECT_EQ(listener_->events, (Events{"success 5", "success 111", "success 204"}));
  const auto warning = [](const std::string& length, const std::string& range) {
    return "The response's content length (" + length +
           ") did not match the requested length (10). HTTP Range header value=" + range +
           ". The destination file might be corrupt.";
  };
  EXPECT_TRUE(log_->has(LogLevel::Warn, warning("5", "bytes=0-9")));
  EXPECT_TRUE(log_->has(LogLevel::Warn, warning("11", "bytes=100-109")));
  EXPECT_TRUE(log_->has(LogLevel::Warn, warning("-1", "bytes=200-209")));
}

TEST_F(FRXSegmentedDownloadOperationTests, NextSegmentComesOnlyForAListenerThatHearsOfSuccess) {
  serveContent();
  const auto operation = makeOperation();
  const auto listener = std::make_shared<FailureListener>();
  operation->setDelegate(listener);
  operation->enqueueSegmentStartingAt(0, 100);
  operation->enqueueSegmentStartingAt(100, 100);
  ASSERT_TRUE(wait([&] { return !operation->isExecuting(); }));
  settle();
  EXPECT_EQ(requestCount(), 1u);
  EXPECT_EQ(content(), remote_.substr(0, 100));
  EXPECT_EQ(operation->segmentQueue().size(), 2u);
  EXPECT_EQ(listener->failures, 0);
}

TEST_F(FRXSegmentedDownloadOperationTests, ListenerThatIsGoneIsNotCalled) {
  serveContent();
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  operation->enqueueSegmentStartingAt(100, 100);
  listener_.reset();
  ASSERT_TRUE(wait([&] { return !operation->isExecuting(); }));
  settle();
  EXPECT_EQ(requestCount(), 1u);
  operation->setDelegate(nullptr);
  operation->start();
  ASSERT_TRUE(wait([&] { return !operation->isExecuting(); }));
}

TEST_F(FRXSegmentedDownloadOperationTests, RefusedBlocksLeaveTheFileAsItWas) {
  serveContent();
  directory_.write("file.mov", std::string(300, '#'));
  listener_->onData = [](Operation& operation, std::string_view) {
    return operation.getRequestedSegment()->start != 100;
  };
  const auto operation = makeOperation();
  for (const std::uint64_t start : {std::uint64_t{0}, std::uint64_t{100}, std::uint64_t{200}})
    operation->enqueueSegmentStartingAt(start, 100);
  ASSERT_TRUE(waitForEvents(3));
  EXPECT_EQ(content(), remote_.substr(0, 100) + std::string(100, '#') + remote_.substr(200, 100));
  EXPECT_EQ(listener_->received, remote_.substr(0, 300));
}

TEST_F(FRXSegmentedDownloadOperationTests, NoFileIsMadeWhenEveryBlockIsRefused) {
  serveContent();
  listener_->onData = [](Operation&, std::string_view) { return false; };
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(listener_->events, Events{"success 0"});
  EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(FRXSegmentedDownloadOperationTests, MissingFileIsReportedTwiceAndKeepsItsSegment) {
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

TEST_F(FRXSegmentedDownloadOperationTests, StoredMissingFileErrorHoldsUntilItIsCleared) {
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

TEST_F(FRXSegmentedDownloadOperationTests, OtherStatusIsAFailureThenASuccessAndTheQueueMovesOn) {
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

TEST_F(FRXSegmentedDownloadOperationTests, EveryStatusFrom200To299IsTaken) {
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

TEST_F(FRXSegmentedDownloadOperationTests, TransportErrorIsHandedOnAndKeepsItsSegment) {
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

TEST_F(FRXSegmentedDownloadOperationTests, FailedSegmentComesFirstAtTheNextEnqueuing) {
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

TEST_F(FRXSegmentedDownloadOperationTests, SilentServerTimesOut) {
  serve([](const SeenRequest&, ScriptedConnection& connection) { connection.stall(); });
  const auto operation = makeOperation(0.1);
  operation->enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(operation->error()->code, HTTPClientErrorTimedOut);
  EXPECT_FALSE(operation->isExecuting());
}

TEST_F(FRXSegmentedDownloadOperationTests, WhatIsNoURLFails) {
  Operation operation("file:///etc/passwd", path(), 5, platform());
  operation.setDelegate(listener_);
  operation.enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(operation.error()->code, HTTPClientErrorBadURL);
}

TEST_F(FRXSegmentedDownloadOperationTests, FileThatCannotBeMadeIsReportedOnce) {
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

TEST_F(FRXSegmentedDownloadOperationTests, FileThatCannotBeOpenedIsReportedOnce) {
  serveContent();
  Operation operation(server_->url(), directory_.path().string(), 30, platform());
  operation.setDelegate(listener_);
  operation.enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(1));
  settle();
  EXPECT_EQ(listener_->events, Events{"failure -1 Error attempting to write 100 bytes to " +
                                      directory_.path().string() + ": Is a directory"});
}

TEST_F(FRXSegmentedDownloadOperationTests, FullDiskIsReportedOnceAndTheSegmentCanBeTriedAgain) {
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

TEST_F(FRXSegmentedDownloadOperationTests, FileThatCannotBePositionedIsWrittenToAllTheSame) {
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

TEST_F(FRXSegmentedDownloadOperationTests, MissingBlockBeginsTheSegmentAgain) {
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

TEST_F(FRXSegmentedDownloadOperationTests, AfterElevenAttemptsItStopsThere) {
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

TEST_F(FRXSegmentedDownloadOperationTests, BlocksOfACancelledTransferAreIgnored) {
  serve([](const SeenRequest&, ScriptedConnection& connection) { connection.stall(); });
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  const auto task = operation->transferTask();
  operation->finish();
  EXPECT_FALSE(operation->isExecuting());
  operation->dataTaskDidReceiveData(*task, "late");
  EXPECT_TRUE(log_->has(LogLevel::Verbose, "Transfer task has been canceled or has completed."));
  EXPECT_TRUE(listener_->received.empty());
  EXPECT_FALSE(std::filesystem::exists(path()));
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(listener_->events, Events{"success 0"});
}

TEST_F(FRXSegmentedDownloadOperationTests, WhatIsEnqueuedFromASuccessFollowsIt) {
  serveContent();
  listener_->onSuccess = [n = std::uint64_t{1}](Operation& operation) mutable {
    if (n < 10) operation.enqueueSegmentStartingAt(n * 100, 100);
    ++n;
  };
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(10));
  EXPECT_EQ(content(), remote_);
  EXPECT_EQ(requestCount(), 10u);
}

TEST_F(FRXSegmentedDownloadOperationTests, WhatIsEnqueuedFromAFailureBeginsAnewUndisturbedByTheFailed) {
  serve([this](const SeenRequest& request, ScriptedConnection& connection) {
    if (request.index > 0) return answerRange(remote_, request, connection);
    connection.send(ScriptedHTTPServer::answer("busy", "HTTP/1.1 500 Busy"));
  });
  listener_->onFailure = [](Operation& operation) { operation.enqueueSegmentStartingAt(100, 100); };
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  ASSERT_TRUE(waitForEvents(3));
  settle();
  EXPECT_EQ(listener_->events,
            (Events{"failure -1 http call failed with status code 500", "success 100", "success 200"}));
  EXPECT_EQ(ranges(), (Events{"bytes=0-99", "bytes=0-99", "bytes=100-199"}));
}

TEST_F(FRXSegmentedDownloadOperationTests, ListenerMayLetGoOfTheOperationInEveryCall) {
  enum class When { Success, Failure, Data };
  for (const When when : {When::Success, When::Failure, When::Data}) {
    if (when == When::Failure) {
      serveStatus("HTTP/1.1 404 Not Found");
    } else {
      serveContent();
    }
    listener_ = std::make_shared<Listener>();
    auto operation = makeOperation();
    bool isGone = false;
    const auto letGo = [&](Operation&) {
      operation.reset();
      isGone = true;
    };
    if (when == When::Success) listener_->onSuccess = letGo;
    if (when == When::Failure) listener_->onFailure = letGo;
    if (when == When::Data) {
      listener_->onData = [&](Operation& gone, std::string_view) {
        letGo(gone);
        return true;
      };
    }
    operation->enqueueSegmentStartingAt(0, 100);
    operation->enqueueSegmentStartingAt(100, 100);
    ASSERT_TRUE(wait([&] { return isGone; }));
    const auto told = listener_->events.size();
    settle();
    EXPECT_EQ(listener_->events.size(), told);
  }
}

TEST_F(FRXSegmentedDownloadOperationTests, DestructionAtAnyMomentEndsTheTransferQuietly) {
  const std::string large(3 << 20, 'x');
  serve([large](const SeenRequest&, ScriptedConnection& connection) {
    connection.send(ScriptedHTTPServer::answer(large));
  });
  for (int turns = 0; turns < 40; ++turns) {
    listener_ = std::make_shared<Listener>();
    auto operation = makeOperation();
    operation->enqueueSegmentStartingAt(0, large.size());
    for (int i = 0; i < turns; ++i) loop_.runUntil([] { return false; }, std::chrono::microseconds(200));
    const auto told = listener_->events.size();
    operation.reset();
    loop_.runPending();
    EXPECT_EQ(listener_->events.size(), told);
  }
}

TEST_F(FRXSegmentedDownloadOperationTests, StartOnAnotherThreadFindsNobodyAfterDestruction) {
  serveContent();
  auto operation = makeOperation();
  std::thread([&] { operation->enqueueSegmentStartingAt(0, 10); }).join();
  operation.reset();
  settle();
  EXPECT_EQ(requestCount(), 0u);
}

TEST_F(FRXSegmentedDownloadOperationTests, SegmentLargerThanWhatMayWaitArrivesWhole) {
  std::string large(9 << 20, '\0');
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i * 31 >> 8);
  serve([large](const SeenRequest& request, ScriptedConnection& connection) {
    answerRange(large, request, connection);
  });
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(5, large.size() - 5);
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(content().substr(5), large.substr(5));
}

TEST_F(FRXSegmentedDownloadOperationTests, DescriptionsPassThroughTheTableOfTranslations) {
  serveStatus("HTTP/1.1 500 Broken");
  Localization::setTable([](std::string_view text) { return "<" + std::string(text) + ">"; });
  const auto operation = makeOperation();
  operation->enqueueSegmentStartingAt(0, 100);
  const bool came = waitForEvents(1);
  Localization::setTable(nullptr);
  ASSERT_TRUE(came);
  EXPECT_EQ(listener_->events[0], "failure -1 <http call failed with status code 500>");
}

}  // namespace
}  // namespace ferrox::test
