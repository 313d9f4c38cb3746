#include <algorithm>
#include <array>

#include "Classes/Copy/CopyR24ProjectOperation.h"
#include "Platform/Queues/OperationQueue.h"
#include "Tests/Classes/Copy/CopyFixture.h"

namespace ferrox::test {
namespace {

namespace fs = std::filesystem;

class CopyR24ProjectOperationTests : public CopyFixture {};

TEST_F(CopyR24ProjectOperationTests, ABuilderBeginsWithTheDefaults) {
  const CopyR24ProjectOperationBuilder builder;
  EXPECT_EQ(builder.projectDownloadURL, std::nullopt);
  EXPECT_EQ(builder.localProjectPath, std::nullopt);
  EXPECT_EQ(builder.fileInfoTimeout, 1.7976931348623157e308);
  EXPECT_EQ(builder.fileDownloadTimeout, 1.7976931348623157e308);
  EXPECT_EQ(builder.maxContentLength, -1);
  EXPECT_EQ(builder.maxConcurrentDownloads, 1);
  EXPECT_EQ(builder.delegate(), nullptr);
  EXPECT_FALSE(builder.allowsEmptyFiles || builder.resumes || builder.verifiesSizes ||
               builder.preservesModificationTimes || builder.refusesCaseCollisions);
}

TEST_F(CopyR24ProjectOperationTests, AnOperationTakesOverWhatTheBuilderSays) {
  const auto copy = make("http://127.0.0.1:1/projects/P", [](Builder& builder) {
    builder.localProjectPath = "/tmp/x";
    builder.fileInfoTimeout = 1;
    builder.fileDownloadTimeout = 2;
    builder.maxContentLength = 3;
    builder.maxConcurrentDownloads = 4;
  });
  EXPECT_EQ(copy->projectDownloadURL(), "http://127.0.0.1:1/projects/P");
  EXPECT_EQ(copy->localProjectPath(), "/tmp/x");
  EXPECT_EQ(copy->fileInfoTimeout(), 1);
  EXPECT_EQ(copy->fileDownloadTimeout(), 2);
  EXPECT_EQ(copy->maxContentLength(), 3);
  EXPECT_EQ(copy->maxConcurrentDownloads(), 4);
  EXPECT_EQ(copy->delegate(), listener_);
  EXPECT_EQ(copy->freeDiskSpace(), 0U);
  EXPECT_EQ(copy->projectSize(), 0U);
  EXPECT_EQ(copy->currentProgress(), 0U);
  EXPECT_EQ(copy->operationId().size(), 36U);
  EXPECT_NE(copy->operationId(), make("")->operationId());
  listener_.reset();
  EXPECT_EQ(copy->delegate(), nullptr);
}

TEST_F(CopyR24ProjectOperationTests, NamesAreMadeOfTheProjectsURLAndPath) {
  const auto copy = make("http://h:1/projects/P", [](Builder& builder) { builder.localProjectPath = "/d"; });
  EXPECT_EQ(copy->generateFileAbsolutePath("a/b c"), "/d/a/b c");
  EXPECT_EQ(copy->generateTmpFileAbsolutePath("a", ".1000"), "/d/a.1000");
  EXPECT_EQ(copy->generateFileURL("a/b c%\xC3\xA9.mov"),
            "http://h:1/projects/P/files/a%2Fb%20c%25%C3%A9.mov");
}

TEST_F(CopyR24ProjectOperationTests, AWholeProjectComesOver) {
  put("one.mov", bytesOf(70'000, 1));
  put("with blanks and 100%.mov", bytesOf(10, 2));
  put("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x8E\xAC/\xE6\x97\xA5.mov", bytesOf(1000, 3));
  put(".hidden/.dot", "x");
  put("a/b/c/d.txt", "deep");
  put("back\\slash", "legal here");
  put("..almost/...", "dots");
  fs::create_directories(project() / "empty folder/in it");
  const auto copy = copyFrom(share(), [](Builder& builder) { builder.maxConcurrentDownloads = 4; });
  EXPECT_EQ(failureOf(copy), "");
  expectSameTree(treeOf(destination()), treeOf(project()));
  EXPECT_EQ(listener_->milestones(), Calls{"success"});
  EXPECT_EQ(listener_->operationIds(), std::set<std::string>{copy->operationId()});
  EXPECT_EQ(copy->currentProgress(), copy->projectSize());
  EXPECT_EQ(copy->receivedBytes(), copy->projectSize());
  EXPECT_EQ(copy->projectSize(), 71'029U);
  EXPECT_EQ(copy->freeDiskSpace(), std::uint64_t{1} << 60);
  EXPECT_EQ(copy->fileCount(), 7U);
  EXPECT_EQ(copy->finishedFileCount(), 7U);
}

TEST_F(CopyR24ProjectOperationTests, EveryDownloadIsReportedWithTheSumSoFar) {
  put("a", bytesOf(10));
  put("b", bytesOf(20));
  put("c", bytesOf(30));
  const auto copy = copyFrom(share());
  expectCalls({"progress", "progress", "progress"}, "success");
  // Whichever of them come first.
  expectProgress({10, 20, 30, 40, 50, 60}, 3);
}

TEST_F(CopyR24ProjectOperationTests, AQueueRunsIt) {
  put("a", "x");
  OperationQueue queue;
  const auto copy = make(share());
  queue.addOperation(copy);
  queue.waitUntilAllOperationsAreFinished();
  expectSameTree(treeOf(destination()), treeOf(project()));
}

TEST_F(CopyR24ProjectOperationTests, ASecondStartDoesNothing) {
  put("a", "x");
  const auto copy = make(share());
  copy->start();
  copy->start();
  awaitEnd(copy);
  copy->start();
  EXPECT_EQ(listener_->calls(), (Calls{"progress", "success"}));
}

TEST_F(CopyR24ProjectOperationTests, WhatStoodInTheDestinationIsGone) {
  put("new", "x");
  folder_.write("copies/destination/old/file", "old");
  folder_.write("copies/beside", "stays");
  copyFrom(share());
  expectSameTree(treeOf(destination()), treeOf(project()));
  EXPECT_EQ(readFile(folder_.path() / "copies/beside"), "stays");
}

TEST_F(CopyR24ProjectOperationTests, AFileInTheDestinationsPlaceIsReplaced) {
  put("new", "x");
  folder_.write("copies/destination", "a file");
  copyFrom(share());
  expectSameTree(treeOf(destination()), treeOf(project()));
}

TEST_F(CopyR24ProjectOperationTests, ALinkInTheDestinationsPlaceIsReplacedAndNotFollowed) {
  put("new", "x");
  folder_.write("elsewhere/kept", "kept");
  const std::string url = share();
  for (const std::string ending : {"", "/", "//"}) {
    fs::create_directories(destination().parent_path());
    fs::remove_all(destination());
    fs::create_directory_symlink(folder_.path() / "elsewhere", destination());
    const auto copy =
        copyFrom(url, [&](Builder& builder) { builder.localProjectPath = destination().string() + ending; });
    EXPECT_EQ(failureOf(copy), "");
    EXPECT_FALSE(fs::is_symlink(destination()));
    expectSameTree(treeOf(destination()), treeOf(project()));
    EXPECT_EQ(readFile(folder_.path() / "elsewhere/kept"), "kept");
    EXPECT_FALSE(fs::exists(folder_.path() / "elsewhere/new"));
  }
}

TEST_F(CopyR24ProjectOperationTests, AnEmptyProjectBecomesAnEmptyFolder) {
  folder_.write("copies/destination/old", "old");
  const auto copy = copyFrom(share());
  EXPECT_EQ(failureOf(copy), "");
  EXPECT_TRUE(fs::is_directory(destination()));
  EXPECT_TRUE(fs::is_empty(destination()));
  EXPECT_EQ(listener_->calls(), Calls{"success"});
}

TEST_F(CopyR24ProjectOperationTests, ByDefaultNothingIsSplit) {
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(2500)}});
  EXPECT_EQ(failureOf(copyFrom(peer.url())), "");
  ASSERT_EQ(peer.count("GET /projects/P/files/a "), 1U);
  for (const auto& request : peer.requests()) EXPECT_EQ(ScriptedPeer::fieldOf(request, "Range"), "");
}

TEST_F(CopyR24ProjectOperationTests, LargeFilesAreFetchedInPieces) {
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(2500)}});
  const auto copy = copyFrom(peer.url(), [](Builder& builder) { builder.maxContentLength = 1000; });
  EXPECT_EQ(failureOf(copy), "");
  std::vector<std::string> ranges;
  for (const auto& request : peer.requests()) {
    if (request.starts_with("GET /projects/P/files/"))
      ranges.push_back(ScriptedPeer::fieldOf(request, "Range"));
  }
  // Over several connections, which overtake each other.
  std::sort(ranges.begin(), ranges.end());
  EXPECT_EQ(ranges, (Calls{"bytes=0-1000", "bytes=1000-2000", "bytes=2000-3000"}));
  expectSameTree(treeOf(destination()), (std::map<std::string, std::string>{{"a", bytesOf(2500)}}));
  expectProgress({500, 1000, 1500, 2000, 2500}, 3);
}

