#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Platform/GraphQLEngine/Parser.h"
#include "Platform/GraphQLEngine/ValuePrinter.h"

namespace ferrox::graphql {
namespace {

/// The value, read and printed.
std::string reprinted(std::string_view value) {
  GraphQLError error;
  const auto document = parseQuery("{a(b:" + std::string(value) + ")}", {}, error);
  if (!document) return error.message;
  const Selection& selection = document->operations.front().selectionSet.selections.front();
  return printValue(std::get<Field>(selection.node).arguments.front().value);
}

TEST(ValuePrinter, LeavesStandAsTheyWereWritten) {
  for (const char* const value :
       {"1", "-1.50e3", "true", "false", "null", "RED", "$variable", "\"text\"", "\"\""}) {
    EXPECT_EQ(reprinted(value), value);
  }
}

TEST(ValuePrinter, ListsAndObjectsAreSeparatedByCommas) {
  EXPECT_EQ(reprinted("{ a : 1 b:[2 3,{c:null}], d: {} e: [] }"),
            "{a: 1, b: [2, 3, {c: null}], d: {}, e: []}");
}

TEST(ValuePrinter, StringsAreEscapedWhereTheyHaveTo) {
  EXPECT_EQ(reprinted(R"("\"\\\/\b\f\n\r\t\u0001\u001f\u007f\u009F\u00a0\u00e4\uD83D\uDE00")"),
            "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001F\\u007F\\u009F\xC2\xA0\xC3\xA4\xF0\x9F\x98\x80\"");
}

TEST(ValuePrinter, BlockStringsBecomePlainOnes) {
  EXPECT_EQ(reprinted("\"\"\"\n  a \"b\"\n    c\n\"\"\""), R"("a \"b\"\n  c")");
}

TEST(ValuePrinter, WhatWasPrintedReadsAsTheSameValue) {
  for (const char* const value :
       {R"("\u0000\u0085\\u0041 'x' \"")", R"({a: ["\n", [[1.0e-3]], {b: FALSE}]})"}) {
    const std::string once = reprinted(value);
    EXPECT_EQ(reprinted(once), once);
  }
}

}  // namespace
}  // namespace ferrox::graphql
