// What a copy does only when it is asked to.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "Tests/Classes/Copy/CopyFixture.h"

namespace ferrox::test {
namespace {

namespace fs = std::filesystem;
using Tree = std::map<std::string, std::string>;

void resuming(CopyR24ProjectOperationBuilder& builder) { builder.resumes = true; }
void verifying(CopyR24ProjectOperationBuilder& builder) { builder.verifiesSizes = true; }
void preserving(CopyR24ProjectOperationBuilder& builder) { builder.preservesModificationTimes = true; }

std::time_t timeOf(const fs::path& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mtime : 0;
}
void setTime(const fs::path& path, std::time_t time) {
  const timespec times[2]{{time, 0}, {time, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

class CopyOptionsTests : public CopyFixture {
 protected:
  void putThere(const std::string& name, std::string_view content) {
    folder_.write("copies/destination/" + name, content);
  }
};

TEST_F(CopyOptionsTests, EmptyFilesAreMadeWhereTheyAreAllowed) {
  put("empty", "");
  put("d/also", "");
  put("full", "x");
  const auto copy = copyFrom(share(), [](Builder& builder) { builder.allowsEmptyFiles = true; });
  EXPECT_EQ(failureOf(copy), "");
  expectSameTree(treeOf(destination()), treeOf(project()));
  EXPECT_EQ(copy->finishedFileCount(), 3U);
  EXPECT_EQ(listener_->calls(), (Calls{"progress", "success"}));
}

TEST_F(CopyOptionsTests, EmptyFilesTooKeepTheirTime) {
  put("empty", "");
  setTime(project() / "empty", 1'000'000'000);
  const auto copy = copyFrom(share(), [](Builder& builder) {
    builder.allowsEmptyFiles = true;
    builder.preservesModificationTimes = true;
  });
  EXPECT_EQ(failureOf(copy), "");
  expectSameTree(treeOf(destination()), treeOf(project()));
  EXPECT_EQ(timeOf(destination() / "empty"), 1'000'000'000);
}

TEST_F(CopyOptionsTests, ResumingFetchesOnlyWhatIsMissing) {
  ScriptedPeer peer(R"({"files":["d/whole","d/short","missing"],"directories":["d"]})",
                    {{"d/whole", bytesOf(3000)}, {"d/short", bytesOf(2000)}, {"missing", bytesOf(10)}});
  putThere("d/whole", bytesOf(3000));
  putThere("d/short", bytesOf(1999));
  putThere("mine/notes.txt", "stays");
  const auto copy = copyFrom(peer.url(), resuming);
  EXPECT_EQ(failureOf(copy), "");
  expectSameTree(treeOf(destination()), (Tree{{"d", "/"},
                                              {"d/whole", bytesOf(3000)},
                                              {"d/short", bytesOf(2000)},
                                              {"missing", bytesOf(10)},
                                              {"mine", "/"},
                                              {"mine/notes.txt", "stays"}}));
  EXPECT_EQ(peer.count("GET /projects/P/files/d%2Fwhole "), 0U);
  EXPECT_EQ(peer.count("GET /projects/P/files/"), 2U);
  EXPECT_EQ(copy->currentProgress(), copy->projectSize());
  EXPECT_EQ(copy->finishedFileCount(), 3U);
  // The call with the highest sum may overtake another.
  const auto progress = listener_->progress();
  EXPECT_EQ(*std::max_element(progress.begin(), progress.end()),
            (std::pair<std::uint64_t, std::uint64_t>{5010, 5010}));
}

TEST_F(CopyOptionsTests, ResumingIntoNothingIsAWholeCopy) {
  put("a/b", bytesOf(100));
  EXPECT_EQ(failureOf(copyFrom(share(), resuming)), "");
  expectSameTree(treeOf(destination()), treeOf(project()));
}

TEST_F(CopyOptionsTests, ResumingKeepsPiecesOfTheRightSize) {
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(3500)}});
  putThere("a.0", bytesOf(3500).substr(0, 1000));
  putThere("a.1000", "cut");
  putThere("a.3000", bytesOf(3500).substr(3000));
  const auto copy = copyFrom(peer.url(), [](Builder& builder) {
    builder.resumes = true;
    builder.maxContentLength = 1000;
  });
  EXPECT_EQ(failureOf(copy), "");
  expectSameTree(treeOf(destination()), (Tree{{"a", bytesOf(3500)}}));
  EXPECT_EQ(peer.count("GET /projects/P/files/"), 2U);
  EXPECT_EQ(copy->currentProgress(), 3500U);
}

TEST_F(CopyOptionsTests, ResumingJoinsPiecesThatAreAllThere) {
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(2000)}});
  putThere("a.0", bytesOf(2000).substr(0, 1000));
  putThere("a.1000", bytesOf(2000).substr(1000));
  const auto copy = copyFrom(peer.url(), [](Builder& builder) {
    builder.resumes = true;
    builder.maxContentLength = 1000;
  });
  EXPECT_EQ(failureOf(copy), "");
  expectSameTree(treeOf(destination()), (Tree{{"a", bytesOf(2000)}}));
  EXPECT_EQ(peer.count("GET /projects/P/files/"), 0U);
}

TEST_F(CopyOptionsTests, ResumingRemovesPiecesOfAFileThatIsWhole) {
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(1500)}});
  putThere("a", bytesOf(1500));
  putThere("a.0", bytesOf(1000));
  putThere("a.1000", "not a piece");
  copyFrom(peer.url(), [](Builder& builder) {
    builder.resumes = true;
    builder.maxContentLength = 1000;
  });
  expectSameTree(treeOf(destination()), (Tree{{"a", bytesOf(1500)}, {"a.1000", "not a piece"}}));
}