TEST_F(CopyR24ProjectOperationTests, SizesAroundTheLimitComeOverAlike) {
  constexpr std::array<std::size_t, 9> sizes{1, 999, 1000, 1001, 1999, 2000, 2001, 5000, 12345};
  for (const std::size_t size : sizes)
    put("d/" + std::to_string(size), bytesOf(size, static_cast<unsigned>(size)));
  const auto copy = copyFrom(share(), [](Builder& builder) {
    builder.maxContentLength = 1000;
    builder.maxConcurrentDownloads = 3;
  });
  EXPECT_EQ(failureOf(copy), "");
  expectSameTree(treeOf(destination()), treeOf(project()));
  EXPECT_EQ(copy->currentProgress(), copy->projectSize());
  EXPECT_EQ(copy->finishedFileCount(), sizes.size());
}

TEST_F(CopyR24ProjectOperationTests, AFileOfExactlyTheLimitIsOnePieceAndAJoin) {
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(1000)}});
  const auto copy = copyFrom(peer.url(), [](Builder& builder) { builder.maxContentLength = 1000; });
  EXPECT_EQ(failureOf(copy), "");
  EXPECT_EQ(ScriptedPeer::fieldOf(peer.requests().back(), "Range"), "bytes=0-1000");
  expectSameTree(treeOf(destination()), (std::map<std::string, std::string>{{"a", bytesOf(1000)}}));
}

