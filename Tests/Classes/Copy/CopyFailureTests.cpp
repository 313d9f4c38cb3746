// Peers that break off, disks that do not take it, and what is left then.
#include <unistd.h>

#include <cerrno>

#include "Tests/Classes/Copy/CopyFixture.h"
#include "Tests/Support/SmallDisk.h"

namespace ferrox::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* threeFiles = R"({"files":["a","b","c"],"directories":[]})";

class CopyFailureTests : public CopyFixture {
 protected:
  /// The files of a peer that fails at the download of "b" in such a way, fetched one after the other.
  Copy copyWithFailingDownload(const ScriptedPeer::Handler& fail,
                               const std::function<void(Builder&)>& configure = nullptr) {
    peer_ = std::make_unique<ScriptedPeer>(
        threeFiles,
        std::map<std::string, std::string>{{"a", bytesOf(2000)}, {"b", bytesOf(3000)}, {"c", bytesOf(10)}},
        [fail](ScriptedConnection& connection, const std::string& request) -> bool {
          if (!request.starts_with("GET /projects/P/files/b ")) return false;
          return fail(connection, request);
        });
    return copyFrom(peer_->url(), configure);
  }
  static ScriptedPeer::Handler answering(const std::string& text) {
    return [text](ScriptedConnection& connection, const std::string&) { return connection.send(text); };
  }

  std::unique_ptr<ScriptedPeer> peer_;
};

TEST_F(CopyFailureTests, AFailedDownloadCancelsTheRest) {
  for (const int status : {206, 301, 404, 416, 500}) {
    listener_ = std::make_shared<RecordingCopyListener>();
    const auto copy = copyWithFailingDownload(
        answering(ScriptedHTTPServer::answer("sorry", "HTTP/1.1 " + std::to_string(status) + " No")));
    EXPECT_EQ(failureOf(copy), "http call failed with status code " + std::to_string(status));
    EXPECT_EQ(copy->error()->domain, "com.ferrox.download.FRXDownloadOperation.ErrorDomain");
    expectCalls({"progress", "cancelled"}, "failure");
    EXPECT_TRUE(copy->isCancelled());
    EXPECT_EQ(peer_->count("GET /projects/P/files/c "), 0U);
    // What was finished stays, and nothing else stands there.
    expectSameTree(treeOf(destination()), (std::map<std::string, std::string>{{"a", bytesOf(2000)}}));
    EXPECT_EQ(copy->currentProgress(), 2000U);
    EXPECT_EQ(copy->receivedBytes(), 2000U);
    EXPECT_EQ(copy->finishedFileCount(), 1U);
  }
}

TEST_F(CopyFailureTests, ConnectionsThatBreakFailTheCopy) {
  const std::vector<ScriptedPeer::Handler> handlers{
      [](ScriptedConnection& connection, const std::string&) -> bool {
        connection.reset();
        throw ScriptedPeer::HangUp();
      },
      [](ScriptedConnection& connection, const std::string&) -> bool {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 3000\r\n\r\n" + bytesOf(1000));
        connection.reset();
        throw ScriptedPeer::HangUp();
      },
      [](ScriptedConnection& connection, const std::string&) -> bool {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 3000\r\n\r\n" + bytesOf(2999));
        connection.endSending();
        throw ScriptedPeer::HangUp();
      },
      answering("HTTP/1.1 200 OK\r\nContent-Length: soon\r\n\r\n"),
  };
  for (const auto& handler : handlers) {
    listener_ = std::make_shared<RecordingCopyListener>();
    const auto copy = copyWithFailingDownload(handler);
    ASSERT_TRUE(copy->error());
    EXPECT_EQ(copy->error()->domain, HTTPClientErrorDomain);
    expectCalls({"progress", "cancelled"}, "failure");
    expectSameTree(treeOf(destination()), (std::map<std::string, std::string>{{"a", bytesOf(2000)}}));
  }
}

