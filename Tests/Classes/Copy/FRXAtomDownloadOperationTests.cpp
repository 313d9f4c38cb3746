#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <limits>

#include "Classes/Copy/FRXAtomDownloadOperation.h"
#include "Tests/Classes/Copy/AtomFile.h"
#include "Tests/Classes/Copy/DownloadFixture.h"

namespace ferrox::test {
namespace {

using Operation = FRXAtomDownloadOperation;
using Events = std::vector<std::string>;

constexpr const char* domain = "com.ferrox.download.FRXAtomDownloadOperation.ErrorDomain";
constexpr const char* containerWarning =
    "It looks like there is a QT Atom Container at the root level of this file.";

struct Listener final : FRXAtomDownloadOperationDelegate {
  bool downloadOperationReceivedData(Operation& operation, std::string_view data) override {
    received.append(data);
    return onData ? onData(operation) : true;
  }
  void downloadOperationDidSucceed(Operation& operation, std::uint64_t size) override {
    events.push_back("success " + std::to_string(size));
    wasExecuting = operation.isExecuting();
    if (onSuccess) onSuccess(operation);
  }
  void downloadOperationDidFail(Operation& operation, const FRXError& error) override {
    events.push_back("failure " + std::to_string(error.code) + " " + error.localizedDescription);
    domains.push_back(error.domain);
    if (onFailure) onFailure(operation);
  }

  Events events;
  Events domains;
  std::string received;
  bool wasExecuting = false;
  std::function<bool(Operation&)> onData;
  std::function<void(Operation&)> onSuccess;
  std::function<void(Operation&)> onFailure;
};

struct SilentListener final : FRXAtomDownloadOperationDelegate {};

class FRXAtomDownloadOperationTests : public DownloadFixture {
 protected:
  std::shared_ptr<Operation> makeOperation(double timeout = 30) {
    auto operation = std::make_shared<Operation>(server_->url("/file.mov"), path(), timeout, platform());
    operation->setDelegate(listener_);
    return operation;
  }
  void setRemote(std::string content) {
    const std::lock_guard lock(remoteMutex_);
    remote_ = std::move(content);
  }
  /// Whatever the remote file is when it is asked for.
  void serveRemote() {
    serve([this](const SeenRequest& request, ScriptedConnection& connection) {
      std::string now;
      {
        const std::lock_guard lock(remoteMutex_);
        now = remote_;
      }
      answerRange(now, request, connection);
    });
  }
  void serveStatus(const std::string& statusLine) {
    serve([statusLine](const SeenRequest&, ScriptedConnection& connection) {
      connection.send(ScriptedHTTPServer::answer("no", statusLine));
    });
  }
  /// A transfer into which the test puts the blocks.
  std::shared_ptr<Operation> startByHand() {
    serve([](const SeenRequest&, ScriptedConnection& connection) { connection.stall(); });
    auto operation = makeOperation();
    operation->start();
    return operation;
  }
  static void feed(Operation& operation, std::optional<std::string_view> block) {
    operation.dataTaskDidReceiveData(*std::shared_ptr(operation.transferTask()), block);
  }
  bool waitForEvents(std::size_t count) {
    return wait([this, count] { return listener_->events.size() >= count; });
  }
  void runOnce(Operation& operation) {
    const auto before = listener_->events.size();
    operation.start();
    ASSERT_TRUE(waitForEvents(before + 1));
  }