TEST_F(CopyR24ProjectOperationTests, FilesThatAreCalledLikePiecesAreNotMistakenForThem) {
  put("take", bytesOf(2500, 1));
  put("take.0", bytesOf(700, 2));
  put("take.1000", bytesOf(1800, 3));
  put("take.2000/inner", bytesOf(1000, 4));
  const auto copy = copyFrom(share(), [](Builder& builder) {
    builder.maxContentLength = 1000;
    builder.maxConcurrentDownloads = 8;
  });
  EXPECT_EQ(failureOf(copy), "");
  expectSameTree(treeOf(destination()), treeOf(project()));
}

TEST_F(CopyR24ProjectOperationTests, ALongNameIsNoReasonForItsPiecesToFail) {
  put(std::string(255, 'n'), bytesOf(2500));
  const auto copy = copyFrom(share(), [](Builder& builder) { builder.maxContentLength = 1000; });
  EXPECT_EQ(failureOf(copy), "");
  expectSameTree(treeOf(destination()), treeOf(project()));
}

TEST_F(CopyR24ProjectOperationTests, AnEmptyFileFailsTheCopyBeforeAnyDownload) {
  ScriptedPeer peer(R"({"files":["a","empty","b"],"directories":[]})",
                    {{"a", "x"}, {"empty", ""}, {"b", "y"}});
  const auto copy = copyFrom(peer.url());
  EXPECT_EQ(failureOf(copy), "unexpected nil value for content length");
  EXPECT_EQ(copy->error()->code, -1);
  EXPECT_EQ(copy->error()->domain, "com.ferrox.download.CopyR24ProjectOperation.ErrorDomain");
  EXPECT_EQ(listener_->calls(), Calls{"failure"});
  EXPECT_EQ(peer.count("GET /projects/P/files"), 0U);
  EXPECT_TRUE(treeOf(destination()).empty());
}

