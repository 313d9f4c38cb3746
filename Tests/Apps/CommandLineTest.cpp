#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Apps/ferrox/Arguments/CommandLine.h"

namespace ferrox::command {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

class CommandLineTest : public testing::Test {
 protected:
  bool reads(const Arguments& arguments) {
    ended_ = line_.parse(arguments, output_, errors_);
    return !ended_;
  }

  /// What is said about wrong usage; the test fails when it is none.
  std::string refusal(const Arguments& arguments) {
    output_.str("");
    errors_.str("");
    EXPECT_FALSE(reads(arguments)) << testing::PrintToString(arguments);
    EXPECT_EQ(ended_, ExitUsage);
    EXPECT_EQ(output_.str(), "");
    return errors_.str();
  }

  CommandLine line_{"tool", "Does things."};
  std::ostringstream output_;
  std::ostringstream errors_;
  std::optional<ExitCode> ended_;
};

constexpr const char* hint = "\nRun with --help for more information.\n";

TEST_F(CommandLineTest, ValuesOfEveryKindAreStored) {
  std::string text;
  std::optional<std::string> optional;
  double seconds = 0;
  int count = 0;
  std::int64_t large = 0;
  std::uint16_t port = 0;
  std::size_t size = 0;
  bool json = false;
  line_.argument("--text", text, "");
  line_.argument("--optional", optional, "");
  line_.argument("--seconds", seconds, "");
  line_.argument("--count", count, "");
  line_.argument("--large", large, "");
  line_.argument("--port", port, "");
  line_.argument("--size", size, "");
  line_.flag("--json", json, "");
  ASSERT_TRUE(reads({"--text", "a b", "--optional", "c", "--seconds", "0.5", "--count", "-3", "--large",
                     "9223372036854775807", "--port", "65535", "--size=7", "--json"}))
      << errors_.str();
  EXPECT_EQ(text, "a b");
  EXPECT_EQ(optional, "c");
  EXPECT_EQ(seconds, 0.5);
  EXPECT_EQ(count, -3);
  EXPECT_EQ(large, INT64_MAX);
  EXPECT_EQ(port, 65535);
  EXPECT_EQ(size, 7U);
  EXPECT_TRUE(json);
}

TEST_F(CommandLineTest, WhatIsNotGivenStaysAsItWas) {
  std::string text = "before";
  std::optional<std::string> optional;
  int count = 5;
  std::vector<std::string> names{"before"};
  bool json = false;
  bool taken = false;
  line_.argument("TEXT", text, "");
  line_.argument("--optional", optional, "");
  line_.argument("--count", count, "").range(1, 9);
  line_.repeated("--name", names, "");
  line_.flag("--json", json, "");
  line_.argument(
      "--taken",
      [&taken](const std::string&) {
        taken = true;
        return "";
      },
      "");
  ASSERT_TRUE(reads({}));
  EXPECT_EQ(text, "before");
  EXPECT_EQ(optional, std::nullopt);
  EXPECT_EQ(count, 5);
  EXPECT_THAT(names, ElementsAre("before"));
  EXPECT_FALSE(json || taken || line_.isGiven("--count") || line_.isGiven("--json"));
}

TEST_F(CommandLineTest, KnowsWhatWasGiven) {
  int count = 5;
  bool json = false;
  line_.argument("--count", count, "");
  line_.flag("--json", json, "");
  ASSERT_TRUE(reads({"--count", "5"}));
  EXPECT_TRUE(line_.isGiven("--count"));
  EXPECT_FALSE(line_.isGiven("--json"));
}

TEST_F(CommandLineTest, AnEmptyTextIsAValue) {
  std::string text = "before";
  std::optional<std::string> optional;
  line_.argument("TEXT", text, "");
  line_.argument("--optional", optional, "");
  ASSERT_TRUE(reads({"", "--optional", ""}));
  EXPECT_EQ(text, "");
  EXPECT_EQ(optional, "");
}

TEST_F(CommandLineTest, ANumberIsOneFromEndToEnd) {
  int count = 0;
  double seconds = 0;
  line_.argument("--count", count, "");
  line_.argument("--seconds", seconds, "");
  EXPECT_EQ(refusal({"--count", "x"}), std::string("Could not convert: --count = x") + hint);
  EXPECT_THAT(refusal({"--count", "1.5"}), HasSubstr("--count"));
  EXPECT_THAT(refusal({"--count", "99999999999"}), HasSubstr("--count"));
  EXPECT_THAT(refusal({"--seconds", "1s"}), HasSubstr("--seconds"));
  EXPECT_THAT(refusal({"--count"}), StartsWith("--count"));
}

TEST_F(CommandLineTest, ARequiredArgumentMayNotBeMissing) {
  std::string file;
  std::string name;
  line_.argument("FILE", file, "").required();
  line_.argument("--name", name, "").required();
  EXPECT_EQ(refusal({"--name", "n"}), std::string("FILE is required") + hint);
  EXPECT_EQ(refusal({"f"}), std::string("--name is required") + hint);
  EXPECT_TRUE(reads({"f", "--name", "n"}));
}

TEST_F(CommandLineTest, ARangeIncludesItsBounds) {
  int count = 0;
  std::int64_t large = 0;
  double seconds = 0;
  line_.argument("--count", count, "").range(1, 8);
  line_.argument("--large", large, "").range(std::int64_t{1}, INT64_MAX);
  line_.argument("--seconds", seconds, "").range(0.25, 60.0);
  EXPECT_TRUE(reads({"--count", "1", "--large", "1", "--seconds", "0.25"}));
  EXPECT_TRUE(reads({"--count", "8", "--large", "9223372036854775807", "--seconds", "60"}));
  EXPECT_EQ(refusal({"--count", "0"}), std::string("--count: Value 0 not in range 1 to 8") + hint);
  EXPECT_THAT(refusal({"--count", "9"}), HasSubstr("Value 9 not in range 1 to 8"));
  EXPECT_THAT(refusal({"--count", "x"}), HasSubstr("Value x not in range 1 to 8"));
  EXPECT_THAT(refusal({"--count", ""}), HasSubstr("--count"));
  EXPECT_THAT(refusal({"--large", "0"}), HasSubstr("not in range"));
  EXPECT_THAT(refusal({"--seconds", "0.2"}), HasSubstr("Value 0.2 not in range 0.25"));
}

TEST_F(CommandLineTest, OnlyTheOfferedWordsAreTaken) {
  std::string word;
  line_.argument("--word", word, "").oneOf({"second", "first"});
  EXPECT_TRUE(reads({"--word", "first"}));
  EXPECT_EQ(word, "first");
  EXPECT_EQ(refusal({"--word", "First"}), std::string("--word: First not in {second,first}") + hint);
  EXPECT_THAT(refusal({"--word", ""}), StartsWith("--word"));
}

TEST_F(CommandLineTest, ARefusedValueIsExplainedAndNotStored) {
  std::string name = "before";
  line_.argument("NAME", name, "").check([](const std::string& text) {
    return text == "good" ? "" : "is not good";
  });
  EXPECT_EQ(refusal({"bad"}), std::string("NAME: is not good") + hint);
  EXPECT_EQ(name, "before");
  EXPECT_TRUE(reads({"good"}));
}

TEST_F(CommandLineTest, AFunctionGetsTheValueAndMayRefuseIt) {
  std::vector<std::string> taken;
  line_.argument(
      "--name",
      [&taken](const std::string& text) {
        taken.push_back(text);
        return text == "bad" ? "is bad" : "";
      },
      "");
  EXPECT_TRUE(reads({"--name", "good"}));
  EXPECT_EQ(refusal({"--name", "bad"}), std::string("--name: is bad") + hint);
  EXPECT_THAT(taken, ElementsAre("good", "bad"));
}

TEST_F(CommandLineTest, ACheckComesBeforeTheFunction) {
  bool taken = false;
  line_
      .argument(
          "--name",
          [&taken](const std::string&) {
            taken = true;
            return "refused by the function";
          },
          "")
      .check([](const std::string&) { return "refused by the check"; });
  EXPECT_THAT(refusal({"--name", "x"}), HasSubstr("refused by the check"));
  EXPECT_FALSE(taken);
}

TEST_F(CommandLineTest, AnArgumentThatIsNotRepeatedIsGivenOnce) {
  std::string text;
  std::optional<std::string> optional;
  int count = 0;
  line_.argument("--text", text, "");
  line_.argument("--optional", optional, "");
  line_.argument("--count", count, "");
  for (const char* option : {"--text", "--optional", "--count"}) {
    EXPECT_THAT(refusal({option, "1", option, "2"}), StartsWith(option));
  }
}

TEST_F(CommandLineTest, ARepeatedOptionTakesOneValueEachTimeItIsNamed) {
  std::vector<std::string> names;
  std::vector<std::string> taken;
  std::string file;
  line_.repeated("--name", names, "");
  line_.repeated(
      "--take",
      [&taken](const std::string& text) {
        taken.push_back(text);
        return "";
      },
      "");
  line_.argument("FILE", file, "");
  ASSERT_TRUE(reads({"--name", "a", "--take", "b", "--name", "c", "--take", "d", "file"})) << errors_.str();
  EXPECT_THAT(names, ElementsAre("a", "c"));
  EXPECT_THAT(taken, ElementsAre("b", "d"));
  EXPECT_EQ(file, "file");
  EXPECT_THAT(refusal({"--name"}), StartsWith("--name"));
}

TEST_F(CommandLineTest, ARepeatedPositionalArgumentTakesAllThereAre) {
  std::vector<std::string> names;
  bool json = false;
  line_.repeated("NAME", names, "").required();
  line_.flag("--json", json, "");
  EXPECT_THAT(refusal({"--json"}), StartsWith("NAME is required"));
  ASSERT_TRUE(reads({"a", "--json", "b", "--", "--c"}));
  EXPECT_THAT(names, ElementsAre("a", "b", "--c"));
}

TEST_F(CommandLineTest, TheFirstRefusedOfRepeatedValuesEndsIt) {
  std::vector<std::string> seen;
  line_.repeated(
      "NAME",
      [&seen](const std::string& text) {
        seen.push_back(text);
        return text == "bad" ? "is bad" : "";
      },
      "");
  EXPECT_EQ(refusal({"good", "bad", "late"}), std::string("NAME: is bad") + hint);
  EXPECT_THAT(seen, ElementsAre("good", "bad"));
}

TEST_F(CommandLineTest, WhatNobodyDeclaredIsRefused) {
  EXPECT_EQ(refusal({"--bogus"}), std::string("The following argument was not expected: --bogus") + hint);
  EXPECT_THAT(refusal({"stray"}), HasSubstr("stray"));
  EXPECT_THAT(refusal({"--", "--bogus"}), HasSubstr("--bogus"));
}

TEST_F(CommandLineTest, ValuesAreCheckedTogetherOnceAllAreThere) {
  int low = 0;
  int high = 9;
  line_.argument("--low", low, "");
  line_.argument("--high", high, "");
  line_.checkTogether([&] { return low <= high ? "" : "--low: is above --high"; });
  EXPECT_TRUE(reads({"--low", "11", "--high", "12"}));
  EXPECT_EQ(refusal({"--low", "13", "--high", "12"}), std::string("--low: is above --high") + hint);
}

TEST_F(CommandLineTest, HelpTellsWhatCanBeSaid) {
  std::string file;
  int count = 0;
  std::vector<std::string> names;
  line_.argument("FILE", file, "which file").required();
  line_.argument("--count", count, "how many").typeName("N").range(1, 8);
  line_.repeated("--name", names, "whose").typeName("TEXT");
  line_.footer("Example:\n  tool f");
  EXPECT_FALSE(reads({"--help"}));
  EXPECT_EQ(ended_, ExitDone);
  EXPECT_EQ(errors_.str(), "");
  EXPECT_EQ(output_.str(),
            "Does things.\n"
            "Usage: tool [OPTIONS] FILE\n\n"
            "Positionals:\n"
            "  FILE TEXT REQUIRED              which file\n\n"
            "Options:\n"
            "  -h,--help                       Print this help message and exit\n"
            "  --count N                       how many\n"
            "  --name TEXT ...                 whose\n\n"
            "Example:\n  tool f\n");
}

TEST_F(CommandLineTest, TheVersionIsToldInsteadOfDoingAnything) {
  std::string file;
  line_.version("tool 1.2.3");
  line_.argument("FILE", file, "").required();
  EXPECT_FALSE(reads({"--version"}));
  EXPECT_EQ(ended_, ExitDone);
  EXPECT_EQ(output_.str(), "tool 1.2.3\n");
  EXPECT_EQ(errors_.str(), "");
}

TEST_F(CommandLineTest, ExactlyOneSubcommandIsChosen) {
  int count = 0;
  CommandLine& eat = line_.subcommand("eat", "eats");
  CommandLine& sleep = line_.subcommand("sleep", "sleeps");
  sleep.argument("--count", count, "");
  EXPECT_EQ(refusal({}), std::string("A subcommand is required") + hint);
  EXPECT_THAT(refusal({"dream"}), Not(IsEmpty()));
  EXPECT_THAT(refusal({"eat", "--count", "1"}), HasSubstr("--count"));
  ASSERT_TRUE(reads({"sleep", "--count", "2"})) << errors_.str();
  EXPECT_TRUE(sleep.isChosen());
  EXPECT_TRUE(sleep.isGiven("--count"));
  EXPECT_FALSE(eat.isChosen());
  EXPECT_EQ(count, 2);
  EXPECT_THAT(refusal({"eat", "sleep"}), HasSubstr("sleep"));
}

TEST_F(CommandLineTest, HelpOfASubcommandIsItsOwn) {
  int count = 0;
  CommandLine& sleep = line_.subcommand("sleep", "Sleeps.");
  sleep.argument("--count", count, "how often");
  EXPECT_FALSE(reads({"sleep", "--help"}));
  EXPECT_EQ(ended_, ExitDone);
  EXPECT_THAT(output_.str(), StartsWith("Sleeps.\nUsage: tool sleep [OPTIONS]\n"));
  EXPECT_THAT(output_.str(), HasSubstr("  --count INT                     how often\n"));
}

}  // namespace
}  // namespace ferrox::command
