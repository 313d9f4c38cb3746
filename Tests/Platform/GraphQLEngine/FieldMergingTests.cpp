#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Platform/GraphQLEngine/Parser.h"
#include "Platform/GraphQLEngine/Validation.h"

namespace ferrox::graphql {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Columns = std::vector<unsigned>;

/// Where the conflicts are, in queries of one line.
std::vector<Columns> conflicts(const std::string& query) {
  const auto schema = Schema::build(
      "type Query { a(x: Int, s: String, in: In): Int b: Int q: Query r: Query } input In { x: Int y: Int l: "
      "[Int] }");
  GraphQLError error;
  const auto document = parseQuery(query, {}, error);
  EXPECT_TRUE(document) << query;
  std::vector<Columns> all;
  if (!document) return all;
  for (const GraphQLError& conflict : validate(*schema, *document, {})) {
    EXPECT_EQ(conflict.message.find("Different fields would answer to \""), 0U) << conflict.message;
    Columns columns;
    for (const Location& location : conflict.locations) columns.push_back(location.column);
    all.push_back(columns);
  }
  return all;
}

TEST(FieldMerging, TheSameFieldMayBeAskedForAgain) {
  EXPECT_THAT(
      conflicts("{ a a q { a } q { b } x: b x: b ... { a } ...F } fragment F on Query { a q { a x: a } }"),
      IsEmpty());
}

TEST(FieldMerging, DifferentFieldsNeedDifferentKeys) {
  EXPECT_THAT(conflicts("{ x: a x: b }"), ElementsAre(Columns{3, 8}));
  EXPECT_THAT(conflicts("{ a: b a }"), ElementsAre(Columns{3, 8}));
}

TEST(FieldMerging, EachIsComparedWithTheFirst) {
  EXPECT_THAT(conflicts("{ x: a x: b x: a x: b }"), ElementsAre(Columns{3, 8}, Columns{3, 18}));
}

TEST(FieldMerging, ArgumentsAreComparedByTheirMeaning) {
  EXPECT_THAT(conflicts("{ a(x: 1, s: \"t\") a(s: \"\"\"t\"\"\", x: 1) }"), IsEmpty());
  EXPECT_THAT(conflicts("{ a(in: {x: 1, y: 2}) a(in: {y: 2, x: 1}) }"), IsEmpty());
  EXPECT_THAT(conflicts("{ a(x: 1) a(x: 2) }"), ElementsAre(Columns{3, 11}));
  EXPECT_THAT(conflicts("{ a(x: 1) a }"), ElementsAre(Columns{3, 11}));
  EXPECT_THAT(conflicts("{ a a(x: null) }"), ElementsAre(Columns{3, 5}));
  EXPECT_THAT(conflicts("{ a(in: {l: [1, 2]}) a(in: {l: [2, 1]}) }"), ElementsAre(Columns{3, 22}));
  EXPECT_THAT(conflicts("{ a(in: {l: [1]}) a(in: {l: 1}) }"), ElementsAre(Columns{3, 19}));
  EXPECT_THAT(conflicts("query ($v: Int, $w: Int) { a(x: $v) a(x: $w) b }"), ElementsAre(Columns{28, 37}));
  EXPECT_THAT(conflicts("query ($v: Int) { a(x: $v) a(x: $v) }"), IsEmpty());
}

TEST(FieldMerging, ConflictsInsideMergedFieldsNameTheWayThere) {
  EXPECT_THAT(conflicts("{ q { x: a } q { x: b } }"), ElementsAre(Columns{3, 7, 14, 18}));
  EXPECT_THAT(conflicts("{ q { r { x: a } } q { r { x: b } } }"), ElementsAre(Columns{3, 7, 11, 20, 24, 28}));
  EXPECT_THAT(conflicts("{ q { x: a x: b } q { b } }"), ElementsAre(Columns{7, 12}));
}

TEST(FieldMerging, TwoFieldsConflictOnceHoweverOftenInside) {
  EXPECT_THAT(conflicts("{ q { x: a y: a } q { x: b y: b } }"), ElementsAre(Columns{3, 7, 12, 19, 23, 28}));
}

TEST(FieldMerging, FragmentsCountAsWhatTheyHold) {
  EXPECT_THAT(conflicts("{ ...F x: b } fragment F on Query { x: a }"), ElementsAre(Columns{8, 37}));
  EXPECT_THAT(conflicts("{ ... { x: a } ... on Query { ... { x: b } } }"), ElementsAre(Columns{9, 37}));
  EXPECT_THAT(
      conflicts("{ q { ...F } q { ...G } } fragment F on Query { x: a } fragment G on Query { x: b }"),
      ElementsAre(Columns{3, 14, 49, 78}));
}

TEST(FieldMerging, AFragmentSpreadTwiceConflictsOnce) {
  EXPECT_THAT(conflicts("{ q { ...F } r { ...F } } fragment F on Query { x: a x: b }"),
              ElementsAre(Columns{49, 54}));
}

TEST(FieldMerging, WhatConflictsIsStillLookedInto) {
  EXPECT_THAT(conflicts("{ x: q { y: a y: b } x: r { y: a y: b } }"),
              ElementsAre(Columns{3, 22}, Columns{29, 34}, Columns{10, 15}));
}

TEST(FieldMerging, OperationsAreApart) {
  EXPECT_THAT(conflicts("query A { x: a } query B { x: b }"), IsEmpty());
}

}  // namespace
}  // namespace ferrox::graphql
