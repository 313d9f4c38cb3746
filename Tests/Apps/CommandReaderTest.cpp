#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "Apps/ferrox/Events/CommandReader.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;

class CommandReaderTest : public testing::Test {
 protected:
  CommandReaderTest() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
  ~CommandReaderTest() override {
    close(ends[0]);
    closeWriter();
  }
  void closeWriter() {
    if (ends[1] >= 0) close(ends[1]);
    ends[1] = -1;
  }
  void send(const std::string& text) const {
    ASSERT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  CommandReader::Listener listener() {
    return {[this](const std::string& line) { lines.push_back(line); }, [this] { ++tooLong; },
            [this] { ++ended; }};
  }

  int ends[2];
  RunLoop loop;
  std::vector<std::string> lines;
  int tooLong = 0;
  int ended = 0;
};

TEST_F(CommandReaderTest, HandsLinesToTheLoopAndTellsTheEndOnce) {
  const CommandReader reader(ends[0], loop, listener());
  send("one\ntw");
  EXPECT_TRUE(loop.runUntil([this] { return lines.size() == 1; }, 5s));
  send("o\nlast");
  EXPECT_TRUE(loop.runUntil([this] { return lines.size() == 2; }, 5s));
  EXPECT_EQ(ended, 0);
  closeWriter();
  EXPECT_TRUE(loop.runUntil([this] { return ended > 0; }, 5s));
  EXPECT_EQ(lines, (std::vector<std::string>{"one", "two", "last"}));
  EXPECT_EQ(ended, 1);
}

TEST_F(CommandReaderTest, ReadsAPlainFile) {
  std::FILE* file = std::tmpfile();
  std::fputs("a\nb\n", file);
  std::rewind(file);
  const CommandReader reader(fileno(file), loop, listener());
  EXPECT_TRUE(loop.runUntil([this] { return ended > 0; }, 5s));
  EXPECT_EQ(lines, (std::vector<std::string>{"a", "b"}));
  std::fclose(file);
}

TEST_F(CommandReaderTest, EndsWhileNothingComesAndWhileTheLoopStands) {
  { const CommandReader reader(ends[0], loop, listener()); }
  {
    const CommandReader reader(ends[0], loop, listener());
    send("never handled\n");
  }
  loop.runPending();
  EXPECT_TRUE(lines.empty());
}

TEST_F(CommandReaderTest, AFloodWaitsInThePipeUntilTheLoopTakesIt) {
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  const CommandReader reader(ends[0], loop, listener());
  const std::string block(64 * 1024, '\n');
  std::size_t taken = 0;
  for (int i = 0; i < 1000; ++i) {
    const ssize_t count = write(ends[1], block.data(), block.size());
    if (count > 0) taken += static_cast<std::size_t>(count);
  }
  // What the pipe holds and one buffer of the reader's; nothing piles up behind it.
  EXPECT_LT(taken, std::size_t{1} << 20);
  EXPECT_TRUE(loop.runUntil([&] { return lines.size() == taken; }, 5s));
}

}  // namespace
}  // namespace ferrox::command