TEST_F(CopyR24ProjectOperationTests, TheFirstProbeThatFailsInTheOrderOfTheFilesDecides) {
  // The answer for "b" is held back until a later one has failed.
  std::atomic<int> failed{0};
  ScriptedPeer peer(R"({"files":["a","b","c","d"],"directories":[]})", {{"a", "x"}},
                    [&failed](ScriptedConnection& connection, const std::string& request) {
                      const std::string file = ScriptedPeer::fileOf(request);
                      if (file == "b") {
                        waitFor([&failed] { return failed > 0; }, copyPatience);
                        return connection.send("HTTP/1.1 206 Partial Content\r\nContent-Length: 1\r\n\r\n");
                      }
                      if (file == "c" || file == "d") ++failed;
                      return false;
                    });
  const auto copy = copyFrom(peer.url());
  EXPECT_EQ(failureOf(copy), "Content-Length request failed with status code 206");
  EXPECT_EQ(listener_->calls(), Calls{"failure"});
}

TEST_F(CopyR24ProjectOperationTests, SettingsThatCannotWorkAreRefusedBeforeAnythingChanges) {
  folder_.write("copies/destination/old", "old");
  ScriptedPeer peer(R"({"files":[],"directories":[]})", {});
  const std::vector<std::function<void(Builder&)>> settings{
      [](Builder& builder) { builder.maxContentLength = 0; },
      [](Builder& builder) { builder.maxConcurrentDownloads = 0; },
      [](Builder& builder) { builder.maxConcurrentDownloads = -2; },
      [](Builder& builder) { builder.localProjectPath = std::nullopt; },
      [](Builder& builder) { builder.localProjectPath = ""; },
      [](Builder& builder) { builder.localProjectPath = "/"; },
      [](Builder& builder) { builder.localProjectPath = "///"; },
      [](Builder& builder) { builder.localProjectPath = "."; },
      [](Builder& builder) { *builder.localProjectPath += "/.."; },
      [](Builder& builder) { *builder.localProjectPath += "/./"; },
      [](Builder& builder) { *builder.localProjectPath += std::string("/a\0b", 4); },
  };
  for (const auto& configure : settings) {
    const auto copy = copyFrom(peer.url(), configure);
    EXPECT_TRUE(copy->error());
  }
  EXPECT_EQ(listener_->calls(), Calls(settings.size(), "failure"));
  EXPECT_TRUE(peer.requests().empty());
  expectSameTree(treeOf(destination()), (std::map<std::string, std::string>{{"old", "old"}}));
}

TEST_F(CopyR24ProjectOperationTests, NoMoreDownloadsThanWantedRunAtOnce) {
  std::map<std::string, std::string> files;
  std::string names;
  for (int i = 0; i < 40; ++i) {
    files["f" + std::to_string(i)] = "x";
    names += (i == 0 ? "\"f" : ",\"f") + std::to_string(i) + '"';
  }
  for (const int wanted : {1, 3, -1}) {
    std::atomic<int> running{0};
    std::atomic<int> highest{0};
    const int limit = wanted < 0 ? CopyR24ProjectOperation::platformConcurrentDownloads : wanted;
    ScriptedPeer peer("{\"directories\":[],\"files\":[" + names + "]}", files,
                      [&](ScriptedConnection&, const std::string& request) {
                        if (!request.starts_with("GET /projects/P/files/")) return false;
                        const int now = ++running;
                        int known = highest;
                        while (known < now && !highest.compare_exchange_weak(known, now)) {
                        }
                        // As many as may run have to meet before the first one ends; after that each stays
                        // for a moment, in which one too many would be seen.
                        waitFor([&] { return highest >= limit; }, copyPatience);
                        std::this_thread::sleep_for(std::chrono::milliseconds(2));
                        --running;
                        return false;
                      });
    const auto copy =
        copyFrom(peer.url(), [&](Builder& builder) { builder.maxConcurrentDownloads = wanted; });
    EXPECT_EQ(failureOf(copy), "");
    EXPECT_EQ(highest, limit);
  }
}

