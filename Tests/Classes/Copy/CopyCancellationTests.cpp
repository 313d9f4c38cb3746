// A copy can be cancelled at any moment and then ends soon.
#include <chrono>

#include "Tests/Classes/Copy/CopyFixture.h"

namespace ferrox::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

class CopyCancellationTests : public CopyFixture {
 protected:
  static std::string listOf(int files) {
    std::string names;
    for (int i = 0; i < files; ++i) names += (i == 0 ? "\"f" : ",\"f") + std::to_string(i) + '"';
    return R"({"directories":[],"files":[)" + names + "]}";
  }
  static std::map<std::string, std::string> contents(int files) {
    std::map<std::string, std::string> all;
    for (int i = 0; i < files; ++i) all["f" + std::to_string(i)] = bytesOf(100);
    return all;
  }
  /// Cancels it when `isThere`, and expects the end well before the peer's silence would bring it.
  void cancelWhen(const Copy& copy, const std::function<bool()>& isThere) {
    copy->start();
    ASSERT_TRUE(waitFor(isThere, copyPatience));
    copy->cancel();
    awaitEnd(copy);
  }
};

TEST_F(CopyCancellationTests, BeforeItsStartItNeverRuns) {
  ScriptedPeer peer(listOf(1), contents(1));
  const auto copy = make(peer.url());
  copy->cancel();
  EXPECT_FALSE(copy->isFinished());
  copy->start();
  EXPECT_TRUE(copy->isFinished());
  EXPECT_EQ(copy->error(), std::nullopt);
  EXPECT_EQ(listener_->calls(), Calls{"cancelled"});
  EXPECT_TRUE(peer.requests().empty());
}

TEST_F(CopyCancellationTests, EveryCallIsReported) {
  ScriptedPeer peer(listOf(1), contents(1));
  const auto copy = copyFrom(peer.url());
  copy->cancel();
  copy->cancel();
  EXPECT_EQ(listener_->calls(), (Calls{"progress", "success", "cancelled", "cancelled"}));
}

TEST_F(CopyCancellationTests, DuringTheStructureRequestItFailsWithoutCompleting) {
  folder_.write("copies/destination/old", "old");
  for (const std::string& beginning :
       {std::string(), std::string("HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n{")}) {
    listener_ = std::make_shared<RecordingCopyListener>();
    ScriptedPeer peer("", {}, [&](ScriptedConnection& connection, const std::string&) {
      connection.send(beginning);
      connection.stall();
      return true;
    });
    const auto copy = make(peer.url());
    cancelWhen(copy, [&] { return peer.requests().size() == 1; });
    EXPECT_EQ(copy->error()->code, HTTPClientErrorCancelled);
    EXPECT_EQ(listener_->calls(), Calls{"cancelled"});
    EXPECT_EQ(readFile(destination() / "old"), "old");
  }
}

TEST_F(CopyCancellationTests, DuringTheProbesNothingIsDownloaded) {
  ScriptedPeer peer(listOf(500), contents(500),
                    [](ScriptedConnection& connection, const std::string& request) {
                      if (!request.starts_with("HEAD ") || ScriptedPeer::fileOf(request) == "f0")
                        return false;
                      connection.stall();
                      return true;
                    });
  const auto copy = make(peer.url());
  cancelWhen(copy, [&] { return peer.count("HEAD ") >= CopyR24ProjectOperation::concurrentProbes; });
  EXPECT_EQ(listener_->callsInAnyOrder(), (std::multiset<std::string>{"cancelled", "failure"}));
  EXPECT_LE(peer.count("HEAD "), 20U);
  EXPECT_EQ(peer.count("GET /projects/P/files"), 0U);
}

TEST_F(CopyCancellationTests, DuringADownloadItEndsAsASuccess) {
  ScriptedPeer peer(listOf(100), contents(100),
                    [](ScriptedConnection& connection, const std::string& request) {
                      if (!request.starts_with("GET /projects/P/files/f3 ")) return false;
                      connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n" + bytesOf(60));
                      connection.stall();
                      return true;
                    });
  const auto copy = make(peer.url());
  cancelWhen(copy,
             [&] { return peer.count("GET /projects/P/files/f3 ") == 1 && copy->receivedBytes() >= 360; });
  EXPECT_EQ(copy->error(), std::nullopt);
  EXPECT_EQ(listener_->callsInAnyOrder(),
            (std::multiset<std::string>{"progress", "progress", "progress", "cancelled", "success"}));
  EXPECT_EQ(treeOf(destination()).size(), 3U);
  EXPECT_EQ(copy->currentProgress(), 300U);
  EXPECT_EQ(copy->receivedBytes(), 300U);
}

