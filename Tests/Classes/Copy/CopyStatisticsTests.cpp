// What is counted of copies, and that it is what the host served.
#include "Classes/Copy/CopyCounters.h"
#include "Tests/Classes/Copy/CopyFixture.h"

namespace ferrox::test {
namespace {

class CopyStatistics : public CopyFixture {
 protected:
  CopyStatistics() { parts_.counters = counters_; }
  FRXCopyStatistics now() const { return counters_->statistics(); }

  const std::shared_ptr<CopyCounters> counters_ = std::make_shared<CopyCounters>();
};

TEST_F(CopyStatistics, BytesCopiedAreThoseThatTheHostServed) {
  put("a", bytesOf(10));
  put("deep/b", bytesOf(200'000));
  put("pieces", bytesOf(350'001));
  put("empty", "");
  const auto copy = copyFrom(
      share(), [](Builder& builder) { builder.maxContentLength = 300'000, builder.allowsEmptyFiles = true; });
  ASSERT_EQ(failureOf(copy), "");
  EXPECT_EQ(now().started, 1U);
  EXPECT_EQ(now().running, 0U);
  EXPECT_EQ(now().succeeded, 1U);
  EXPECT_EQ(now().failed + now().cancelled, 0U);
  EXPECT_EQ(now().files, 4U);
  EXPECT_EQ(now().bytes, 550'011U);
  EXPECT_EQ(httpServer_->statistics().fileBytesServed, now().bytes);
}

TEST_F(CopyStatistics, FilesThatAreThereAlreadyAreNotCopiedAgain) {
  put("a", bytesOf(10));
  put("b", bytesOf(20));
  const std::string url = share();
  copyFrom(url);
  const auto again = copyFrom(url, [](Builder& builder) { builder.resumes = true; });
  ASSERT_EQ(failureOf(again), "");
  EXPECT_EQ(now().succeeded, 2U);
  EXPECT_EQ(now().files, 4U);
  EXPECT_EQ(now().bytes, 30U);
}

TEST_F(CopyStatistics, ACopyRunsUntilItHasEnded) {
  put("a", bytesOf(10));
  std::optional<FRXCopyStatistics> meanwhile;
  listener_->onProgress = [&](std::uint64_t, std::uint64_t) { meanwhile = now(); };
  copyFrom(share());
  ASSERT_TRUE(meanwhile);
  EXPECT_EQ(meanwhile->running, 1U);
  EXPECT_EQ(meanwhile->bytes, 10U);
  EXPECT_EQ(meanwhile->succeeded, 0U);
  EXPECT_EQ(now().running, 0U);
}

TEST_F(CopyStatistics, EveryKindOfFailureCountsAsOne) {
  start();
  copyFrom("http://127.0.0.1:" + std::to_string(server_->port()) + "/nothing");
  EXPECT_EQ(now().failed, 1U) << "404";
  const ScriptedPeer garbled("no json", {});
  copyFrom(garbled.url());
  EXPECT_EQ(now().failed, 2U) << "no structure";
  const ScriptedPeer escaping(R"({"directories":[],"files":["../x"]})", {});
  copyFrom(escaping.url());
  EXPECT_EQ(now().failed, 3U) << "a path that leaves the destination";
  copyFrom(escaping.url(), [](Builder& builder) { builder.maxContentLength = 0; });
  EXPECT_EQ(now().failed, 4U) << "a setting that cannot be";
  const ScriptedPeer breaking(R"({"directories":[],"files":["x"]})", {{"x", "content"}},
                              [](ScriptedConnection&, const std::string& request) -> bool {
                                if (request.starts_with("GET ") && ScriptedPeer::fileOf(request) == "x")
                                  throw ScriptedPeer::HangUp();
                                return false;
                              });
  copyFrom(breaking.url());
  EXPECT_EQ(now().failed, 5U) << "a download that breaks, which cancels the others";
  EXPECT_EQ(now().started, 5U);
  EXPECT_EQ(now().running + now().succeeded + now().cancelled + now().files + now().bytes, 0U);
}

TEST_F(CopyStatistics, ACopyThatIsCancelledHasNeitherSucceededNorFailed) {
  put("a", bytesOf(10));
  const auto copy = make(share());
  listener_->onProgress = [&](std::uint64_t, std::uint64_t) { copy->cancel(); };
  run(copy);
  EXPECT_EQ(now().cancelled, 1U);
  EXPECT_EQ(now().succeeded + now().failed + now().running, 0U);
  listener_->onProgress = nullptr;
}

TEST_F(CopyStatistics, ACopyThatIsCancelledBeforeItStartsNeverCounts) {
  const auto copy = make("http://127.0.0.1:1/projects/P");
  copy->cancel();
  copy->start();
  EXPECT_EQ(now().started + now().cancelled + now().failed, 0U);
}

TEST_F(CopyStatistics, CopiesOfNobodyInParticularCountForTheProcess) {
  put("a", bytesOf(10));
  parts_.counters = nullptr;
  const FRXCopyStatistics before = CopyCounters::shared()->statistics();
  copyFrom(share());
  EXPECT_EQ(CopyCounters::shared()->statistics().bytes, before.bytes + 10);
  EXPECT_EQ(CopyCounters::shared()->statistics().succeeded, before.succeeded + 1);
}

}  // namespace
}  // namespace ferrox::test