TEST_F(CopyR24ProjectOperationTests, ConnectionsAreUsedAgain) {
  std::map<std::string, std::string> files;
  std::string names;
  for (int i = 0; i < 100; ++i) {
    files["f" + std::to_string(i)] = "x";
    names += (i == 0 ? "\"f" : ",\"f") + std::to_string(i) + '"';
  }
  std::atomic<std::size_t> connections{0};
  ScriptedPeer peer("{\"directories\":[],\"files\":[" + names + "]}", files,
                    [&](ScriptedConnection& connection, const std::string&) {
                      connections = std::max(connections.load(), connection.index() + 1);
                      return false;
                    });
  EXPECT_EQ(failureOf(copyFrom(peer.url())), "");
  EXPECT_EQ(peer.requests().size(), 201U);
  EXPECT_LE(connections, 12U);
}

TEST_F(CopyR24ProjectOperationTests, SeveralCopiesRunAtOnce) {
  for (int i = 0; i < 30; ++i) put("d" + std::to_string(i % 4) + "/f" + std::to_string(i), bytesOf(3000));
  const std::string url = share();
  std::vector<Copy> copies;
  for (int i = 0; i < 8; ++i) {
    copies.push_back(make(url, [&](Builder& builder) {
      builder.localProjectPath = (folder_.path() / "copies" / std::to_string(i)).string();
      builder.maxConcurrentDownloads = 1 + i % 3;
      builder.maxContentLength = i % 2 == 0 ? -1 : 1000;
      builder.setDelegate(nullptr);
    }));
  }
  for (const auto& copy : copies) copy->start();
  for (const auto& copy : copies) {
    awaitEnd(copy);
    EXPECT_EQ(failureOf(copy), "");
    expectSameTree(treeOf(*copy->localProjectPath()), treeOf(project()));
  }
}

TEST_F(CopyR24ProjectOperationTests, MoreCopiesThanTheClientHasThreadsDoNotWaitForEachOther) {
  put("a", "x");
  const std::string url = share();
  std::vector<Copy> copies;
  for (int i = 0; i < 80; ++i) {
    copies.push_back(make(url, [&](Builder& builder) {
      builder.localProjectPath = (folder_.path() / "copies" / std::to_string(i)).string();
      builder.setDelegate(nullptr);
    }));
  }
  for (const auto& copy : copies) copy->start();
  for (const auto& copy : copies) {
    awaitEnd(copy);
    EXPECT_EQ(failureOf(copy), "");
  }
}

TEST_F(CopyR24ProjectOperationTests, AListenerThatBlocksDelaysNobodyElse) {
  put("a", "x");
  const std::string url = share();
  std::atomic<bool> released{false};
  const auto blocking = std::make_shared<RecordingCopyListener>();
  blocking->onProgress = [&](std::uint64_t, std::uint64_t) {
    waitFor([&] { return released.load(); }, copyPatience);
  };
  const auto blocked = make(url, [&](Builder& builder) {
    builder.localProjectPath = (folder_.path() / "copies/blocked").string();
    builder.setDelegate(blocking);
  });
  blocked->start();
  EXPECT_EQ(failureOf(copyFrom(url)), "");
  EXPECT_FALSE(blocked->isFinished());
  released = true;
  awaitEnd(blocked);
  EXPECT_EQ(blocking->calls(), (Calls{"progress", "success"}));
}

TEST_F(CopyR24ProjectOperationTests, ACopyWithoutAListenerEndsAlike) {
  put("a", "x");
  EXPECT_EQ(failureOf(copyFrom(share(), [](Builder& builder) { builder.setDelegate(nullptr); })), "");
  expectSameTree(treeOf(destination()), treeOf(project()));
}

TEST_F(CopyR24ProjectOperationTests, ManyFilesLeaveNoDescriptorsOpen) {
  for (int i = 0; i < 300; ++i) put("d" + std::to_string(i % 7) + "/f" + std::to_string(i), "x");
  const std::string url = share();
  const auto openDescriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  EXPECT_EQ(failureOf(copyFrom(url, [](Builder& builder) { builder.maxConcurrentDownloads = 4; })), "");
  const auto after = openDescriptors();
  // Connections that are kept differ in number, but by far less than there are files.
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(failureOf(copyFrom(url, [](Builder& builder) { builder.maxConcurrentDownloads = 4; })), "");
  }
  EXPECT_LE(openDescriptors(), after + 100);
}

}  // namespace
}  // namespace ferrox::test