TEST_F(CopyCancellationTests, TheListenerMayCancelAtAnyProgressCall) {
  for (const std::size_t at : {1U, 5U, 9U}) {
    // The file after that one does not come.
    ScriptedPeer peer(listOf(9), contents(9),
                      [&](ScriptedConnection& connection, const std::string& request) {
                        if (!request.starts_with("GET /projects/P/files/f" + std::to_string(at) + " "))
                          return false;
                        connection.stall();
                        return true;
                      });
    listener_ = std::make_shared<RecordingCopyListener>();
    std::weak_ptr<CopyR24ProjectOperation> weak;
    std::atomic<bool> cancelled{false};
    listener_->onProgress = [&](std::uint64_t progress, std::uint64_t) {
      if (progress == at * 100 && !cancelled.exchange(true)) weak.lock()->cancel();
    };
    const auto copy = make(peer.url());
    weak = copy;
    run(copy);
    EXPECT_EQ(copy->error(), std::nullopt);
    EXPECT_EQ(listener_->milestones(), (Calls{"cancelled", "success"}));
    const auto tree = treeOf(destination());
    EXPECT_EQ(tree.size(), at);
    for (const auto& [name, content] : tree) EXPECT_TRUE(content == bytesOf(100)) << name;
  }
}

TEST_F(CopyCancellationTests, PiecesAreNotJoinedAfterwards) {
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(2500)}},
                    [](ScriptedConnection& connection, const std::string& request) {
                      if (ScriptedPeer::fieldOf(request, "Range") != "bytes=1000-2000") return false;
                      connection.stall();
                      return true;
                    });
  std::weak_ptr<CopyR24ProjectOperation> weak;
  listener_->onProgress = [&](std::uint64_t, std::uint64_t) { weak.lock()->cancel(); };
  const auto copy = make(peer.url(), [](Builder& builder) { builder.maxContentLength = 1000; });
  weak = copy;
  run(copy);
  EXPECT_EQ(copy->error(), std::nullopt);
  expectSameTree(treeOf(destination()), {{"a.0", bytesOf(2500).substr(0, 1000)}});
}

TEST_F(CopyCancellationTests, DuringTheWarningNothingIsCopied) {
  parts_.freeDiskSpace = [] { return std::uint64_t{1}; };
  ScriptedPeer peer(listOf(1), {{"f0", "x"}});
  std::weak_ptr<CopyR24ProjectOperation> weak;
  listener_->onLowStorage = [&](const auto& onContinue, const auto&) {
    weak.lock()->cancel();
    onContinue();
  };
  const auto copy = make(peer.url());
  weak = copy;
  run(copy);
  EXPECT_EQ(listener_->calls(), (Calls{"lowStorage", "cancelled", "success"}));
  EXPECT_TRUE(treeOf(destination()).empty());
}

TEST_F(CopyCancellationTests, WhileManySmallFilesComeInItEndsSoon) {
  ScriptedPeer peer(listOf(3000), contents(3000),
                    [](ScriptedConnection& connection, const std::string& request) {
                      if (!request.starts_with("GET /projects/P/files/f2500 ")) return false;
                      connection.stall();
                      return true;
                    });
  const auto copy = make(peer.url(), [](Builder& builder) { builder.maxConcurrentDownloads = 8; });
  copy->start();
  ASSERT_TRUE(waitFor([&] { return copy->currentProgress() >= 20'000; }, copyPatience));
  const auto begin = steady_clock::now();
  copy->cancel();
  awaitEnd(copy);
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_LT(treeOf(destination()).size(), 3000U);
  EXPECT_EQ(listener_->callsInAnyOrder().count("cancelled"), 1U);
  EXPECT_EQ(listener_->callsInAnyOrder().count("success"), 1U);
}

TEST_F(CopyCancellationTests, AnyMomentWillDo) {
  constexpr std::size_t pieceLength = 2000;
  const std::string whole = bytesOf(5000);
  for (int i = 0; i < 40; ++i) put("d" + std::to_string(i % 5) + "/f" + std::to_string(i), whole);
  const std::string url = share();
  for (int i = 0; i < 40; ++i) {
    listener_ = std::make_shared<RecordingCopyListener>();
    // A copy that is cancelled early does not come to removing what the one before it left.
    std::filesystem::remove_all(destination());
    const auto copy = make(url, [&](Builder& builder) {
      builder.maxConcurrentDownloads = 3;
      builder.maxContentLength = i % 2 == 0 ? -1 : std::int64_t{pieceLength};
    });
    copy->start();
    std::this_thread::sleep_for(std::chrono::microseconds(i * 700));
    copy->cancel();
    awaitEnd(copy);
    const auto calls = listener_->milestones();
    EXPECT_NE(std::find(calls.begin(), calls.end(), "cancelled"), calls.end());
    for (const auto& [name, content] : treeOf(destination())) {
      if (content == "/" || content == whole) continue;
      // Beside whole files there may be whole pieces, and joins of some of them.
      ASSERT_EQ(i % 2, 1) << name << " of " << content.size() << " bytes";
      const std::size_t dot = name.find('.');
      if (dot == std::string::npos) {
        EXPECT_TRUE(whole.starts_with(content) && content.size() % pieceLength == 0) << name;
      } else {
        EXPECT_EQ(content, whole.substr(std::stoul(name.substr(dot + 1)), pieceLength)) << name;
      }
    }
  }
}

TEST_F(CopyCancellationTests, ACopyThatNobodyHoldsEndsByItself) {
  ScriptedPeer peer(listOf(50), contents(50));
  std::atomic<bool> completed{false};
  listener_->onComplete = [&] { completed = true; };
  make(peer.url())->start();
  EXPECT_TRUE(waitFor([&] { return completed.load(); }, copyPatience));
  EXPECT_EQ(treeOf(destination()).size(), 50U);
}

}  // namespace
}  // namespace ferrox::test
