#include <gtest/gtest.h>

#include "Apps/ferrox/Terminal/TextTable.h"

namespace ferrox::command {
namespace {

TextTable makeTable() {
  TextTable table({{"NAME", Align::Left, 6}, {"COUNT", Align::Right, 5}});
  table.addRow({{"short"}, {"1"}});
  table.addRow({{"a rather long name of a computer"}, {"12"}});
  return table;
}

TEST(TextTable, AlignsColumnsToTheWidestCell) {
  const auto lines = makeTable().lines(200, Style(false));
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], "NAME                              COUNT");
  EXPECT_EQ(lines[1], "short                                 1");
  EXPECT_EQ(lines[2], "a rather long name of a computer     12");
}

TEST(TextTable, CutsTheWidestColumnFirst) {
  const auto lines = makeTable().lines(20, Style(false));
  EXPECT_EQ(lines[2], "a rather…uter     12");
  for (const std::string& line : lines) EXPECT_LE(displayWidth(line), 20U);
}

TEST(TextTable, KeepsWithinEvenAnAbsurdWidth) {
  for (const std::string& line : makeTable().lines(6, Style(false))) EXPECT_LE(displayWidth(line), 6U);
}

TEST(TextTable, EscapesWhatItShows) {
  TextTable table({{"NAME"}});
  table.addRow({{"evil\x1b[2J\nline"}});
  EXPECT_EQ(table.lines(80, Style(false))[1], "evil\\x1b[2J\\x0aline");
}

TEST(TextTable, ColoursOnlyWhenAsked) {
  TextTable table({{"NAME"}});
  table.addRow({{"x", Tone::Good}});
  EXPECT_EQ(table.lines(80, Style(true))[1], "\x1b[32mx\x1b[0m");
  EXPECT_EQ(table.lines(80, Style(false))[1], "x");
}

}  // namespace
}  // namespace ferrox::command
