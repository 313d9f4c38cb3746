#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <thread>

#include "Platform/Host/Localization.h"
#include "Tests/Classes/Copy/SegmentedDownloadFixture.h"

namespace ferrox::test {
namespace {

using Operation = FRXSegmentedDownloadOperation;
using Events = std::vector<std::string>;

/// Implements nothing but the report of failures.
struct FailureListener final : FRXSegmentedDownloadOperationDelegate {
  void downloadOperationDidFail(Operation&, const FRXError&) override { ++failures; }
  int failures = 0;
};

using FRXSegmentedDownloadOperationTests = SegmentedDownloadFixture;

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
    listener_ = std::make_shared<SegmentListener>();
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
    listener_ = std::make_shared<SegmentListener>();
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