TEST_F(CopyFailureTests, APeerThatStallsFailsAtTheTimeout) {
  const auto copy = copyWithFailingDownload(
      [](ScriptedConnection& connection, const std::string&) -> bool {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 3000\r\n\r\n" + bytesOf(1000));
        connection.stall();
        return true;
      },
      [](Builder& builder) { builder.fileDownloadTimeout = 3; });
  EXPECT_EQ(copy->error()->code, HTTPClientErrorTimedOut);
  expectCalls({"progress", "cancelled"}, "failure");
  expectSameTree(treeOf(destination()), (std::map<std::string, std::string>{{"a", bytesOf(2000)}}));
}

TEST_F(CopyFailureTests, ASlowPeerIsNotCutOff) {
  const auto copy = copyWithFailingDownload(
      [](ScriptedConnection& connection, const std::string&) -> bool {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n");
        connection.drip("abc", std::chrono::milliseconds(100));
        return true;
      },
      [](Builder& builder) { builder.fileDownloadTimeout = 20; });
  EXPECT_EQ(failureOf(copy), "");
  EXPECT_EQ(readFile(destination() / "b"), "abc");
}

TEST_F(CopyFailureTests, WithoutVerificationABodyIsTakenAsItComes) {
  for (const std::string& body : {bytesOf(10), bytesOf(9000)}) {
    const auto copy = copyWithFailingDownload(answering(ScriptedHTTPServer::answer(body)));
    EXPECT_EQ(failureOf(copy), "");
    EXPECT_EQ(readFile(destination() / "b"), body);
  }
  const auto copy = copyWithFailingDownload([](ScriptedConnection& connection, const std::string&) -> bool {
    connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + bytesOf(123));
    connection.endSending();
    throw ScriptedPeer::HangUp();
  });
  EXPECT_EQ(failureOf(copy), "");
  EXPECT_EQ(readFile(destination() / "b"), bytesOf(123));
}

TEST_F(CopyFailureTests, ProbesThatFailNameTheReason) {
  struct Case {
    std::string answer;
    std::string reason;
  };
  for (const Case& test :
       {Case{"HTTP/1.1 204 No Content\r\n\r\n", "Content-Length request failed with status code 204"},
        Case{"HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n",
             "Content-Length request failed with status code 404"},
        Case{"HTTP/1.1 200 OK\r\n\r\n", "response did not contain Content-Length header"},
        Case{"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", "unexpected nil value for content length"}}) {
    listener_ = std::make_shared<RecordingCopyListener>();
    ScriptedPeer peer(threeFiles, {{"a", "1"}, {"b", "2"}, {"c", "3"}},
                      [&](ScriptedConnection& connection, const std::string& request) -> bool {
                        return request.starts_with("HEAD ") && ScriptedPeer::fileOf(request) == "b" &&
                               connection.send(test.answer);
                      });
    EXPECT_EQ(failureOf(copyFrom(peer.url())), test.reason);
    EXPECT_EQ(listener_->calls(), Calls{"failure"});
    EXPECT_EQ(peer.count("GET /projects/P/files"), 0U);
  }
}

TEST_F(CopyFailureTests, SizesThatAddUpBeyond64BitsWrap) {
  const std::string huge = "HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775807\r\n\r\n";
  ScriptedPeer peer(threeFiles, {}, [&](ScriptedConnection& connection, const std::string& request) -> bool {
    return request.starts_with("HEAD ") && connection.send(huge);
  });
  listener_->onLowStorage = [](const auto& onContinue, const auto&) { onContinue(); };
  const auto copy = copyFrom(peer.url());
  EXPECT_EQ(copy->projectSize(), 9223372036854775807ULL * 3);
  EXPECT_EQ(failureOf(copy), "http call failed with status code 404");
}