TEST_F(CopyOptionsTests, ABrokenCopyIsResumedUntilItIsWhole) {
  for (int i = 0; i < 12; ++i) put("d/f" + std::to_string(i), bytesOf(2500, static_cast<unsigned>(i)));
  const std::string url = share();
  for (std::uint64_t part = 1; part <= 4; ++part) {
    listener_ = std::make_shared<RecordingCopyListener>();
    std::weak_ptr<CopyR24ProjectOperation> weak;
    listener_->onProgress = [&](std::uint64_t progress, std::uint64_t total) {
      if (progress >= total * part / 4) weak.lock()->cancel();
    };
    const auto copy = make(url, [](Builder& builder) {
      builder.resumes = true;
      builder.maxContentLength = 1000;
    });
    weak = copy;
    run(copy);
    EXPECT_EQ(failureOf(copy), "");
    for (const auto& [name, content] : treeOf(destination())) {
      EXPECT_TRUE(content == "/" || content.size() == 2500U || name.find('.') != std::string::npos) << name;
    }
  }
  listener_ = std::make_shared<RecordingCopyListener>();
  EXPECT_EQ(failureOf(copyFrom(url,
                               [](Builder& builder) {
                                 builder.resumes = true;
                                 builder.maxContentLength = 1000;
                               })),
            "");
  expectSameTree(treeOf(destination()), treeOf(project()));
}

TEST_F(CopyOptionsTests, ResumingPassesThroughNoLink) {
  folder_.write("elsewhere/kept", "kept");
  put("d/kept", "peer");
  const std::string url = share();
  fs::create_directories(destination());
  fs::create_directory_symlink(folder_.path() / "elsewhere", destination() / "d");
  const auto copy = copyFrom(url, resuming);
  ASSERT_TRUE(copy->error());
  EXPECT_EQ(copy->error()->code, ELOOP) << failureOf(copy);
  expectSameTree(treeOf(folder_.path() / "elsewhere"), (Tree{{"kept", "kept"}}));
  EXPECT_TRUE(fs::is_symlink(destination() / "d"));
}

TEST_F(CopyOptionsTests, ResumingReplacesALinkInAFilesPlace) {
  folder_.write("elsewhere/kept", "same");
  put("kept", "peer");
  fs::create_directories(destination());
  fs::create_symlink(folder_.path() / "elsewhere/kept", destination() / "kept");
  EXPECT_EQ(failureOf(copyFrom(share(), resuming)), "");
  expectSameTree(treeOf(destination()), (Tree{{"kept", "peer"}}));
  EXPECT_EQ(readFile(folder_.path() / "elsewhere/kept"), "same");
}

TEST_F(CopyOptionsTests, ResumingIntoALinkFails) {
  folder_.write("elsewhere/kept", "kept");
  put("new", "peer");
  const std::string url = share();
  fs::create_directories(destination().parent_path());
  fs::create_directory_symlink(folder_.path() / "elsewhere", destination());
  for (const std::string ending : {"", "/"}) {
    const auto copy = copyFrom(url, [&](Builder& builder) {
      builder.resumes = true;
      *builder.localProjectPath += ending;
    });
    EXPECT_TRUE(copy->error());
    expectSameTree(treeOf(folder_.path() / "elsewhere"), (Tree{{"kept", "kept"}}));
  }
}

