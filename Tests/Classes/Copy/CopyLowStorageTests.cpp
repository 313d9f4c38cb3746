// What happens when free space is short.
#include <thread>

#include "Tests/Classes/Copy/CopyFixture.h"

namespace ferrox::test {
namespace {

using Decision = CopyR24ProjectOperationDelegate::Decision;

class CopyLowStorageTests : public CopyFixture {
 protected:
  CopyLowStorageTests() { put("a", bytesOf(100)); }

  Copy copyWithFree(std::uint64_t bytes) {
    if (url_.empty()) url_ = share();
    parts_.freeDiskSpace = [bytes] { return bytes; };
    return copyFrom(url_);
  }
  bool isCopied() const { return treeOf(destination()) == treeOf(project()); }
  bool isWarned() const { return listener_->calls().front() == "lowStorage"; }

  std::string url_;
};

/// Implements everything but the warning.
class UnwarnedListener final : public CopyR24ProjectOperationDelegate {
 public:
  void copyOperationDidComplete(const std::string&, bool success, const std::optional<FRXError>&) override {
    ++(success ? successes : failures);
  }
  std::atomic<int> successes{0};
  std::atomic<int> failures{0};
};

TEST_F(CopyLowStorageTests, TheWarningComesBelowThreeTimesTheProject) {
  listener_->onLowStorage = [](const Decision& onContinue, const Decision&) { onContinue(); };
  struct Case {
    std::uint64_t free;
    bool warned;
  };
  // What is smaller than the project wraps around and is taken for plenty.
  for (const auto& [free, warned] : {Case{250, true}, Case{299, true}, Case{300, false}, Case{50, false},
                                     Case{99, false}, Case{100, true}, Case{0, false}}) {
    listener_ = std::make_shared<RecordingCopyListener>();
    listener_->onLowStorage = [](const Decision& onContinue, const Decision&) { onContinue(); };
    const auto copy = copyWithFree(free);
    EXPECT_EQ(isWarned(), warned) << free;
    EXPECT_EQ(failureOf(copy), "");
    EXPECT_EQ(copy->freeDiskSpace(), free);
    EXPECT_EQ(copy->projectSize(), 100U);
    EXPECT_TRUE(isCopied());
  }
}

TEST_F(CopyLowStorageTests, ContinuingHasCopiedWhenItReturns) {
  bool copied = false;
  listener_->onLowStorage = [&](const Decision& onContinue, const Decision&) {
    onContinue();
    copied = isCopied();
  };
  copyWithFree(250);
  EXPECT_TRUE(copied);
  EXPECT_EQ(listener_->calls(), (Calls{"lowStorage", "progress", "success"}));
}

TEST_F(CopyLowStorageTests, AbortingFailsTheCopy) {
  listener_->onLowStorage = [](const Decision&, const Decision& onAbort) { onAbort(); };
  const auto copy = copyWithFree(250);
  EXPECT_EQ(failureOf(copy), "copy project operation cancelled by caller due to low storage warning");
  EXPECT_EQ(copy->error()->code, -1);
  EXPECT_EQ(listener_->calls(), (Calls{"lowStorage", "failure"}));
  EXPECT_FALSE(isCopied());
}

TEST_F(CopyLowStorageTests, WithoutADecisionNothingIsCopiedAndThatIsASuccess) {
  const auto copy = copyWithFree(250);
  EXPECT_EQ(failureOf(copy), "");
  EXPECT_EQ(listener_->calls(), (Calls{"lowStorage", "success"}));
  EXPECT_TRUE(treeOf(destination()).empty());
}

TEST_F(CopyLowStorageTests, WithoutAListenerNothingIsCopiedAndThatIsASuccess) {
  parts_.freeDiskSpace = [] { return std::uint64_t{250}; };
  const auto copy = copyFrom(share(), [](Builder& builder) { builder.setDelegate(nullptr); });
  EXPECT_EQ(failureOf(copy), "");
  EXPECT_TRUE(treeOf(destination()).empty());
}

TEST_F(CopyLowStorageTests, SoItIsWithAListenerThatDoesNotImplementTheWarning) {
  parts_.freeDiskSpace = [] { return std::uint64_t{250}; };
  const auto listener = std::make_shared<UnwarnedListener>();
  copyFrom(share(), [&](Builder& builder) { builder.setDelegate(listener); });
  EXPECT_EQ(listener->successes, 1);
  EXPECT_EQ(listener->failures, 0);
  EXPECT_TRUE(treeOf(destination()).empty());
}

TEST_F(CopyLowStorageTests, TheFirstDecisionCounts) {
  listener_->onLowStorage = [](const Decision& onContinue, const Decision& onAbort) {
    onAbort();
    onContinue();
    onAbort();
  };
  EXPECT_TRUE(copyWithFree(250)->error());
  EXPECT_FALSE(isCopied());
  listener_->onLowStorage = [](const Decision& onContinue, const Decision& onAbort) {
    onContinue();
    onContinue();
    onAbort();
  };
  EXPECT_FALSE(copyWithFree(250)->error());
  EXPECT_TRUE(isCopied());
}

TEST_F(CopyLowStorageTests, ADecisionAfterTheListenerHasReturnedComesTooLate) {
  Decision later;
  listener_->onLowStorage = [&](const Decision& onContinue, const Decision&) { later = onContinue; };
  const auto copy = copyWithFree(250);
  later();
  EXPECT_FALSE(isCopied());
  EXPECT_EQ(listener_->calls(), (Calls{"lowStorage", "success"}));
}

TEST_F(CopyLowStorageTests, AnotherThreadMayDecideAndIsWaitedFor) {
  std::thread decider;
  std::atomic<bool> begun{false};
  listener_->onProgress = [&](std::uint64_t, std::uint64_t) { begun = true; };
  listener_->onLowStorage = [&](const Decision& onContinue, const Decision&) {
    decider = std::thread(onContinue);
    waitFor([&] { return begun.load(); }, copyPatience);
  };
  copyWithFree(250);
  decider.join();
  EXPECT_TRUE(isCopied());
  EXPECT_EQ(listener_->calls(), (Calls{"lowStorage", "progress", "success"}));
}

TEST_F(CopyLowStorageTests, AListenerThatThrowsDoesNotBringTheCopyDown) {
  listener_->onLowStorage = [](const Decision&, const Decision&) { throw std::runtime_error("no"); };
  copyWithFree(250);
  EXPECT_EQ(listener_->calls(), (Calls{"lowStorage", "success"}));
  listener_ = std::make_shared<RecordingCopyListener>();
  listener_->onProgress = [](std::uint64_t, std::uint64_t) { throw std::runtime_error("no"); };
  listener_->onComplete = [] { throw std::runtime_error("no"); };
  EXPECT_EQ(failureOf(copyWithFree(1000)), "");
  EXPECT_EQ(listener_->calls(), (Calls{"progress", "success"}));
}

TEST_F(CopyLowStorageTests, TheRealDiskHasSomethingFree) {
  EXPECT_GT(CopyR24ProjectOperationParts::usual().freeDiskSpace(), 0U);
}

}  // namespace
}  // namespace ferrox::test