TEST_F(CopyFailureTests, ASizeThatWouldMakeTooManyPiecesFailsBeforeAnyDownload) {
  ScriptedPeer peer(
      threeFiles, {{"a", "1"}, {"b", "2"}, {"c", "3"}},
      [&](ScriptedConnection& connection, const std::string& request) -> bool {
        return request.starts_with("HEAD ") && ScriptedPeer::fileOf(request) == "b" &&
               connection.send("HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775807\r\n\r\n");
      });
  const auto copy = copyFrom(peer.url(), [](Builder& builder) { builder.maxContentLength = 1 << 20; });
  EXPECT_NE(failureOf(copy).find("cannot be split"), std::string::npos) << failureOf(copy);
  EXPECT_EQ(listener_->calls(), Calls{"failure"});
  EXPECT_EQ(peer.count("GET /projects/P/files"), 0U);
}

TEST_F(CopyFailureTests, APieceThatFailsLeavesTheOthersAndNoFile) {
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(2500)}},
                    [](ScriptedConnection& connection, const std::string& request) -> bool {
                      return ScriptedPeer::fieldOf(request, "Range") == "bytes=1000-2000" &&
                             connection.send(ScriptedHTTPServer::answer("", "HTTP/1.1 500 No"));
                    });
  const auto copy = copyFrom(peer.url(), [](Builder& builder) { builder.maxContentLength = 1000; });
  EXPECT_EQ(failureOf(copy), "http call failed with status code 500");
  expectCalls({"progress", "cancelled"}, "failure");
  expectSameTree(treeOf(destination()), (std::map<std::string, std::string>{{"a.0", bytesOf(1000)}}));
}

TEST_F(CopyFailureTests, AJoinThatFailsIsReportedWithoutCancelling) {
  // A folder comes to stand in the place of a piece while the last one is on its way.
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(2000)}},
                    [this](ScriptedConnection&, const std::string& request) -> bool {
                      if (ScriptedPeer::fieldOf(request, "Range") == "bytes=1000-2000") {
                        fs::remove(destination() / "a.0");
                      }
                      return false;
                    });
  const auto copy = copyFrom(peer.url(), [](Builder& builder) { builder.maxContentLength = 1000; });
  EXPECT_EQ(copy->error()->code, ENOENT);
  EXPECT_EQ(listener_->calls(), (Calls{"progress", "progress", "failure"}));
  EXPECT_EQ(readFile(destination() / "a.1000").size(), 1000U);
}

TEST_F(CopyFailureTests, ADestinationThatCannotBeMadeFailsTheCopy) {
  put("a", "x");
  folder_.write("file", "x");
  const std::string url = share();
  for (const std::string& path : {(folder_.path() / "file/below").string(), std::string("/proc/below"),
                                  std::string("/proc/below/further")}) {
    listener_ = std::make_shared<RecordingCopyListener>();
    const auto copy = copyFrom(url, [&](Builder& builder) { builder.localProjectPath = path; });
    ASSERT_TRUE(copy->error()) << path;
    EXPECT_EQ(copy->error()->domain, "com.ferrox.posix.ErrorDomain");
    EXPECT_EQ(listener_->calls(), Calls{"failure"});
  }
  EXPECT_EQ(readFile(folder_.path() / "file"), "x");
}

TEST_F(CopyFailureTests, ADestinationThatCannotBeRemovedFailsTheCopy) {
  put("a", "x");
  // Neither can root.
  const auto copy = copyFrom(share(), [](Builder& builder) { builder.localProjectPath = "/proc/self"; });
  ASSERT_TRUE(copy->error());
  EXPECT_EQ(copy->error()->domain, "com.ferrox.posix.ErrorDomain");
  EXPECT_EQ(listener_->calls(), Calls{"failure"});
}

