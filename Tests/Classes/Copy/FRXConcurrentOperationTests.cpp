#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Classes/Copy/FRXConcurrentOperation.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/Queues/OperationQueue.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

// Counts how often its work is begun; the test ends it.
class CountingOperation : public FRXConcurrentOperation {
 public:
  void start() override {
    if (!isStartable()) return;
    updateIsExecuting(true);
    ++begun;
  }
  void fail(FRXError error) {
    setError(std::move(error));
    finish();
  }
  std::atomic<int> begun{0};
};

// Every announcement with the flag's value at that moment, as "will isExecuting 0".
class RecordingObserver : public OperationObserver {
 public:
  void operationWillChangeValue(Operation& operation, std::string_view key) override {
    add("will ", operation, key);
  }
  void operationDidChangeValue(Operation& operation, std::string_view key) override {
    add("did ", operation, key);
  }
  std::vector<std::string> changes;

 private:
  void add(const char* when, const Operation& operation, std::string_view key) {
    const bool value = key == "isExecuting" ? operation.isExecuting() : operation.isFinished();
    changes.push_back(when + std::string(key) + (value ? " 1" : " 0"));
  }
};

using Changes = std::vector<std::string>;

class FRXConcurrentOperationTests : public ::testing::Test {
 protected:
  FRXConcurrentOperationTests() { operation_->addObserver(observer_); }

  std::shared_ptr<RecordingObserver> observer_ = std::make_shared<RecordingObserver>();
  std::shared_ptr<CountingOperation> operation_ = std::make_shared<CountingOperation>();
};

TEST_F(FRXConcurrentOperationTests, BeginsWithNeitherFlagNorErrorNorUserInfo) {
  EXPECT_FALSE(operation_->isExecuting());
  EXPECT_FALSE(operation_->isFinished());
  EXPECT_FALSE(operation_->error());
  EXPECT_TRUE(operation_->userInfo().empty());
  EXPECT_TRUE(operation_->isConcurrent());
  EXPECT_TRUE(operation_->isStartable());
  EXPECT_TRUE(observer_->changes.empty());
}

TEST_F(FRXConcurrentOperationTests, StartOfTheBaseDoesNothing) {
  FRXConcurrentOperation base;
  base.start();
  EXPECT_FALSE(base.isExecuting());
  EXPECT_FALSE(base.isFinished());
}

TEST_F(FRXConcurrentOperationTests, ChangesAreAnnouncedBeforeAndAfterTheFlagIsStored) {
  operation_->start();
  EXPECT_EQ(observer_->changes, (Changes{"will isExecuting 0", "did isExecuting 1"}));
}

TEST_F(FRXConcurrentOperationTests, FinishEndsExecutingBeforeItFinishes) {
  operation_->start();
  observer_->changes.clear();
  operation_->finish();
  EXPECT_EQ(observer_->changes,
            (Changes{"will isExecuting 1", "did isExecuting 0", "will isFinished 0", "did isFinished 1"}));
  EXPECT_FALSE(operation_->isExecuting());
  EXPECT_TRUE(operation_->isFinished());
}

TEST_F(FRXConcurrentOperationTests, SecondStartIsIgnoredWhileExecutingAndOnceFinished) {
  operation_->start();
  operation_->start();
  EXPECT_EQ(operation_->begun, 1);
  EXPECT_FALSE(operation_->isStartable());
  operation_->finish();
  operation_->start();
  EXPECT_EQ(operation_->begun, 1);
  EXPECT_FALSE(operation_->isStartable());
}

TEST_F(FRXConcurrentOperationTests, CancelledOperationIsFinishedByBeingAsked) {
  operation_->cancel();
  EXPECT_FALSE(operation_->isFinished());
  observer_->changes.clear();
  EXPECT_FALSE(operation_->isStartable());
  EXPECT_TRUE(operation_->isFinished());
  EXPECT_EQ(observer_->changes, (Changes{"will isFinished 0", "did isFinished 1"}));
}

TEST_F(FRXConcurrentOperationTests, OperationCancelledBeforeItsQueueStartsItEndsFinishedWithoutWork) {
  const auto background = BackgroundQueue::makePool(2);
  OperationQueue queue(*background);
  operation_->cancel();
  queue.addOperation(operation_);
  EXPECT_TRUE(waitFor([&queue] { return queue.operationCount() == 0; }));
  EXPECT_TRUE(operation_->isFinished());
  EXPECT_FALSE(operation_->error());
  EXPECT_EQ(operation_->begun, 0);
}

TEST_F(FRXConcurrentOperationTests, QueueKeepsItUntilItIsFinished) {
  const auto background = BackgroundQueue::makePool(2);
  OperationQueue queue(*background);
  queue.addOperation(operation_);
  ASSERT_TRUE(waitFor([this] { return operation_->begun == 1; }));
  EXPECT_EQ(queue.operationCount(), 1u);
  operation_->fail({"com.ferrox.download.Test.ErrorDomain", -1, "no luck"});
  EXPECT_TRUE(waitFor([&queue] { return queue.operationCount() == 0; }));
  ASSERT_TRUE(operation_->error());
  EXPECT_EQ(operation_->error()->localizedDescription, "no luck");
}

TEST_F(FRXConcurrentOperationTests, KeepsWhatTheClientAttaches) {
  operation_->setUserInfo({{"file", "a.mov"}, {"index", 7}});
  EXPECT_EQ(operation_->userInfo(), (FRXDictionary{{"file", "a.mov"}, {"index", 7}}));
}

}  // namespace
}  // namespace ferrox::test
