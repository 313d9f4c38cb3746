#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Queues/OperationQueue.h"
#include "Tests/Platform/Queues/TestOperation.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox {
namespace {

using test::TestOperation;

/// Operations that are started on the thread that makes room for them.
struct OperationQueueInlineStartTests : testing::Test {
  static std::shared_ptr<TestOperation> make(bool finishesAtOnce = false) {
    auto operation = std::make_shared<TestOperation>("", finishesAtOnce);
    operation->setStartsOnCurrentThread(true);
    return operation;
  }
  /// Fills in the thread on which it was started.
  static void recordThread(TestOperation& operation, std::thread::id& thread) {
    operation.onStart = [&thread] { thread = std::this_thread::get_id(); };
  }

  std::unique_ptr<BackgroundQueue> background = BackgroundQueue::makePool(1);
  OperationQueue queue{*background};
};

TEST_F(OperationQueueInlineStartTests, StartsInsideTheCallThatAdds) {
  const auto operation = make();
  std::thread::id thread;
  recordThread(*operation, thread);
  queue.addOperation(operation);
  EXPECT_EQ(thread, std::this_thread::get_id());
  EXPECT_EQ(operation->starts, 1);
  operation->finish();
  EXPECT_EQ(queue.operationCount(), 0U);
}

TEST_F(OperationQueueInlineStartTests, StartsInsideTheEndThatMakesRoom) {
  queue.setMaxConcurrentOperationCount(1);
  const auto first = make();
  const auto second = make();
  std::thread::id thread;
  recordThread(*second, thread);
  queue.addOperation(first);
  queue.addOperation(second);
  EXPECT_EQ(second->starts, 0);
  std::thread::id ended;
  std::thread([&] {
    ended = std::this_thread::get_id();
    first->finish();
  }).join();
  EXPECT_EQ(second->starts, 1);
  EXPECT_EQ(thread, ended);
  second->finish();
}

TEST_F(OperationQueueInlineStartTests, OthersStillStartInTheBackground) {
  const auto operation = std::make_shared<TestOperation>("", true);
  std::thread::id thread;
  recordThread(*operation, thread);
  queue.addOperation(operation);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(operation->starts, 1);
  EXPECT_NE(thread, std::this_thread::get_id());
}

// Each of them ends as it is started, and starts the next.
TEST_F(OperationQueueInlineStartTests, ALongRowThatEndsAtOnceDoesNotPileUpOnTheStack) {
  constexpr int count = 100'000;
  queue.setMaxConcurrentOperationCount(1);
  const auto gate = make();
  queue.addOperation(gate);
  std::vector<std::shared_ptr<TestOperation>> row;
  for (int i = 0; i < count; ++i) {
    row.push_back(make(true));
    queue.addOperation(row.back());
  }
  gate->finish();
  queue.waitUntilAllOperationsAreFinished();
  for (const auto& operation : row) ASSERT_EQ(operation->starts, 1);
}

TEST_F(OperationQueueInlineStartTests, WhatIsAddedByAStartIsStartedToo) {
  const auto outer = make();
  const auto inner = make(true);
  outer->onStart = [&] { queue.addOperation(inner); };
  queue.addOperation(outer);
  outer->finish();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(inner->starts, 1);
}

TEST_F(OperationQueueInlineStartTests, AStartThatThrowsEndsOnlyItself) {
  const test::LogRecording log;
  queue.setMaxConcurrentOperationCount(1);
  const auto bad = make();
  bad->onStart = [] { throw std::runtime_error("no paper"); };
  const auto good = make(true);
  queue.addOperation(bad);
  queue.addOperation(good);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(good->starts, 1);
  EXPECT_EQ(log->count(LogLevel::Error, "An operation could not be started: no paper"), 1U);
}

TEST_F(OperationQueueInlineStartTests, ACancelledOneIsStartedSoThatItCanEnd) {
  queue.setMaxConcurrentOperationCount(1);
  const auto first = make();
  const auto second = make();
  queue.addOperation(first);
  queue.addOperation(second);
  second->cancel();
  first->finish();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(second->starts, 1);
  EXPECT_TRUE(second->isFinished());
}

// Whoever hears of an end before the queue may have to cancel what would come next.
TEST_F(OperationQueueInlineStartTests, NothingStartsBeforeTheEndIsAnnounced) {
  /// Is finished by its flag when `start` returns, and says so later.
  struct Late : Operation {
    void start() override { finished_ = true; }
    bool isExecuting() const override { return false; }
    bool isFinished() const override { return finished_; }
    void announce() { didChangeValueForKey("isFinished"); }
    std::atomic<bool> finished_{false};
  };
  queue.setMaxConcurrentOperationCount(1);
  const auto late = std::make_shared<Late>();
  late->setStartsOnCurrentThread(true);
  const auto next = make();
  queue.addOperation(late);
  queue.addOperation(next);
  EXPECT_EQ(next->starts, 0);
  late->announce();
  EXPECT_EQ(next->starts, 1);
  next->finish();
}

TEST_F(OperationQueueInlineStartTests, ManyThreadsMayEndAndAddAtOnce) {
  constexpr int each = 2'000;
  queue.setMaxConcurrentOperationCount(3);
  std::vector<std::shared_ptr<TestOperation>> all;
  for (int i = 0; i < 4 * each; ++i) all.push_back(make(true));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < each; ++i) queue.addOperation(all[static_cast<std::size_t>(t * each + i)]);
    });
  }
  for (auto& thread : threads) thread.join();
  queue.waitUntilAllOperationsAreFinished();
  for (const auto& operation : all) ASSERT_EQ(operation->starts, 1);
}

}  // namespace
}  // namespace ferrox