TEST_F(CopyFailureTests, AFullDiskFailsTheCopyAndLeavesWholeFilesOnly) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting a small disk needs root";
  const SmallDisk disk(folder_.path() / "disk");
  ASSERT_TRUE(disk.isMounted()) << "a machine for tests lets root mount";
  for (int i = 0; i < 8; ++i) put("f" + std::to_string(i), bytesOf(200'000, static_cast<unsigned>(i)));
  const std::string url = share();
  for (const std::int64_t limit : {std::int64_t{-1}, std::int64_t{90'000}}) {
    const auto copy = copyFrom(url, [&](Builder& builder) {
      builder.localProjectPath = (disk.path() / "destination").string();
      builder.maxConcurrentDownloads = 3;
      builder.maxContentLength = limit;
      builder.verifiesSizes = true;
    });
    ASSERT_TRUE(copy->error());
    EXPECT_NE(failureOf(copy).find("No space left on device"), std::string::npos) << failureOf(copy);
    for (const auto& [name, content] : treeOf(disk.path() / "destination")) {
      EXPECT_TRUE(content.size() == 200'000 || (limit > 0 && name.find('.') != std::string::npos)) << name;
    }
  }
}

TEST_F(CopyFailureTests, LinksThatAppearDuringTheCopyAreNotFollowed) {
  folder_.write("elsewhere/kept", "kept");
  // While the sizes are asked for, somebody puts links where files and folders are to come.
  ScriptedPeer peer(R"({"files":["d/kept","e"],"directories":["d"]})", {{"d/kept", "peer"}, {"e", "peer"}},
                    [this](ScriptedConnection&, const std::string& request) -> bool {
                      if (request.starts_with("HEAD ") && ScriptedPeer::fileOf(request) == "e") {
                        fs::remove(destination() / "d");
                        fs::create_directory_symlink(folder_.path() / "elsewhere", destination() / "d");
                        fs::create_symlink(folder_.path() / "elsewhere/kept", destination() / "e");
                      }
                      return false;
                    });
  const auto copy = copyFrom(peer.url());
  ASSERT_TRUE(copy->error());
  EXPECT_EQ(copy->error()->code, ELOOP) << failureOf(copy);
  EXPECT_EQ(readFile(folder_.path() / "elsewhere/kept"), "kept");
  EXPECT_EQ(treeOf(folder_.path() / "elsewhere").size(), 1U);
}

TEST_F(CopyFailureTests, ADestinationThatIsMovedAwayIsFilledWhereItIs) {
  ScriptedPeer peer(R"({"files":["d/a"],"directories":["d"]})", {{"d/a", "peer"}},
                    [this](ScriptedConnection&, const std::string& request) -> bool {
                      if (request.starts_with("HEAD ")) {
                        fs::rename(destination(), folder_.path() / "moved");
                        fs::create_directory_symlink("/nowhere", destination());
                      }
                      return false;
                    });
  EXPECT_EQ(failureOf(copyFrom(peer.url())), "");
  EXPECT_EQ(readFile(folder_.path() / "moved/d/a"), "peer");
}

TEST_F(CopyFailureTests, APeerThatDiesInTheMiddleFailsTheCopy) {
  std::map<std::string, std::string> files;
  std::string names;
  for (int i = 0; i < 50; ++i) {
    files["f" + std::to_string(i)] = bytesOf(100'000);
    names += (i == 0 ? "\"f" : ",\"f") + std::to_string(i) + '"';
  }
  std::atomic<int> downloads{0};
  ScriptedPeer peer("{\"directories\":[],\"files\":[" + names + "]}", files,
                    [&](ScriptedConnection& connection, const std::string& request) -> bool {
                      if (!request.starts_with("GET /projects/P/files/") || ++downloads < 20) return false;
                      connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + bytesOf(50'000));
                      connection.reset();
                      throw ScriptedPeer::HangUp();
                    });
  const auto copy = copyFrom(peer.url(), [](Builder& builder) { builder.maxConcurrentDownloads = 4; });
  ASSERT_TRUE(copy->error());
  EXPECT_EQ(copy->error()->domain, HTTPClientErrorDomain);
  EXPECT_EQ(listener_->calls().back(), "failure");
  for (const auto& [name, content] : treeOf(destination())) EXPECT_EQ(content.size(), 100'000U) << name;
}

}  // namespace
}  // namespace ferrox::test
