#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>

#include "Platform/Queues/OperationQueue.h"
#include "Tests/Classes/Copy/JoiningFixture.h"
#include "Tests/Support/OpenDescriptors.h"

namespace ferrox::test {
namespace {

using Names = std::vector<std::string>;

class FRXFileJoiningOperationTests : public JoiningFixture {};

TEST_F(FRXFileJoiningOperationTests, PiecesAreAppendedInTheOrderOfAddingAndRemoved) {
  folder_.write("a", "first ");
  folder_.write("b", "second ");
  folder_.write("c", "third");
  const auto operation = joinOf({"c"});
  EXPECT_EQ(operation->masterFilePath(), path());
  operation->addFiles({path("a"), path("b")});
  EXPECT_EQ(operation->joiningFilesPaths(), (Names{path("c"), path("a"), path("b")}));
  OperationQueue queue;
  queue.addOperation(operation);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(contentOf(path()), "thirdfirst second ");
  EXPECT_EQ(namesIn(folder_.path()), Names{"master"});
}

TEST_F(FRXFileJoiningOperationTests, EmptyListYieldsAnEmptyMaster) {
  const auto operation = joinOf({});
  operation->start();
  EXPECT_TRUE(operation->isFinished());
  EXPECT_FALSE(operation->error());
  EXPECT_TRUE(std::filesystem::exists(path()));
  EXPECT_EQ(contentOf(path()), "");
}

TEST_F(FRXFileJoiningOperationTests, MasterThatExistsIsEmptiedFirst) {
  folder_.write("master", std::string(1000, 'x'));
  folder_.write("a", "new");
  joinOf({"a"})->start();
  EXPECT_EQ(contentOf(path()), "new");
}

TEST_F(FRXFileJoiningOperationTests, EmptyAndLargePiecesKeepTheirPlaces) {
  const std::string large = recognisableBytes(3'000'001);
  folder_.write("a", large);
  folder_.write("b", "");
  folder_.write("c", large);
  folder_.write("d", "end");
  const auto operation = joinOf({"a", "b", "c", "d"});
  operation->start();
  EXPECT_FALSE(operation->error());
  EXPECT_TRUE(contentOf(path()) == large + large + "end");
}

TEST_F(FRXFileJoiningOperationTests, FirstPieceBecomesANewMasterOnlyIfNobodyCanTell) {
  const auto inodeOf = [](const std::string& file) {
    struct stat status {};
    EXPECT_EQ(::stat(file.c_str(), &status), 0) << file;
    return status.st_ino;
  };
  const auto joinedFrom = [&](const std::function<void(const std::string&)>& prepare) {
    std::filesystem::remove(path());
    folder_.write("a", "first ");
    folder_.write("b", "second");
    prepare(path("a"));
    const auto piece = inodeOf(path("a"));
    const auto operation = joinOf({"a", "b"});
    operation->start();
    EXPECT_FALSE(operation->error());
    EXPECT_EQ(contentOf(path()), "first second");
    EXPECT_FALSE(std::filesystem::exists(path("a")));
    return inodeOf(path()) == piece;
  };
  EXPECT_TRUE(joinedFrom([](const std::string&) {}));
  EXPECT_FALSE(joinedFrom([](const std::string& piece) { ::chmod(piece.c_str(), 0600); }));
  EXPECT_FALSE(joinedFrom([this](const std::string&) { folder_.write("master", "was there"); }));
  EXPECT_FALSE(joinedFrom(
      [this](const std::string& piece) { std::filesystem::create_hard_link(piece, path("link")); }));
  EXPECT_EQ(contentOf(path("link")), "first ");
  const auto real = folder_.write("real", "first ");
  EXPECT_FALSE(joinedFrom([&real](const std::string& piece) {
    std::filesystem::remove(piece);
    std::filesystem::create_symlink(real, piece);
  }));
  EXPECT_EQ(contentOf(real), "first ");
}

TEST_F(FRXFileJoiningOperationTests, PiecesMayLieOnAnotherFileSystem) {
  const std::filesystem::path memory = "/dev/shm";
  ASSERT_TRUE(std::filesystem::is_directory(memory)) << "every Linux that tests run on has it";
  const auto piece = memory / ("ferrox-test-piece-" + std::to_string(::getpid()));
  const std::string content = recognisableBytes(1'000'000);
  std::ofstream(piece, std::ios::binary) << content;
  const auto operation = std::make_shared<FRXFileJoiningOperation>(path());
  operation->addFile(piece);
  operation->start();
  EXPECT_FALSE(operation->error());
  EXPECT_TRUE(contentOf(path()) == content);
  EXPECT_FALSE(std::filesystem::exists(piece));
}

TEST_F(FRXFileJoiningOperationTests, PathsAddedAfterTheStartOrTheCancellationHaveNoEffect) {
  const auto operation = joinOf({});
  operation->start();
  operation->addFile(path("a"));
  operation->addFiles({path("b"), path("c")});
  EXPECT_TRUE(operation->joiningFilesPaths().empty());
  const auto cancelled = joinOf({"a"});
  cancelled->cancel();
  cancelled->addFile(path("b"));
  EXPECT_EQ(cancelled->joiningFilesPaths(), Names{path("a")});
}

TEST_F(FRXFileJoiningOperationTests, SecondStartDoesNotJoinAgain) {
  folder_.write("a", "content");
  const auto operation = joinOf({"a"});
  operation->start();
  operation->start();
  EXPECT_TRUE(operation->isFinished());
  EXPECT_EQ(contentOf(path()), "content");
}

TEST_F(FRXFileJoiningOperationTests, WaitsForThePiecesItDependsOn) {
  class Piece : public FRXConcurrentOperation {
   public:
    explicit Piece(std::filesystem::path path) : path_(std::move(path)) {}
    void start() override {
      std::ofstream(path_) << "late";
      finish();
    }
    const std::filesystem::path path_;
  };
  const auto piece = std::make_shared<Piece>(path("a"));
  const auto operation = joinOf({"a"});
  operation->addDependency(piece);
  OperationQueue queue;
  queue.addOperation(operation);
  EXPECT_FALSE(std::filesystem::exists(path()));
  queue.addOperation(piece);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(contentOf(path()), "late");
}

TEST_F(FRXFileJoiningOperationTests, MasterMayBeAmongItsOwnPieces) {
  folder_.write("a", "content");
  joinOf({"a", "master"})->start();
  EXPECT_TRUE(namesIn(folder_.path()).empty());
}

TEST_F(FRXFileJoiningOperationTests, GivenDirectoryIsWhereTheFilesLie) {
  std::filesystem::create_directory(folder_.path() / "real");
  folder_.write("real/a", "content");
  const auto operation = std::make_shared<FRXFileJoiningOperation>("/nowhere/master");
  operation->addFile("/nowhere/else/a");
  operation->setDirectory([this](FRXError* error) { return openParentDirectory(path("real/x"), error); });
  operation->start();
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(contentOf(path("real/master")), "content");
  EXPECT_EQ(namesIn(folder_.path() / "real"), Names{"master"});
}

TEST_F(FRXFileJoiningOperationTests, InAGivenDirectoryNoSymbolicLinkIsFollowed) {
  const TemporaryDirectory elsewhere;
  const auto victim = elsewhere.write("victim", "untouched");
  folder_.write("a", "content");
  std::filesystem::create_symlink(victim, path());
  const auto operation = joinOf({"a"});
  operation->setDirectory([this](FRXError* error) { return openParentDirectory(path(), error); });
  operation->start();
  EXPECT_TRUE(operation->isFinished());
  EXPECT_EQ(contentOf(victim), "untouched");
  EXPECT_EQ(contentOf(path("a")), "content");
}

TEST_F(FRXFileJoiningOperationTests, ResumableJoinAppearsWhenItIsWhole) {
  folder_.write("master", "before");
  folder_.write("a", "first ");
  folder_.write("b", "second");
  const auto operation = joinOf({"a", "b"});
  operation->setIsResumable(true);
  operation->start();
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(contentOf(path()), "first second");
  EXPECT_EQ(namesIn(folder_.path()), Names{"master"});
}

TEST_F(FRXFileJoiningOperationTests, NoDescriptorIsLeftOpen) {
  const std::size_t open = openDescriptorCount();
  folder_.write("a", "first");
  folder_.write("b", "second");
  joinOf({"a", "missing", "b"})->start();
  const auto resumable = joinOf({"b", "missing"});
  resumable->setIsResumable(true);
  resumable->start();
  joinOf({"b"})->start();
  EXPECT_EQ(openDescriptorCount(), open);
}

}  // namespace
}  // namespace ferrox::test
