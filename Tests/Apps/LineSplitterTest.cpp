#include <gtest/gtest.h>

#include <vector>

#include "Apps/ferrox/Events/LineSplitter.h"

namespace ferrox::command {
namespace {

class LineSplitterTest : public testing::Test {
 protected:
  LineSplitter makeSplitter(std::size_t limit) {
    return LineSplitter({[this](const std::string& line) { lines.push_back(line); }, [this] { ++tooLong; }},
                        limit);
  }
  std::vector<std::string> lines;
  int tooLong = 0;
};

TEST_F(LineSplitterTest, JoinsPiecesAndCutsAtNewlines) {
  LineSplitter splitter = makeSplitter(100);
  for (const char* piece : {"a", "b\nc", "\n\nd\r\n", "e"}) splitter.feed(piece);
  EXPECT_EQ(lines, (std::vector<std::string>{"ab", "c", "", "d"}));
  splitter.finish();
  EXPECT_EQ(lines.back(), "e");
}

TEST_F(LineSplitterTest, ALineOfExactlyTheLimitPasses) {
  LineSplitter splitter = makeSplitter(4);
  splitter.feed("abcd\n");
  EXPECT_EQ(lines, std::vector<std::string>{"abcd"});
  EXPECT_EQ(tooLong, 0);
}

TEST_F(LineSplitterTest, ALongerOneIsReportedOnceAndSkipped) {
  LineSplitter splitter = makeSplitter(4);
  splitter.feed("abc");
  splitter.feed("de");
  splitter.feed("fgh");
  EXPECT_EQ(tooLong, 1);
  splitter.feed("i\nnext\n");
  EXPECT_EQ(tooLong, 1);
  EXPECT_EQ(lines, std::vector<std::string>{"next"});
}

TEST_F(LineSplitterTest, TheRestOfALongLineAtTheEndIsNoLine) {
  LineSplitter splitter = makeSplitter(2);
  splitter.feed("abcdef");
  splitter.finish();
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(tooLong, 1);
}

TEST_F(LineSplitterTest, NothingAtTheEndIsNoLine) {
  LineSplitter splitter = makeSplitter(2);
  splitter.feed("a\n");
  splitter.finish();
  EXPECT_EQ(lines.size(), 1U);
}

}  // namespace
}  // namespace ferrox::command
