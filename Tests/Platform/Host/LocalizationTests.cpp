#include <gtest/gtest.h>

#include <stdexcept>

#include "Platform/Host/Localization.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox {
namespace {

struct LocalizationTest : testing::Test {
  void TearDown() override { Localization::setTable(nullptr); }
};

TEST_F(LocalizationTest, ReturnsTextUnchangedWithoutATable) {
  EXPECT_EQ(Localization::localized("no such file"), "no such file");
}

TEST_F(LocalizationTest, AsksTheHostsTable) {
  Localization::setTable([](std::string_view text) { return "<" + std::string(text) + ">"; });
  EXPECT_EQ(Localization::localized("a"), "<a>");
  Localization::setTable(nullptr);
  EXPECT_EQ(Localization::localized("a"), "a");
}

TEST_F(LocalizationTest, ATableMayAskAgainOrReplaceItself) {
  Localization::setTable([](std::string_view text) {
    Localization::setTable(nullptr);
    return Localization::localized(text) + "!";
  });
  EXPECT_EQ(Localization::localized("a"), "a!");
  EXPECT_EQ(Localization::localized("a"), "a");
}

TEST_F(LocalizationTest, ATableThatThrowsLeavesTheTextAsItIs) {
  const test::LogRecording log;
  Localization::setTable([](std::string_view) -> std::string { throw std::runtime_error("torn"); });
  EXPECT_EQ(Localization::localized("a"), "a");
  EXPECT_EQ(log->entries().size(), 1U);
}

}  // namespace
}  // namespace ferrox
