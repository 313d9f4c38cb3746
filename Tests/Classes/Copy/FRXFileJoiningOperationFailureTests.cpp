#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>

#include "Platform/Base/PosixError.h"
#include "Platform/Queues/OperationQueue.h"
#include "Tests/Classes/Copy/JoiningFixture.h"
#include "Tests/Support/FileSizeLimit.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox::test {
namespace {

using Names = std::vector<std::string>;

class FRXFileJoiningOperationFailureTests : public JoiningFixture {
 protected:
  static void expectError(const FRXFileJoiningOperation& operation, int code) {
    EXPECT_TRUE(operation.isFinished());
    ASSERT_TRUE(operation.error());
    EXPECT_EQ(operation.error()->domain, PosixErrorDomain);
    EXPECT_EQ(operation.error()->code, code);
  }
};

TEST_F(FRXFileJoiningOperationFailureTests, MissingPieceEndsTheJoinAfterThoseBeforeIt) {
  folder_.write("a", "first");
  folder_.write("c", "third");
  const auto operation = joinOf({"a", "b", "c"});
  operation->start();
  expectError(*operation, ENOENT);
  EXPECT_EQ(contentOf(path()), "first");
  EXPECT_EQ(namesIn(folder_.path()), (Names{"c", "master"}));
}

TEST_F(FRXFileJoiningOperationFailureTests, PieceThatCannotBeReadStaysAndEndsTheJoin) {
  folder_.write("a", "first");
  std::filesystem::create_directory(folder_.path() / "b");
  const auto operation = joinOf({"a", "b"});
  operation->start();
  expectError(*operation, EISDIR);
  EXPECT_EQ(contentOf(path()), "first");
  EXPECT_EQ(namesIn(folder_.path()), (Names{"b", "master"}));
}

TEST_F(FRXFileJoiningOperationFailureTests, PieceThatCannotBeRemovedEndsTheJoinOnceAppended) {
  folder_.write("a", "first ");
  folder_.write("c", "third");
  // Can be read by everybody and removed by nobody.
  const std::string fixed = "/proc/sys/kernel/ostype";
  const auto operation = joinOf({"a"});
  operation->addFiles({fixed, path("c")});
  operation->start();
  ASSERT_TRUE(operation->error());
  EXPECT_EQ(operation->error()->domain, PosixErrorDomain);
  EXPECT_EQ(contentOf(path()), "first Linux\n");
  EXPECT_EQ(namesIn(folder_.path()), (Names{"c", "master"}));
}

TEST_F(FRXFileJoiningOperationFailureTests, MasterThatCannotBeCreatedIsNoError) {
  const auto piece = folder_.write("a", "first");
  for (const std::string& master : {path("missing/master"), folder_.path().string(), std::string()}) {
    const auto operation = std::make_shared<FRXFileJoiningOperation>(master);
    operation->addFile(piece);
    operation->start();
    EXPECT_TRUE(operation->isFinished());
    EXPECT_FALSE(operation->isExecuting());
    EXPECT_FALSE(operation->error());
    EXPECT_EQ(contentOf(piece), "first");
  }
}

TEST_F(FRXFileJoiningOperationFailureTests, MasterThatCannotBeWrittenIsLoggedAndNoError) {
  folder_.write("a", std::string(30'000, 'a'));
  folder_.write("b", std::string(30'000, 'b'));
  folder_.write("c", std::string(10, 'c'));
  const LogRecording log(LogLevel::Warn);
  const auto operation = joinOf({"a", "b", "c"});
  {
    const FileSizeLimit full(50'000);
    operation->start();
  }
  EXPECT_TRUE(operation->isFinished());
  EXPECT_FALSE(operation->error());
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "exception joining files: EFBIG - File too large"));
  EXPECT_EQ(contentOf(path()), std::string(30'000, 'a'));
  EXPECT_EQ(namesIn(folder_.path()), (Names{"b", "c", "master"}));
  EXPECT_EQ(contentOf(path("b")), std::string(30'000, 'b'));
}

TEST_F(FRXFileJoiningOperationFailureTests, CancelledBeforeItsStartItTouchesNothing) {
  folder_.write("master", "before");
  folder_.write("a", "first");
  const auto operation = joinOf({"a"});
  operation->cancel();
  operation->start();
  EXPECT_TRUE(operation->isFinished());
  EXPECT_FALSE(operation->isExecuting());
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(contentOf(path()), "before");
  EXPECT_EQ(contentOf(path("a")), "first");
}

/// Cancels an operation at the moment when it says that it executes.
class CancellingObserver : public OperationObserver {
 public:
  void operationWillChangeValue(Operation&, std::string_view) override {}
  void operationDidChangeValue(Operation& operation, std::string_view key) override {
    if (key == "isExecuting" && operation.isExecuting()) operation.cancel();
  }
};

TEST_F(FRXFileJoiningOperationFailureTests, CancelledWhileItRunsItStopsBeforeTheNextPiece) {
  folder_.write("master", "before");
  folder_.write("a", "first");
  const auto operation = joinOf({"a"});
  const auto observer = std::make_shared<CancellingObserver>();
  operation->addObserver(observer);
  operation->start();
  EXPECT_TRUE(operation->isFinished());
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(contentOf(path()), "");
  EXPECT_EQ(contentOf(path("a")), "first");
}

TEST_F(FRXFileJoiningOperationFailureTests, CancelledAtAnyMomentTheMasterHoldsWholePieces) {
  constexpr int pieces = 200;
  for (int round = 0; round < 5; ++round) {
    const TemporaryDirectory folder;
    const auto operation = std::make_shared<FRXFileJoiningOperation>(folder.path() / "master");
    std::vector<std::string> contents;
    for (int i = 0; i < pieces; ++i) {
      contents.push_back(std::string(static_cast<std::size_t>(i + 1), static_cast<char>('a' + i % 26)));
      operation->addFile(folder.write(std::to_string(i), contents.back()));
    }
    OperationQueue queue;
    queue.addOperation(operation);
    const auto someGone = [&] {
      return !std::filesystem::exists(folder.path() / std::to_string(round * 20));
    };
    ASSERT_TRUE(waitFor(someGone, longPatience));
    operation->cancel();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_FALSE(operation->error());
    std::string expected;
    for (int i = 0; i < pieces; ++i) {
      const auto piece = folder.path() / std::to_string(i);
      if (std::filesystem::exists(piece)) {
        EXPECT_EQ(contentOf(piece), contents[static_cast<std::size_t>(i)]);
      } else {
        expected += contents[static_cast<std::size_t>(i)];
      }
    }
    EXPECT_EQ(contentOf(folder.path() / "master"), expected);
  }
}

TEST_F(FRXFileJoiningOperationFailureTests, ResumableJoinThatFailsLeavesEverythingAndSaysWhy) {
  folder_.write("master", "before");
  folder_.write("a", std::string(30'000, 'a'));
  folder_.write("b", std::string(30'000, 'b'));
  const auto missing = joinOf({"a", "missing"});
  missing->setIsResumable(true);
  missing->start();
  expectError(*missing, ENOENT);
  const auto unwritable = joinOf({"a", "b"});
  unwritable->setIsResumable(true);
  {
    const FileSizeLimit full(50'000);
    unwritable->start();
  }
  EXPECT_EQ(unwritable->error(), (FRXError{"com.ferrox.download.FRXFileJoiningOperation.ErrorDomain", -1,
                                           "exception joining files: EFBIG - File too large"}));
  const auto cancelled = joinOf({"a", "b"});
  const auto observer = std::make_shared<CancellingObserver>();
  cancelled->addObserver(observer);
  cancelled->setIsResumable(true);
  cancelled->start();
  EXPECT_FALSE(cancelled->error());
  EXPECT_EQ(contentOf(path()), "before");
  EXPECT_EQ(namesIn(folder_.path()), (Names{"a", "b", "master"}));
  const auto homeless = std::make_shared<FRXFileJoiningOperation>(path("missing/master"));
  homeless->setIsResumable(true);
  homeless->start();
  expectError(*homeless, ENOENT);
}

}  // namespace
}  // namespace ferrox::test
