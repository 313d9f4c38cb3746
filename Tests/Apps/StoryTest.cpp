#include <gtest/gtest.h>

#include "Apps/ferrox/Demo/Story.h"
#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;

TEST(Story, AStepIsOneLineWithTickTitleTimeAndDetail) {
  EXPECT_EQ(Story::line({true, 12ms, "it was seen"}, "Published", 100, Style(false)),
            "  ✓  Published                 12 ms   it was seen");
  EXPECT_EQ(Story::line({false, 20000ms, "missing"}, "Found", 100, Style(false)),
            "  ✗  Found                   20.00 s   missing");
}

TEST(Story, ShortTimesKeepTheirFractions) {
  EXPECT_EQ(Story::line({true, 417us, "quick"}, "Notified", 100, Style(false)),
            "  ✓  Notified                0.42 ms   quick");
}

TEST(Story, ALongDetailIsCutToTheTerminal) {
  const std::string line = Story::line({true, 1ms, std::string(200, 'x')}, "Found", 80, Style(false));
  EXPECT_EQ(displayWidth(line), 80U);
}

TEST(Story, DetailsAreEscaped) {
  const std::string line = Story::line({true, 1ms, "a\x1b[2J"}, "Found", 80, Style(false));
  EXPECT_EQ(line.find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace ferrox::command
