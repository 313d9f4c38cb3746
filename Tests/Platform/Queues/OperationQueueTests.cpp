#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Base/Mutex.h"
#include "Platform/Queues/OperationQueue.h"
#include "Tests/Platform/Queues/TestOperation.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox {
namespace {

using namespace std::chrono_literals;
using test::TestOperation;

struct OperationQueueTest : testing::Test {
  static std::shared_ptr<TestOperation> make(std::string name = {}) {
    return std::make_shared<TestOperation>(std::move(name));
  }
  static std::shared_ptr<TestOperation> makeQuick() { return std::make_shared<TestOperation>("", true); }
  static bool starts(const TestOperation& operation) {
    return test::waitFor([&] { return operation.starts == 1; });
  }
  /// Everything that was posted to the background has run by then.
  void settle() {
    std::atomic<bool> reached{false};
    background->post([&] { reached = true; });
    ASSERT_TRUE(test::waitFor([&] { return reached.load(); }));
  }

  // One thread, so that `settle` proves that nothing more was started.
  std::unique_ptr<BackgroundQueue> background = BackgroundQueue::makePool(1);
  OperationQueue queue{*background};
};

TEST_F(OperationQueueTest, StartsOperationsInTheOrderOfAdding) {
  std::string order;
  std::vector<std::shared_ptr<TestOperation>> operations;
  for (char c = 'a'; c <= 'e'; ++c) {
    operations.push_back(makeQuick());
    operations.back()->onStart = [&order, c] { order += c; };
    queue.addOperation(operations.back());
  }
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(order, "abcde");
  EXPECT_EQ(queue.operationCount(), 0U);
}

TEST_F(OperationQueueTest, HoldsAnOperationUntilItIsFinished) {
  auto operation = make();
  const std::weak_ptr<Operation> held = operation;
  queue.addOperation(operation);
  ASSERT_TRUE(starts(*operation));
  EXPECT_EQ(queue.operations(), std::vector<std::shared_ptr<Operation>>{operation});
  operation->finish();
  EXPECT_EQ(queue.operationCount(), 0U);
  settle();
  operation.reset();
  EXPECT_TRUE(held.expired());
}

TEST_F(OperationQueueTest, NeverStartsMoreThanItsLimit) {
  queue.setMaxConcurrentOperationCount(2);
  EXPECT_EQ(queue.maxConcurrentOperationCount(), 2);
  std::vector<std::shared_ptr<TestOperation>> operations;
  for (int i = 0; i < 4; ++i) {
    operations.push_back(make());
    queue.addOperation(operations.back());
  }
  ASSERT_TRUE(starts(*operations[1]));
  settle();
  EXPECT_EQ(operations[2]->starts, 0);
  operations[0]->finish();
  ASSERT_TRUE(starts(*operations[2]));
  settle();
  EXPECT_EQ(operations[3]->starts, 0);
  queue.setMaxConcurrentOperationCount(OperationQueue::defaultMaxConcurrentOperationCount);
  EXPECT_TRUE(starts(*operations[3]));
  for (const auto& operation : operations) operation->finish();
}

TEST_F(OperationQueueTest, AnOperationThatNeverSaysItExecutesOccupiesItsSlot) {
  queue.setMaxConcurrentOperationCount(1);
  const auto silent = make();
  silent->announcesExecuting = false;
  const auto next = make();
  queue.addOperation(silent);
  queue.addOperation(next);
  ASSERT_TRUE(starts(*silent));
  settle();
  EXPECT_EQ(next->starts, 0);
  silent->finish();
  EXPECT_TRUE(starts(*next));
  next->finish();
}

TEST_F(OperationQueueTest, ALimitOfZeroStartsNothing) {
  queue.setMaxConcurrentOperationCount(0);
  const auto operation = make();
  queue.addOperation(operation);
  settle();
  EXPECT_EQ(operation->starts, 0);
  queue.setMaxConcurrentOperationCount(1);
  EXPECT_TRUE(starts(*operation));
  operation->finish();
}

TEST_F(OperationQueueTest, WaitsForDependencies) {
  const auto first = make();
  const auto second = make();
  const auto last = make();
  last->addDependency(first);
  last->addDependency(second);
  queue.addOperation(last);
  queue.addOperation(first);
  queue.addOperation(second);
  ASSERT_TRUE(starts(*second));
  second->finish();
  settle();
  EXPECT_EQ(last->starts, 0);
  first->finish();
  EXPECT_TRUE(starts(*last));
  last->finish();
}

TEST_F(OperationQueueTest, WaitsForADependencyInAnotherQueue) {
  OperationQueue other(*background);
  const auto first = make();
  const auto last = make();
  last->addDependency(first);
  queue.addOperation(last);
  other.addOperation(first);
  ASSERT_TRUE(starts(*first));
  settle();
  EXPECT_EQ(last->starts, 0);
  first->finish();
  EXPECT_TRUE(starts(*last));
  last->finish();
}

TEST_F(OperationQueueTest, ADependencyThatIsFinishedAlreadyDoesNotHold) {
  const auto first = makeQuick();
  queue.addOperation(first);
  queue.waitUntilAllOperationsAreFinished();
  const auto last = make();
  last->addDependency(first);
  queue.addOperation(last);
  EXPECT_TRUE(starts(*last));
  last->finish();
}

TEST_F(OperationQueueTest, ACancelledOperationIsStartedSoThatItCanFinishItself) {
  queue.setMaxConcurrentOperationCount(1);
  const auto running = make();
  const auto waiting = make();
  queue.addOperation(running);
  queue.addOperation(waiting);
  ASSERT_TRUE(starts(*running));
  waiting->cancel();
  EXPECT_FALSE(waiting->isFinished());
  running->finish();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(waiting->starts, 1);
  EXPECT_TRUE(waiting->isFinished());
  EXPECT_TRUE(waiting->isCancelled());
}

TEST_F(OperationQueueTest, ACancelledOperationDoesNotWaitForItsDependencies) {
  const auto first = make();
  const auto last = make();
  last->addDependency(first);
  queue.addOperation(last);
  settle();
  last->cancel();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(last->starts, 1);
  EXPECT_EQ(first->starts, 0);
}

TEST_F(OperationQueueTest, ADependencyMayBeNamedTwice) {
  const auto first = make();
  const auto last = make();
  last->addDependency(first);
  last->addDependency(first);
  queue.addOperation(last);
  queue.addOperation(first);
  ASSERT_TRUE(starts(*first));
  EXPECT_EQ(last->starts, 0);
  first->finish();
  EXPECT_TRUE(starts(*last));
  last->finish();
}

TEST_F(OperationQueueTest, ADependencyWhoseStartThrowsHoldsNobody) {
  const test::LogRecording log;
  const auto bad = make();
  bad->onStart = [] { throw 1; };
  const auto last = makeQuick();
  last->addDependency(bad);
  queue.addOperation(last);
  queue.addOperation(bad);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(last->starts, 1);
}

TEST_F(OperationQueueTest, ADependencyMayEndAfterTheOneThatWaitedWasCancelled) {
  const auto first = make();
  auto last = make();
  last->addDependency(first);
  queue.addOperation(first);
  queue.addOperation(last);
  last->cancel();
  ASSERT_TRUE(test::waitFor([&] { return queue.operationCount() == 1; }));
  last.reset();
  first->finish();
  queue.waitUntilAllOperationsAreFinished();
}

TEST_F(OperationQueueTest, LetsGoOfDependenciesOnceFinished) {
  auto first = makeQuick();
  const std::weak_ptr<Operation> held = first;
  const auto last = makeQuick();
  last->addDependency(first);
  queue.addOperation(first);
  queue.addOperation(last);
  first.reset();
  queue.waitUntilAllOperationsAreFinished();
  settle();
  EXPECT_TRUE(held.expired());
  EXPECT_TRUE(last->dependencies().empty());
}

TEST_F(OperationQueueTest, RunsLongChainsAddedInReverse) {
  std::vector<std::shared_ptr<TestOperation>> chain;
  std::vector<int> order;
  for (int i = 0; i < 3000; ++i) {
    chain.push_back(makeQuick());
    chain.back()->onStart = [&order, i] { order.push_back(i); };
    if (i > 0) chain.back()->addDependency(chain[static_cast<std::size_t>(i) - 1]);
  }
  for (auto operation = chain.rbegin(); operation != chain.rend(); ++operation)
    queue.addOperation(*operation);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(order.size(), chain.size());
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(OperationQueueTest, CancellingAllReachesEveryOperation) {
  std::vector<std::shared_ptr<TestOperation>> operations;
  queue.setMaxConcurrentOperationCount(1);
  for (int i = 0; i < 3; ++i) {
    operations.push_back(make());
    queue.addOperation(operations.back());
  }
  ASSERT_TRUE(starts(*operations[0]));
  queue.cancelAllOperations();
  for (const auto& operation : operations) EXPECT_TRUE(operation->isCancelled());
  EXPECT_EQ(queue.operationCount(), 3U) << "the one that runs decides itself how soon it ends";
  operations[0]->finish();
  queue.waitUntilAllOperationsAreFinished();
}

TEST_F(OperationQueueTest, NothingRunsInThePlaceOfWhatEndsByBeingCancelled) {
  /// Ends as soon as it is cancelled, and then has its successor started before the next one is cancelled.
  class Prompt final : public Operation {
   public:
    explicit Prompt(std::atomic<int>& ran) : ran_(ran) {}
    void start() override {
      if (isCancelled()) return end();
      ++ran_;
    }
    void cancel() override {
      Operation::cancel();
      end();
      std::this_thread::sleep_for(5ms);
    }
    bool isExecuting() const override { return false; }
    bool isFinished() const override { return finished_; }

   private:
    void end() {
      finished_ = true;
      didChangeValueForKey("isFinished");
    }
    std::atomic<int>& ran_;
    std::atomic<bool> finished_{false};
  };
  std::atomic<int> ran{0};
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(1);
  for (int i = 0; i < 10; ++i) queue.addOperation(std::make_shared<Prompt>(ran));
  ASSERT_TRUE(test::waitFor([&] { return ran == 1; }));
  queue.cancelAllOperations();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(ran, 1);
}

TEST_F(OperationQueueTest, AddsAnEqualOperationOnlyOnce) {
  const auto first = make("same");
  const auto second = make("same");
  EXPECT_TRUE(queue.addOperationUnlessPresent(first));
  EXPECT_FALSE(queue.addOperationUnlessPresent(second));
  const auto other = make("other");
  EXPECT_TRUE(queue.addOperationUnlessPresent(other));
  ASSERT_TRUE(starts(*first));
  EXPECT_FALSE(queue.addOperationUnlessPresent(second)) << "executing counts as present";
  first->finish();
  EXPECT_TRUE(queue.addOperationUnlessPresent(second));
  EXPECT_FALSE(queue.addOperationUnlessPresent(nullptr));
  ASSERT_TRUE(starts(*second));
  ASSERT_TRUE(starts(*other));
  other->finish();
  second->finish();
}

TEST_F(OperationQueueTest, OfManyThreadsExactlyOneAddsAnEqualOperation) {
  queue.setMaxConcurrentOperationCount(0);
  std::atomic<int> added{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 100; ++i) {
        if (queue.addOperationUnlessPresent(make(std::to_string(i)))) ++added;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(added, 100);
  EXPECT_EQ(queue.operationCount(), 100U);
  queue.cancelAllOperations();
  queue.setMaxConcurrentOperationCount(-1);
  queue.waitUntilAllOperationsAreFinished();
}

TEST_F(OperationQueueTest, RefusesTheSameOperationTwice) {
  const test::LogRecording log;
  const auto operation = make();
  queue.addOperation(operation);
  queue.addOperation(operation);
  queue.addOperation(nullptr);
  EXPECT_EQ(queue.operationCount(), 1U);
  EXPECT_EQ(log->entries().size(), 2U);
  ASSERT_TRUE(starts(*operation));
  operation->finish();
  settle();
  EXPECT_EQ(operation->starts, 1);
}

TEST_F(OperationQueueTest, AFinishedOperationLeavesAtOnce) {
  const auto operation = makeQuick();
  operation->start();
  queue.addOperation(operation);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(queue.operationCount(), 0U);
}

TEST_F(OperationQueueTest, AnOperationWhoseStartThrowsCountsAsFinished) {
  const test::LogRecording log;
  queue.setMaxConcurrentOperationCount(1);
  const auto bad = make();
  bad->onStart = [] { throw std::runtime_error("cannot begin"); };
  const auto next = makeQuick();
  queue.addOperation(bad);
  queue.addOperation(next);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(next->starts, 1);
  EXPECT_TRUE(log->mentions(LogLevel::Error, "cannot begin"));
}

TEST_F(OperationQueueTest, AnOperationThatIsNotConcurrentIsOverWhenStartReturns) {
  struct Plain : Operation {
    void start() override { ran = true; }
    bool isConcurrent() const override { return false; }
    bool isExecuting() const override { return false; }
    bool isFinished() const override { return ran; }
    std::atomic<bool> ran{false};
  };
  const auto operation = std::make_shared<Plain>();
  queue.addOperation(operation);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(operation->ran);
}

TEST_F(OperationQueueTest, DestroyingTheQueueCancelsAndLetsItsOperationsEnd) {
  auto shortLived = std::make_unique<OperationQueue>(*background);
  shortLived->setMaxConcurrentOperationCount(1);
  const auto running = make();
  const auto waiting = make();
  shortLived->addOperation(running);
  shortLived->addOperation(waiting);
  ASSERT_TRUE(starts(*running));
  shortLived.reset();
  EXPECT_TRUE(running->isCancelled());
  EXPECT_TRUE(waiting->isCancelled());
  running->finish();
  EXPECT_TRUE(test::waitFor([&] { return waiting->isFinished(); }));
}

TEST_F(OperationQueueTest, FinishesManyOperationsFromManyThreads) {
  const auto pool = BackgroundQueue::makePool(4);
  {
    OperationQueue busy(*pool);
    busy.setMaxConcurrentOperationCount(3);
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::atomic<int> finished{0};
    std::shared_ptr<TestOperation> previous;
    for (int i = 0; i < 300; ++i) {
      auto operation = make();
      operation->onStart = [&, raw = operation.get()] {
        const int now = ++inside;
        int seen = most;
        while (seen < now && !most.compare_exchange_weak(seen, now)) {
        }
        pool->post([&, kept = raw->shared_from_this()] {
          --inside;
          ++finished;
          static_cast<TestOperation&>(*kept).finish();
        });
      };
      if (i % 5 == 4) operation->addDependency(previous);
      previous = operation;
      busy.addOperation(operation);
    }
    busy.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(finished, 300);
    EXPECT_LE(most, 3);
  }
}

}  // namespace
}  // namespace ferrox