  std::mutex remoteMutex_;
  std::string remote_;
  std::shared_ptr<Listener> listener_ = std::make_shared<Listener>();
};

TEST_F(FRXAtomDownloadOperationTests, BeginsAtTheStartWithoutATimeoutUnlessOneIsGiven) {
  const Operation operation("http://127.0.0.1/x", path(), noTransferTimeout, platform());
  EXPECT_EQ(operation.fromURL(), "http://127.0.0.1/x");
  EXPECT_EQ(operation.toPath(), path());
  EXPECT_EQ(operation.timeout(), std::numeric_limits<double>::max());
  EXPECT_EQ(operation.contentPosition(), 0u);
  EXPECT_EQ(operation.nextAtomPosition(), 0u);
  EXPECT_EQ(operation.sizeInBytes(), 0u);
  EXPECT_FALSE(operation.isExecuting());
  EXPECT_EQ(Operation("http://127.0.0.1/x", path(), -3, platform()).timeout(),
            std::numeric_limits<double>::max());
}

TEST_F(FRXAtomDownloadOperationTests, CompleteFileArrivesInOneRun) {
  setRemote(atom("ftyp", 12) + atom("mdat", 3000) + atom("moov", 100));
  serveRemote();
  const auto operation = makeOperation();
  runOnce(*operation);
  EXPECT_EQ(listener_->events, Events{"success " + std::to_string(remote_.size())});
  EXPECT_EQ(content(), remote_);
  EXPECT_EQ(operation->sizeInBytes(), remote_.size());
  EXPECT_EQ(operation->contentPosition(), remote_.size());
  EXPECT_EQ(operation->nextAtomPosition(), remote_.size());
  EXPECT_FALSE(listener_->wasExecuting);
  EXPECT_EQ(ranges(), Events{""});
}

TEST_F(FRXAtomDownloadOperationTests, AtomThatIsStillComingIsTakenAsFarAsItIs) {
  const std::string whole = atom("mdat", 992);
  setRemote(whole.substr(0, 500));
  serveRemote();
  const auto operation = makeOperation();
  runOnce(*operation);
  EXPECT_EQ(operation->contentPosition(), 500u);
  EXPECT_EQ(operation->nextAtomPosition(), 1000u);
  setRemote(whole + atom("moov", 10));
  runOnce(*operation);
  EXPECT_EQ(listener_->events, (Events{"success 500", "success 1018"}));
  EXPECT_EQ(ranges(), (Events{"", "bytes=500-"}));
  EXPECT_EQ(content(), remote_);
}

TEST_F(FRXAtomDownloadOperationTests, BlockThatEndsWithinAHeaderEndsTheRunBeforeIt) {
  setRemote(atom("ftyp", 12) + std::string("\0\0", 2));
  serveRemote();
  const auto operation = makeOperation();
  runOnce(*operation);
  EXPECT_EQ(listener_->events, Events{"success 20"});
  EXPECT_EQ(content(), atom("ftyp", 12));
  EXPECT_EQ(operation->contentPosition(), 20u);
  EXPECT_EQ(operation->nextAtomPosition(), 20u);
  setRemote(atom("ftyp", 12) + atom("mdat", 40));
  runOnce(*operation);
  EXPECT_EQ(ranges(), (Events{"", "bytes=20-"}));
  EXPECT_EQ(content(), remote_);
}

TEST_F(FRXAtomDownloadOperationTests, AtomOfUnknownSizeIsWaitedForOnEveryRun) {
  const std::string start = atom("ftyp", 12) + atom("wide", 0);
  setRemote(start + atomHeader(0, "mdat") + filling(5000));
  serveRemote();
  const auto operation = makeOperation();
  for (int i = 0; i < 3; ++i) runOnce(*operation);
  EXPECT_EQ(listener_->events, (Events{"success 28", "success 28", "success 28"}));
  EXPECT_EQ(ranges(), (Events{"", "bytes=28-", "bytes=28-"}));
  EXPECT_EQ(content(), start);
  setRemote(start + atom("mdat", 5000) + atom("moov", 50));
  runOnce(*operation);
  EXPECT_EQ(content(), remote_);
  EXPECT_FALSE(log_->has(LogLevel::Warn, containerWarning));
}

TEST_F(FRXAtomDownloadOperationTests, ContainerAtTheRootIsWarnedOfAndNotTaken) {
  setRemote(atom("ftyp", 12) + std::string(10, '\0') + filling(100));
  serveRemote();
  const auto operation = makeOperation();
  runOnce(*operation);
  EXPECT_EQ(log_->count(LogLevel::Warn, containerWarning), 1u);
  EXPECT_EQ(content(), atom("ftyp", 12));
}

TEST_F(FRXAtomDownloadOperationTests, NothingNewIsASuccessWithoutAChange) {
  setRemote(atom("ftyp", 12));
  serve([this](const SeenRequest& request, ScriptedConnection& connection) {
    if (request.index == 0) return answerRange(remote_, request, connection);
    // As peers do for a range that begins at the end: without content, or with a status that says so.
    connection.send(request.index == 1 ? ScriptedHTTPServer::answer("")
                                       : std::string("HTTP/1.1 204 No Content\r\n\r\n"));
  });
  const auto operation = makeOperation();
  for (int i = 0; i < 3; ++i) runOnce(*operation);
  EXPECT_EQ(listener_->events, (Events{"success 20", "success 20", "success 20"}));
  EXPECT_EQ(operation->contentPosition(), 20u);
}

TEST_F(FRXAtomDownloadOperationTests, ServerWithoutASatisfiableRangeIsAFailureThenASuccess) {
  setRemote(atom("ftyp", 12));
  serveRemote();
  const auto operation = makeOperation();
  runOnce(*operation);
  operation->start();
  ASSERT_TRUE(waitForEvents(3));
  EXPECT_EQ(listener_->events,
            (Events{"success 20", "failure -1 http call failed with status code 416", "success 20"}));
  EXPECT_EQ(operation->responseStatus(), 416);
  EXPECT_EQ(content(), remote_);
}

TEST_F(FRXAtomDownloadOperationTests, SecondStartDuringARunOnlySaysSo) {
  const auto operation = startByHand();
  ASSERT_TRUE(wait([this] { return requestCount() == 1; }));
  operation->start();
  EXPECT_EQ(log_->count(LogLevel::Warn, "This object is not in a startable state."), 1u);
  settle();
  EXPECT_EQ(requestCount(), 1u);
  EXPECT_TRUE(operation->isExecuting());
}

TEST_F(FRXAtomDownloadOperationTests, MissingFileIsReportedTwice) {
  serveStatus("HTTP/1.1 404 Not Found");
  const auto operation = makeOperation();
  operation->start();
  ASSERT_TRUE(waitForEvents(2));
  settle();
  EXPECT_EQ(listener_->events, (Events{"failure -404 http call failed with status code 404",
                                       "failure -404 HTTP 404 error: File not Found"}));
  EXPECT_EQ(listener_->domains, (Events{domain, domain}));
  EXPECT_EQ(operation->error()->code, -404);
  EXPECT_FALSE(operation->isExecuting());
  EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(FRXAtomDownloadOperationTests, FailureLeavesWhatCameAndThePositionsOfIt) {
  setRemote(atom("ftyp", 12) + atom("mdat", 992));
  serve([this](const SeenRequest& request, ScriptedConnection& connection) {
    if (request.index > 0) return answerRange(remote_, request, connection);
    connection.send(head(remote_.size()) + remote_.substr(0, 300));
    connection.endSending();
  });
  const auto operation = makeOperation();
  operation->start();
  ASSERT_TRUE(waitForEvents(1));
  settle();
  ASSERT_EQ(listener_->events.size(), 1u);
  EXPECT_TRUE(listener_->events[0].starts_with("failure ")) << listener_->events[0];
  EXPECT_EQ(listener_->domains[0], HTTPClientErrorDomain);
  EXPECT_EQ(operation->contentPosition(), 300u);
  EXPECT_EQ(operation->nextAtomPosition(), 1020u);
  EXPECT_EQ(content(), remote_.substr(0, 300));
  runOnce(*operation);
  EXPECT_EQ(content(), remote_);
  EXPECT_EQ(ranges(), (Events{"", "bytes=300-"}));
}

TEST_F(FRXAtomDownloadOperationTests, SilentServerTimesOut) {
  serve([](const SeenRequest&, ScriptedConnection& connection) { connection.stall(); });
  const auto operation = makeOperation(0.1);
  runOnce(*operation);
  EXPECT_EQ(operation->error()->code, HTTPClientErrorTimedOut);
  EXPECT_FALSE(operation->isExecuting());
}

TEST_F(FRXAtomDownloadOperationTests, RefusedBlocksMoveNothing) {
  setRemote(atom("ftyp", 12) + atom("mdat", 100));
  serveRemote();
  listener_->onData = [](Operation&) { return false; };
  const auto operation = makeOperation();
  runOnce(*operation);
  EXPECT_EQ(listener_->events, Events{"success 0"});
  EXPECT_EQ(listener_->received, remote_);
  EXPECT_EQ(operation->contentPosition(), 0u);
  EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(FRXAtomDownloadOperationTests, ListenerThatImplementsNothingIsServedAllTheSame) {
  setRemote(atom("ftyp", 12) + atom("mdat", 100));
  serveRemote();
  const auto operation = makeOperation();
  const auto silent = std::make_shared<SilentListener>();
  operation->setDelegate(silent);
  operation->start();
  ASSERT_TRUE(wait([&] { return !operation->isExecuting(); }));
  EXPECT_EQ(content(), remote_);
  operation->setDelegate(nullptr);
  operation->start();
  ASSERT_TRUE(wait([&] { return !operation->isExecuting(); }));
}

TEST_F(FRXAtomDownloadOperationTests, BlocksAfterTheEndOfTheRunAreIgnored) {
  const auto operation = startByHand();
  feed(*operation, atom("ftyp", 12) + atomHeader(0, "mdat"));
  EXPECT_FALSE(operation->isExecuting());
  feed(*operation, "more of the media");
  EXPECT_EQ(log_->count(LogLevel::Verbose, "Transfer task has been canceled or has completed."), 1u);
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_EQ(listener_->events, Events{"success 20"});
  EXPECT_EQ(listener_->received.size(), 28u);
}

TEST_F(FRXAtomDownloadOperationTests, MissingBlockIsWarnedOfAndIgnored) {
  const auto operation = startByHand();
  feed(*operation, std::nullopt);
  EXPECT_EQ(log_->count(LogLevel::Warn, "Data parameter was unexpectedly nil"), 1u);
  EXPECT_TRUE(operation->isExecuting());
  feed(*operation, atom("ftyp", 12));
  EXPECT_EQ(operation->contentPosition(), 20u);
}

TEST_F(FRXAtomDownloadOperationTests, FirstAtomOfUnknownSizeLeavesAnEmptyFile) {
  const auto operation = startByHand();
  feed(*operation, atomHeader(0, "mdat") + "media");
  EXPECT_TRUE(std::filesystem::exists(path()));
  EXPECT_EQ(content(), "");
}

TEST_F(FRXAtomDownloadOperationTests, LocalFileIsAPrefixAfterEveryBlockHoweverTheyAreCut) {
  const std::string remote = atom("ftyp", 4) + extendedAtom("mdat", 9) + atom("free", 0) + atom("moov", 5);
  serve([](const SeenRequest&, ScriptedConnection& connection) { connection.stall(); });
  for (std::size_t first = 1; first < remote.size(); ++first) {
    std::filesystem::remove(path());
    const auto operation = makeOperation();
    operation->start();
    feed(*operation, remote.substr(0, first));
    EXPECT_TRUE(remote.starts_with(content()));
    EXPECT_EQ(content().size(), operation->contentPosition());
    if (!operation->isExecuting()) operation->start();
    feed(*operation, remote.substr(content().size()));
    EXPECT_EQ(content(), remote) << first;
  }
}

TEST_F(FRXAtomDownloadOperationTests, RunContinuesBehindWhatAnEarlierObjectLeft) {
  setRemote(atom("ftyp", 12) + atom("mdat", 100) + atom("moov", 7));
  serveRemote();
  directory_.write("file.mov", remote_.substr(0, 60));
  const auto operation = makeOperation();
  operation->setContentPosition(60);
  operation->setNextAtomPosition(128);
  runOnce(*operation);
  EXPECT_EQ(content(), remote_);
  EXPECT_EQ(ranges(), Events{"bytes=60-"});
}

TEST_F(FRXAtomDownloadOperationTests, FileGoesOnBeyond4GiB) {
  constexpr std::uint64_t here = std::uint64_t{5} << 30;
  const std::string rest = filling(100) + atom("moov", 30);
  serve([rest](const SeenRequest&, ScriptedConnection& connection) {
    connection.send(ScriptedHTTPServer::answer(rest, "HTTP/1.1 206 Partial Content"));
  });
  directory_.write("file.mov", "");
  std::filesystem::resize_file(path(), here);
  const auto operation = makeOperation();
  operation->setContentPosition(here);
  operation->setNextAtomPosition(here + 100);
  runOnce(*operation);
  EXPECT_EQ(ranges(), Events{"bytes=5368709120-"});
  EXPECT_EQ(listener_->events, Events{"success 5368709258"});
  EXPECT_EQ(operation->nextAtomPosition(), here + rest.size());
  std::ifstream file(path(), std::ios::binary);
  file.seekg(static_cast<std::streamoff>(here));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), rest);
}

TEST_F(FRXAtomDownloadOperationTests, FileThatCannotBeMadeIsReportedOnce) {
  setRemote(atom("ftyp", 12));
  serveRemote();
  const std::string target = path("missing/file.mov");
  Operation operation(server_->url(), target, 30, platform());
  operation.setDelegate(listener_);
  operation.start();
  ASSERT_TRUE(waitForEvents(1));
  settle();
  EXPECT_EQ(listener_->events,
            Events{"failure -1 Could not create a file with default attributes at " + target});
  EXPECT_EQ(operation.contentPosition(), 0u);
  EXPECT_FALSE(operation.isExecuting());
}

TEST_F(FRXAtomDownloadOperationTests, BlockThatDoesNotFitIsReportedOnceAndTakenBack) {
  setRemote(atom("ftyp", 12) + atom("mdat", 100'000));
  serveRemote();
  const auto operation = makeOperation();
  // A file may not grow beyond the limit; a part of the block still fits.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{50'000, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &small);
  operation->start();
  const bool came = waitForEvents(1);
  settle();
  ::setrlimit(RLIMIT_FSIZE, &before);
  ASSERT_TRUE(came);
  ASSERT_EQ(listener_->events.size(), 1u);
  EXPECT_TRUE(listener_->events[0].starts_with("failure -1 Error attempting to write "))
      << listener_->events[0];
  EXPECT_TRUE(listener_->events[0].ends_with(" bytes to " + path() + ": File too large"));
  EXPECT_EQ(operation->contentPosition(), content().size());
  EXPECT_TRUE(remote_.starts_with(content()));
  runOnce(*operation);
  EXPECT_EQ(content(), remote_);
}

TEST_F(FRXAtomDownloadOperationTests, NextRunMayBeginWithinEveryReport) {
  setRemote(atom("ftyp", 12));
  serveRemote();
  int runs = 1;
  listener_->onSuccess = [&](Operation& operation) {
    setRemote(remote_ + atom("mdat", 50));
    if (++runs <= 5) operation.start();
  };
  const auto operation = makeOperation();
  operation->start();
  ASSERT_TRUE(waitForEvents(5));
  EXPECT_EQ(content().size(), 20u + 4 * 58);
}

TEST_F(FRXAtomDownloadOperationTests, StartBeforeTheReportOfAnEarlierRunTakesItsPlace) {
  const auto operation = startByHand();
  ASSERT_TRUE(wait([this] { return requestCount() == 1; }));
  feed(*operation, atom("ftyp", 12) + atomHeader(0, "mdat"));
  operation->start();
  ASSERT_TRUE(wait([this] { return requestCount() == 2; }));
  settle();
  EXPECT_TRUE(listener_->events.empty());
  EXPECT_TRUE(operation->isExecuting());
  EXPECT_EQ(ranges().back(), "bytes=20-");
}

TEST_F(FRXAtomDownloadOperationTests, ListenerMayLetGoOfTheOperationInEveryCall) {
  for (const int call : {0, 1, 2}) {
    setRemote(atom("ftyp", 12) + atom("mdat", 100));
    if (call == 2) {
      serveStatus("HTTP/1.1 500 Broken");
    } else {
      serveRemote();
    }
    listener_ = std::make_shared<Listener>();
    auto operation = makeOperation();
    bool isGone = false;
    const auto letGo = [&](Operation&) {
      operation.reset();
      isGone = true;
      return true;
    };
    if (call == 0) listener_->onData = letGo;
    if (call == 1) listener_->onSuccess = letGo;
    if (call == 2) listener_->onFailure = letGo;
    operation->start();
    ASSERT_TRUE(wait([&] { return isGone; }));
    const auto told = listener_->events.size();
    settle();
    EXPECT_EQ(listener_->events.size(), told);
  }
}

TEST_F(FRXAtomDownloadOperationTests, LargeFileArrivesWholeOverAsManyRunsAsItTakes) {
  std::string large = atom("ftyp", 12);
  for (int i = 0; i < 40; ++i) large += atom("moof", 1000) + extendedAtom("mdat", 200'003);
  setRemote(large);
  serveRemote();
  const auto operation = makeOperation();
  for (int runs = 0; runs < 200 && operation->contentPosition() < large.size(); ++runs) runOnce(*operation);
  EXPECT_EQ(operation->contentPosition(), large.size());
  EXPECT_TRUE(content() == large);
}

}  // namespace
}  // namespace ferrox::test