TEST_F(CopyOptionsTests, ResumingMeetsWhatCannotBeReplaced) {
  put("a", "file at the peer");
  putThere("a/inner", "folder here");
  const auto copy = copyFrom(share(), resuming);
  ASSERT_TRUE(copy->error());
  expectSameTree(treeOf(destination()), (Tree{{"a", "/"}, {"a/inner", "folder here"}}));
}

TEST_F(CopyOptionsTests, VerifyingRefusesABodyOfAnotherSize) {
  for (const std::string& body : {bytesOf(10), bytesOf(9000), std::string()}) {
    for (const std::int64_t limit : {std::int64_t{-1}, std::int64_t{1000}}) {
      listener_ = std::make_shared<RecordingCopyListener>();
      ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(3000)}},
                        [&](ScriptedConnection& connection, const std::string& request) {
                          if (!request.starts_with("GET /projects/P/files/a ")) return false;
                          return connection.send(ScriptedHTTPServer::answer(body));
                        });
      const auto copy = copyFrom(peer.url(), [&](Builder& builder) {
        builder.verifiesSizes = true;
        builder.maxContentLength = limit;
      });
      ASSERT_TRUE(copy->error());
      EXPECT_EQ(listener_->calls(), (Calls{"cancelled", "failure"}));
      expectSameTree(treeOf(destination()), Tree{});
    }
  }
}

TEST_F(CopyOptionsTests, VerifyingAcceptsWhatIsRight) {
  for (const std::size_t size : {1U, 999U, 1000U, 2500U}) put(std::to_string(size), bytesOf(size));
  const auto copy = copyFrom(share(), [](Builder& builder) {
    builder.verifiesSizes = true;
    builder.maxContentLength = 1000;
  });
  EXPECT_EQ(failureOf(copy), "");
  expectSameTree(treeOf(destination()), treeOf(project()));
  EXPECT_EQ(failureOf(copyFrom(copy->projectDownloadURL().value(), verifying)), "");
}

TEST_F(CopyOptionsTests, ModificationTimesComeAlong) {
  put("small", bytesOf(10));
  put("split", bytesOf(2500));
  setTime(project() / "small", 1'000'000'000);
  setTime(project() / "split", 1'100'000'000);
  const std::string url = share();
  EXPECT_EQ(failureOf(copyFrom(url,
                               [](Builder& builder) {
                                 builder.preservesModificationTimes = true;
                                 builder.maxContentLength = 1000;
                               })),
            "");
  EXPECT_EQ(timeOf(destination() / "small"), 1'000'000'000);
  EXPECT_EQ(timeOf(destination() / "split"), 1'100'000'000);
  copyFrom(url);
  EXPECT_GT(timeOf(destination() / "small"), 1'500'000'000);
}

TEST_F(CopyOptionsTests, APeerThatTellsNoTimeIsNoFailure) {
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", "x"}});
  EXPECT_EQ(failureOf(copyFrom(peer.url(), preserving)), "");
  EXPECT_GT(timeOf(destination() / "a"), 1'500'000'000);
}

TEST_F(CopyOptionsTests, ReceivedBytesMoveWithinAFile) {
  std::atomic<bool> go{false};
  ScriptedPeer peer(R"({"files":["a"],"directories":[]})", {{"a", bytesOf(100'000)}},
                    [&](ScriptedConnection& connection, const std::string& request) {
                      if (!request.starts_with("GET /projects/P/files/a ")) return false;
                      connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + bytesOf(40'000));
                      waitFor([&] { return go.load(); }, copyPatience);
                      return connection.send(bytesOf(100'000).substr(40'000));
                    });
  const auto copy = make(peer.url());
  copy->start();
  EXPECT_TRUE(waitFor([&] { return copy->receivedBytes() == 40'000; }, copyPatience));
  EXPECT_EQ(copy->currentProgress(), 0U);
  go = true;
  awaitEnd(copy);
  EXPECT_EQ(copy->receivedBytes(), 100'000U);
  EXPECT_EQ(copy->currentProgress(), 100'000U);
}

}  // namespace
}  // namespace ferrox::test
