#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/GraphQLEngine/Parser.h"

namespace ferrox::graphql {
namespace {

using OperationKind = OperationDefinition::Kind;

Document parsed(std::string_view text, const GraphQLLimits& limits = {}) {
  GraphQLError error;
  auto document = parseQuery(text, limits, error);
  EXPECT_TRUE(document) << text << ": " << error.message;
  return document ? std::move(*document) : Document();
}

/// The error with which the text is refused.
GraphQLError refusal(std::string_view text, const GraphQLLimits& limits = {}) {
  GraphQLError error;
  EXPECT_FALSE(parseQuery(text, limits, error)) << text;
  EXPECT_FALSE(error.message.empty()) << text;
  EXPECT_TRUE(error.path.empty()) << text;
  return error;
}

Location refusedAt(std::string_view text, const GraphQLLimits& limits = {}) {
  const GraphQLError error = refusal(text, limits);
  return error.locations.size() == 1 ? error.locations.front() : Location{};
}

const Field& fieldAt(const SelectionSet& set, std::size_t index) {
  return std::get<Field>(set.selections.at(index).node);
}

std::string repeated(std::string_view text, std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

/// The value of the only argument of the only field.
Value valueIn(std::string_view text) {
  Document document = parsed("{a(b:" + std::string(text) + ")}");
  if (document.operations.empty()) return {};
  static std::vector<Document> kept;
  kept.push_back(std::move(document));
  return fieldAt(kept.back().operations.front().selectionSet, 0).arguments.at(0).value;
}

TEST(Parser, TheShortFormIsAQuery) {
  const Document document = parsed("{ a\n  b: c }");
  ASSERT_EQ(document.operations.size(), 1U);
  const OperationDefinition& operation = document.operations.front();
  EXPECT_EQ(operation.kind, OperationKind::Query);
  EXPECT_EQ(operation.name, "");
  EXPECT_EQ(operation.location, (Location{1, 1}));
  EXPECT_EQ(operation.selectionSet.location, (Location{1, 1}));
  ASSERT_EQ(operation.selectionSet.selections.size(), 2U);
  const Field& first = fieldAt(operation.selectionSet, 0);
  EXPECT_EQ(first.name, "a");
  EXPECT_EQ(first.responseKey(), "a");
  EXPECT_EQ(first.location, (Location{1, 3}));
  const Field& second = fieldAt(operation.selectionSet, 1);
  EXPECT_EQ(second.name, "c");
  EXPECT_EQ(second.responseKey(), "b");
  EXPECT_EQ(second.location, (Location{2, 3}));
}

TEST(Parser, OperationsOfAllKindsCarryNameVariablesAndDirectives) {
  const Document document =
      parsed("query Q($a: Int! = 1 @x, $b: [S!]) @d(e: $a) { f }\nmutation { f } subscription S { f }");
  ASSERT_EQ(document.operations.size(), 3U);
  const OperationDefinition& query = document.operations[0];
  EXPECT_EQ(query.name, "Q");
  EXPECT_EQ(query.location, (Location{1, 1}));
  EXPECT_EQ(query.nameLocation, (Location{1, 7}));
  ASSERT_EQ(query.variables.size(), 2U);
  EXPECT_EQ(query.variables[0].name, "a");
  EXPECT_EQ(query.variables[0].location, (Location{1, 9}));
  EXPECT_EQ(query.variables[0].nameLocation, (Location{1, 10}));
  EXPECT_EQ(query.variables[0].type.kind, TypeNode::Kind::NonNull);
  EXPECT_EQ(query.variables[0].type.of->name, "Int");
  ASSERT_TRUE(query.variables[0].defaultValue);
  EXPECT_EQ(query.variables[0].defaultValue->text, "1");
  ASSERT_EQ(query.variables[0].directives.size(), 1U);
  EXPECT_EQ(query.variables[0].directives[0].name, "x");
  EXPECT_FALSE(query.variables[1].defaultValue);
  ASSERT_EQ(query.directives.size(), 1U);
  EXPECT_EQ(query.directives[0].location, (Location{1, 36}));
  EXPECT_EQ(query.directives[0].arguments.at(0).value.kind, Value::Kind::Variable);
  EXPECT_EQ(document.operations[1].kind, OperationKind::Mutation);
  EXPECT_EQ(document.operations[1].name, "");
  EXPECT_EQ(document.operations[1].location, (Location{2, 1}));
  EXPECT_EQ(document.operations[2].kind, OperationKind::Subscription);
  EXPECT_EQ(document.operations[2].name, "S");
}

TEST(Parser, FieldsCarryArgumentsDirectivesAndSelections) {
  const Document document = parsed("{ a: b(c: 1, d: $e) @skip(if: true) @x { f } }");
  const Field& field = fieldAt(document.operations.at(0).selectionSet, 0);
  ASSERT_EQ(field.arguments.size(), 2U);
  EXPECT_EQ(field.arguments[0].name, "c");
  EXPECT_EQ(field.arguments[0].location, (Location{1, 8}));
  EXPECT_EQ(field.arguments[1].value.text, "e");
  EXPECT_EQ(field.arguments[1].value.location, (Location{1, 17}));
  ASSERT_EQ(field.directives.size(), 2U);
  EXPECT_EQ(field.directives[0].arguments.at(0).value.text, "true");
  EXPECT_EQ(field.directives[1].name, "x");
  EXPECT_EQ(field.selectionSet.location, (Location{1, 40}));
  EXPECT_EQ(fieldAt(field.selectionSet, 0).name, "f");
}

TEST(Parser, FragmentsAreSpreadInlinedAndDefined) {
  const Document document =
      parsed("{ ...F @a ... on T @b { c } ... { d } ...@e { f } }\nfragment F on T @g { h }");
  const auto& selections = document.operations.at(0).selectionSet.selections;
  ASSERT_EQ(selections.size(), 4U);
  const auto& spread = std::get<FragmentSpread>(selections[0].node);
  EXPECT_EQ(spread.name, "F");
  EXPECT_EQ(spread.location, (Location{1, 3}));
  EXPECT_EQ(spread.nameLocation, (Location{1, 6}));
  EXPECT_EQ(spread.directives.at(0).name, "a");
  const auto& inlined = std::get<InlineFragment>(selections[1].node);
  EXPECT_EQ(inlined.typeCondition, "T");
  EXPECT_EQ(inlined.location, (Location{1, 11}));
  EXPECT_EQ(inlined.typeConditionLocation, (Location{1, 18}));
  EXPECT_EQ(inlined.directives.at(0).name, "b");
  EXPECT_EQ(fieldAt(inlined.selectionSet, 0).name, "c");
  EXPECT_EQ(std::get<InlineFragment>(selections[2].node).typeCondition, "");
  EXPECT_EQ(std::get<InlineFragment>(selections[3].node).directives.at(0).name, "e");
  ASSERT_EQ(document.fragments.size(), 1U);
  const FragmentDefinition& fragment = document.fragments[0];
  EXPECT_EQ(fragment.name, "F");
  EXPECT_EQ(fragment.typeCondition, "T");
  EXPECT_EQ(fragment.location, (Location{2, 1}));
  EXPECT_EQ(fragment.nameLocation, (Location{2, 10}));
  EXPECT_EQ(fragment.typeConditionLocation, (Location{2, 15}));
  EXPECT_EQ(fragment.directives.at(0).name, "g");
  EXPECT_EQ(fieldAt(fragment.selectionSet, 0).name, "h");
}

TEST(Parser, EveryKindOfValueIsRead) {
  using Kind = Value::Kind;
  const std::pair<const char*, Kind> leaves[] = {
      {"$v", Kind::Variable},  {"-1", Kind::Int},       {"1.5e3", Kind::Float},
      {"\"s\"", Kind::String}, {"true", Kind::Boolean}, {"false", Kind::Boolean},
      {"null", Kind::Null},    {"RED", Kind::Enum},     {"\"\"\"s\"\"\"", Kind::String}};
  for (const auto& [text, kind] : leaves) {
    const Value value = valueIn(text);
    EXPECT_EQ(value.kind, kind) << text;
    EXPECT_EQ(value.location, (Location{1, 6})) << text;
  }
  EXPECT_EQ(valueIn("$v").text, "v");
  EXPECT_EQ(valueIn("1.5e3").text, "1.5e3");
  EXPECT_EQ(valueIn("\"\\u00e4\"").text, "\xC3\xA4");
  EXPECT_EQ(valueIn("RED").text, "RED");
}

TEST(Parser, ListsAndObjectsHoldValues) {
  EXPECT_TRUE(valueIn("[]").items.empty());
  EXPECT_TRUE(valueIn("{}").fields.empty());
  const Value list = valueIn("[1 [2], {x: $y}]");
  ASSERT_EQ(list.items.size(), 3U);
  EXPECT_EQ(list.kind, Value::Kind::List);
  EXPECT_EQ(list.items[1].items.at(0).text, "2");
  const Value& object = list.items[2];
  EXPECT_EQ(object.kind, Value::Kind::Object);
  EXPECT_EQ(object.location, (Location{1, 14}));
  EXPECT_EQ(object.fields.at(0).name, "x");
  EXPECT_EQ(object.fields.at(0).location, (Location{1, 15}));
  EXPECT_EQ(object.fields.at(0).value.text, "y");
}

TEST(Parser, TypesNestListsAndNonNull) {
  const Document document = parsed("query ($a: [[Int]!]!) { a }");
  const TypeNode& type = document.operations.at(0).variables.at(0).type;
  EXPECT_EQ(type.kind, TypeNode::Kind::NonNull);
  EXPECT_EQ(type.location, (Location{1, 12}));
  ASSERT_EQ(type.of->kind, TypeNode::Kind::List);
  ASSERT_EQ(type.of->of->kind, TypeNode::Kind::NonNull);
  EXPECT_EQ(type.of->of->location, (Location{1, 13}));
  EXPECT_EQ(type.of->of->of->of->name, "Int");
  EXPECT_EQ(type.of->of->of->of->location, (Location{1, 14}));
}

TEST(Parser, KeywordsAreNamesElsewhere) {
  const Document document = parsed(
      "query query($on: fragment = on) { on: fragment(type: null) ... on on { true } ...fragment } "
      "fragment fragment on schema { mutation }");
  EXPECT_EQ(document.operations.at(0).name, "query");
  EXPECT_EQ(fieldAt(document.operations[0].selectionSet, 0).responseKey(), "on");
  EXPECT_EQ(document.fragments.at(0).name, "fragment");
}

TEST(Parser, TheTextMayGoAwayAndTheDocumentMayMove) {
  auto text = std::make_unique<std::string>("{ a(b: \"\\tdecoded\") }");
  Document first = parsed(*text);
  text.reset();
  const Document document = std::move(first);
  const Field& field = fieldAt(document.operations.at(0).selectionSet, 0);
  EXPECT_EQ(field.name, "a");
  EXPECT_EQ(field.arguments.at(0).value.text, "\tdecoded");
}

TEST(Parser, WhatTheGrammarForbidsIsRefusedAtTheOffendingToken) {
  const std::pair<const char*, Location> texts[] = {
      {"", {1, 1}},
      {" # nothing\n", {2, 1}},
      {"{", {1, 2}},
      {"{}", {1, 2}},
      {"{ a", {1, 4}},
      {"{ a { } }", {1, 7}},
      {"{ a } }", {1, 7}},
      {"{ a() }", {1, 5}},
      {"{ a(b) }", {1, 6}},
      {"{ a(b:) }", {1, 7}},
      {"{ a(1: 2) }", {1, 5}},
      {"{ a: }", {1, 6}},
      {"{ a: b: c }", {1, 7}},
      {"{ a @ }", {1, 7}},
      {"{ a @b() }", {1, 8}},
      {"{ a(b: [1) }", {1, 10}},
      {"{ a(b: {c 1}) }", {1, 11}},
      {"{ a(b: {1: 1}) }", {1, 9}},
      {"{ a(b: $) }", {1, 9}},
      {"{ ... }", {1, 7}},
      {"{ ...on }", {1, 9}},
      {"{ ... on T }", {1, 12}},
      {"{ \"a\" }", {1, 3}},
      {"a", {1, 1}},
      {"\"a\" { a }", {1, 1}},
      {"query", {1, 6}},
      {"query Q", {1, 8}},
      {"query Q() { a }", {1, 9}},
      {"query ($a) { a }", {1, 10}},
      {"query ($a:) { a }", {1, 11}},
      {"query ($a: [Int) { a }", {1, 16}},
      {"query ($a: Int!!) { a }", {1, 16}},
      {"query ($a: Int =) { a }", {1, 17}},
      {"query (a: Int) { a }", {1, 8}},
      {"query @a", {1, 9}},
      {"query { a } b", {1, 13}},
      {"fragment F { a }", {1, 12}},
      {"fragment F on { a }", {1, 15}},
      {"fragment on on T { a }", {1, 10}},
      {"fragment F on T", {1, 16}},
      {"fragment F on T {}", {1, 18}},
      {"fragment F($a: Int) on T { a }", {1, 11}},
      {"{ a(b: 01) }", {1, 9}},
      {"{ a(b: \"c) }", {1, 13}},
      {"{ a & b }", {1, 5}},
  };
  for (const auto& [text, location] : texts) EXPECT_EQ(refusedAt(text), location) << text;
}

TEST(Parser, VariablesAreRefusedWhereValuesMustBeKnown) {
  EXPECT_EQ(refusedAt("query ($a: Int = $b) { a }"), (Location{1, 18}));
  EXPECT_EQ(refusedAt("query ($a: [Int] = [1 $b]) { a }"), (Location{1, 23}));
  EXPECT_EQ(refusedAt("query ($a: T = {b: {c: $d}}) { a }"), (Location{1, 24}));
  EXPECT_EQ(refusedAt("query ($a: Int @b(c: $d)) { a }"), (Location{1, 22}));
}

TEST(Parser, TypeSystemDefinitionsAreRefusedByName) {
  for (const std::string word :
       {"schema", "scalar", "type", "interface", "union", "enum", "input", "directive", "extend"}) {
    const GraphQLError error = refusal("{ a } " + word + " T { a: Int }");
    EXPECT_EQ(error.locations, (std::vector<Location>{{1, 7}})) << word;
    EXPECT_NE(error.message.find("type system"), std::string::npos) << error.message;
  }
}

TEST(Parser, SelectionSetsNestUpToTheLimit) {
  GraphQLLimits limits;
  limits.depth = 3;
  (void)parsed("{ a { b { c } d { e } } f { g { h } } }", limits);
  EXPECT_EQ(refusedAt("{ a { b { c { d } } } }", limits), (Location{1, 13}));
  EXPECT_EQ(refusedAt("{ a { ... { ... on T { d } } } }", limits), (Location{1, 22}));
}

TEST(Parser, ValuesAndTypesNestUpToTheLimitEachForItself) {
  GraphQLLimits limits;
  limits.depth = 2;
  (void)parsed("query ($a: [[Int!]!]!) { a { b(c: [[1], {d: 2}], e: {f: {}}) } }", limits);
  EXPECT_EQ(refusedAt("{ a(b: [[[]]]) }", limits), (Location{1, 10}));
  EXPECT_EQ(refusedAt("{ a(b: {c: [{}]}) }", limits), (Location{1, 13}));
  EXPECT_EQ(refusedAt("query ($a: [[[Int]]]) { a }", limits), (Location{1, 14}));
}

TEST(Parser, TokensAndBytesAreLimited) {
  GraphQLLimits limits;
  limits.tokens = 4;
  (void)parsed("{ a b } # c d e", limits);
  EXPECT_EQ(refusedAt("{ a b c }", limits), (Location{1, 9}));
  limits = {};
  limits.bytes = 7;
  (void)parsed("{ a b }", limits);
  EXPECT_TRUE(refusal("{ a b } ", limits).locations.empty());
}

TEST(Parser, TwentyThousandBracesAreRefusedAtTheLimit) {
  GraphQLLimits limits;
  for (const char* const pattern : {"{", "{a", "{a(b:[", "{...{", "{a(b:{c:", "query($a:["}) {
    const std::string text = repeated(pattern, 20'000);
    EXPECT_TRUE(refusal(text).locations.empty()) << pattern;
    // Nor do they exhaust the stack of who allows longer texts.
    limits.bytes = limits.tokens = text.size();
    EXPECT_EQ(refusedAt(text, limits).line, 1U) << pattern;
  }
  limits.bytes = limits.tokens = 50'000;
  EXPECT_EQ(refusedAt("{a(b:" + repeated("[", 20'000), limits), (Location{1, 21}));
  EXPECT_EQ(refusedAt("{a(b:" + repeated("{c:", 10'000), limits), (Location{1, 51}));
  EXPECT_EQ(refusedAt("query($a:" + repeated("[", 20'000), limits), (Location{1, 25}));
  EXPECT_EQ(refusedAt(repeated("{a", 20'000), limits), (Location{1, 31}));
}

TEST(Parser, HalfATextIsAlwaysRefused) {
  const std::string text =
      "query Q($a: [Int!]! = [1, 2] @b) @c(d: {e: \"f\"}) { g: h(i: $a) { ... on T { j } ...F } } "
      "fragment F on T @k { l }";
  (void)parsed(text);
  const std::size_t operationEnd = text.find(" fragment");
  for (std::size_t length = 0; length < text.size(); ++length) {
    if (length == operationEnd || length == operationEnd + 1) continue;
    EXPECT_EQ(refusedAt(text.substr(0, length)).line, 1U) << length;
  }
}

}  // namespace
}  // namespace ferrox::graphql
