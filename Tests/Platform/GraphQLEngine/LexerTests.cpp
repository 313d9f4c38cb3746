#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/GraphQLEngine/Lexer.h"
#include "Platform/GraphQLEngine/Refusal.h"

namespace ferrox::graphql {
namespace {

using namespace std::string_literals;
using Kind = Token::Kind;

struct Read {
  std::vector<Kind> kinds;
  std::vector<std::string> texts;
  std::vector<Location> locations;
  std::optional<GraphQLError> error;
};

/// All tokens before the end.
Read tokensOf(std::string_view source, std::size_t maxTokens = 1000) {
  Read read;
  Lexer::Texts texts;
  Lexer lexer(source, texts, maxTokens);
  try {
    for (Token token = lexer.next(); token.kind != Kind::EndOfSource; token = lexer.next()) {
      read.kinds.push_back(token.kind);
      read.texts.emplace_back(token.text);
      read.locations.push_back(token.location);
    }
  } catch (const Refusal& refusal) {
    read.error = refusal.error;
  }
  return read;
}

/// What the source, one string, means.
std::string stringOf(std::string_view source) {
  const Read read = tokensOf(source);
  EXPECT_FALSE(read.error) << read.error->message;
  EXPECT_EQ(read.kinds, std::vector{Kind::String});
  return read.texts.empty() ? std::string() : read.texts.front();
}

/// Where the source is refused.
Location refusedAt(std::string_view source) {
  const Read read = tokensOf(source);
  if (!read.error || read.error->locations.size() != 1 || read.error->message.empty()) return {};
  return read.error->locations.front();
}

TEST(Lexer, PunctuatorsAndNames) {
  const Read read = tokensOf("! $ & ( ) ... : = @ [ ] { | } _name Name9");
  EXPECT_FALSE(read.error);
  EXPECT_EQ(read.kinds, (std::vector{Kind::Bang, Kind::Dollar, Kind::Ampersand, Kind::ParenLeft,
                                     Kind::ParenRight, Kind::Spread, Kind::Colon, Kind::Equals, Kind::At,
                                     Kind::BracketLeft, Kind::BracketRight, Kind::BraceLeft, Kind::Pipe,
                                     Kind::BraceRight, Kind::Name, Kind::Name}));
  EXPECT_EQ(read.texts[5], "...");
  EXPECT_EQ(read.texts[14], "_name");
  EXPECT_EQ(read.texts[15], "Name9");
}

TEST(Lexer, WhatIsIgnoredMakesNoToken) {
  const Read read = tokensOf(
      "\xEF\xBB\xBF ,\t, a # b \"\n\r\n#\xC3\xA4\n\xEF\xBB\xBF"
      "c#");
  EXPECT_FALSE(read.error);
  EXPECT_EQ(read.texts, (std::vector{"a"s, "c"s}));
}

TEST(Lexer, LocationsCountLinesAndCodePoints) {
  const Read read =
      tokensOf("a\r\nb\rc\n d \"\xC3\xA4\xF0\x9F\x98\x80\" e \"\"\"\n\xE2\x82\xAC\n \"\"\" f\n\xEF\xBB\xBFg");
  EXPECT_FALSE(read.error);
  EXPECT_EQ(read.locations,
            (std::vector<Location>{{1, 1}, {2, 1}, {3, 1}, {4, 2}, {4, 4}, {4, 9}, {4, 11}, {6, 6}, {7, 2}}));
}

TEST(Lexer, TheEndIsGivenAgainAndAgainWithItsLocation) {
  Lexer::Texts texts;
  Lexer lexer("a\n ", texts, 1);
  EXPECT_EQ(lexer.next().kind, Kind::Name);
  for (int i = 0; i < 2; ++i) {
    const Token end = lexer.next();
    EXPECT_EQ(end.kind, Kind::EndOfSource);
    EXPECT_EQ(end.location, (Location{2, 2}));
  }
}

TEST(Lexer, NumbersAreKeptAsTheyAreWritten) {
  const Read read = tokensOf("0 -0 12 -34 0.5 1.20 1e3 -1.5E-7 1E+2 0e1");
  EXPECT_FALSE(read.error);
  EXPECT_EQ(read.texts,
            (std::vector{"0"s, "-0"s, "12"s, "-34"s, "0.5"s, "1.20"s, "1e3"s, "-1.5E-7"s, "1E+2"s, "0e1"s}));
  EXPECT_EQ(read.kinds, (std::vector{Kind::Int, Kind::Int, Kind::Int, Kind::Int, Kind::Float, Kind::Float,
                                     Kind::Float, Kind::Float, Kind::Float, Kind::Float}));
}

TEST(Lexer, MalformedNumbersAreRefusedWhereTheyGoWrong) {
  EXPECT_EQ(refusedAt("00"), (Location{1, 2}));
  EXPECT_EQ(refusedAt("-01"), (Location{1, 3}));
  EXPECT_EQ(refusedAt("-"), (Location{1, 2}));
  EXPECT_EQ(refusedAt("-a"), (Location{1, 2}));
  EXPECT_EQ(refusedAt("1."), (Location{1, 3}));
  EXPECT_EQ(refusedAt("1.e1"), (Location{1, 3}));
  EXPECT_EQ(refusedAt("1e"), (Location{1, 3}));
  EXPECT_EQ(refusedAt("1e-"), (Location{1, 4}));
  EXPECT_EQ(refusedAt("+1"), (Location{1, 1}));
  EXPECT_EQ(refusedAt(".5"), (Location{1, 1}));
}

TEST(Lexer, ANumberIsNotFollowedByANameOrAnotherNumber) {
  EXPECT_EQ(refusedAt("0xF"), (Location{1, 2}));
  EXPECT_EQ(refusedAt("12abc"), (Location{1, 3}));
  EXPECT_EQ(refusedAt("1_"), (Location{1, 2}));
  EXPECT_EQ(refusedAt("1.2.3"), (Location{1, 4}));
  EXPECT_EQ(refusedAt("1.2e3e4"), (Location{1, 6}));
  EXPECT_EQ(refusedAt("1..."), (Location{1, 3}));
}

TEST(Lexer, StringsMayBeEmptyOrHoldAnyText) {
  EXPECT_EQ(stringOf(R"("")"), "");
  EXPECT_EQ(stringOf(R"("simple # , text")"), "simple # , text");
  EXPECT_EQ(stringOf("\"\t\x7F \xC3\xA4 \xF0\x9F\x98\x80\""), "\t\x7F \xC3\xA4 \xF0\x9F\x98\x80");
}

TEST(Lexer, EscapesAreDecoded) {
  EXPECT_EQ(stringOf(R"("a\"\\\/\b\f\n\r\tz")"), "a\"\\/\b\f\n\r\tz");
  EXPECT_EQ(stringOf(R"("\u0041\u00e4\u20AC")"), "A\xC3\xA4\xE2\x82\xAC");
  EXPECT_EQ(stringOf(R"("\u0000")"), "\0"s);
  EXPECT_EQ(stringOf(R"("\uD7FF\uE000\uFFFF")"), "\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF");
}

TEST(Lexer, SurrogatePairsAreOneCharacter) {
  EXPECT_EQ(stringOf(R"("\uD83D\uDE00")"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(stringOf(R"("\uD800\uDC00\uDBFF\uDFFF")"), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(Lexer, HalvesOfSurrogatePairsAreRefusedAtTheirBackslash) {
  EXPECT_EQ(refusedAt(R"("a\uD83D")"), (Location{1, 3}));
  EXPECT_EQ(refusedAt(R"("a\uDE00\uD83D")"), (Location{1, 3}));
  EXPECT_EQ(refusedAt(R"("a\uD83D\uD83D")"), (Location{1, 3}));
  EXPECT_EQ(refusedAt(R"("a\uD83D\n")"), (Location{1, 3}));
}

TEST(Lexer, UnknownEscapesAreRefusedAtTheirBackslash) {
  EXPECT_EQ(refusedAt(R"("a\x")"), (Location{1, 3}));
  EXPECT_EQ(refusedAt(R"("a\u12")"), (Location{1, 3}));
  EXPECT_EQ(refusedAt(R"("a\u00G0")"), (Location{1, 3}));
  EXPECT_EQ(refusedAt(R"("a\u{41}")"), (Location{1, 3}));
  EXPECT_EQ(refusedAt("\"a\\\n\""), (Location{1, 3}));
  EXPECT_EQ(refusedAt("\"a\\"), (Location{1, 3}));
}

TEST(Lexer, AStringEndsOnItsLine) {
  EXPECT_EQ(refusedAt("\"ab"), (Location{1, 4}));
  EXPECT_EQ(refusedAt("\"ab\n\""), (Location{1, 4}));
  EXPECT_EQ(refusedAt("\"ab\r\""), (Location{1, 4}));
}

TEST(Lexer, BlockStringsMeanTheirDedentedText) {
  EXPECT_EQ(stringOf(R"("""""")"), "");
  EXPECT_EQ(stringOf("\"\"\"\n  a \\n \"b\" \"\"\n    c\r\n  \"\"\""), "a \\n \"b\" \"\"\n  c");
  EXPECT_EQ(stringOf(R"("""a \""" b \\ \u0041""")"), R"(a """ b \\ \u0041)");
}

TEST(Lexer, ABlockStringHasToEnd) {
  EXPECT_EQ(refusedAt("\"\"\"ab"), (Location{1, 6}));
  EXPECT_EQ(refusedAt("\"\"\"ab\n c\\\"\"\""), (Location{2, 7}));
}

TEST(Lexer, ControlCharactersAreRefusedEverywhere) {
  EXPECT_EQ(refusedAt("a \x07"), (Location{1, 3}));
  EXPECT_EQ(refusedAt("\"a\x07\""), (Location{1, 3}));
  EXPECT_EQ(refusedAt("\"\"\"\na\x1F\"\"\""), (Location{2, 2}));
  EXPECT_EQ(refusedAt("# a\x0B"), (Location{1, 4}));
  EXPECT_EQ(refusedAt(std::string_view("a \0 b", 5)), (Location{1, 3}));
  EXPECT_EQ(refusedAt(std::string_view("\"a\0\"", 4)), (Location{1, 3}));
}

TEST(Lexer, OtherCharactersAreRefusedOutsideOfStrings) {
  for (const char* const source :
       {"a ?", "a ..", "a '", "a \\", "a \x7F", "a \xC3\xA4", "a \xF0\x9F\x98\x80"}) {
    EXPECT_EQ(refusedAt(source), (Location{1, 3})) << source;
  }
}

TEST(Lexer, TextThatIsNotUtf8IsRefused) {
  EXPECT_EQ(refusedAt("a \xFF"), (Location{1, 3}));
  EXPECT_EQ(refusedAt("\"\xC3\xA4\xC3\""), (Location{1, 3}));
  EXPECT_EQ(refusedAt("# \xED\xA0\x80"), (Location{1, 3}));
  EXPECT_EQ(refusedAt("\"\"\"\xC0\xAF\"\"\""), (Location{1, 4}));
  EXPECT_EQ(refusedAt("\xEF\xBB"), (Location{1, 1}));
}

TEST(Lexer, TheFirstTokenBeyondTheLimitIsRefused) {
  EXPECT_FALSE(tokensOf("a b c", 3).error);
  const Read read = tokensOf("a b c # d\n d", 3);
  ASSERT_TRUE(read.error);
  EXPECT_EQ(read.error->locations, (std::vector<Location>{{2, 2}}));
  EXPECT_EQ(read.texts.size(), 3U);
}

}  // namespace
}  // namespace ferrox::graphql
