#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/GraphQLEngine/Refusal.h"
#include "Platform/GraphQLEngine/TypeSystemParser.h"

namespace ferrox::graphql {
namespace {

/// Keeps the source that the document views.
struct Parsed {
  explicit Parsed(std::string text) : source(std::move(text)), document(parseTypeSystem(source, texts)) {}
  std::string source;
  Lexer::Texts texts;
  TypeSystemDocument document;
};

GraphQLError refusal(std::string_view source) {
  Lexer::Texts texts;
  try {
    (void)parseTypeSystem(source, texts);
  } catch (const Refusal& refusal) {
    return refusal.error;
  }
  ADD_FAILURE() << source;
  return {};
}

Location refusedAt(std::string_view source) {
  const GraphQLError error = refusal(source);
  return error.locations.size() == 1 ? error.locations.front() : Location{};
}

TEST(TypeSystemParser, EveryDefinitionIsRead) {
  const Parsed parsed(R"(
    "of the schema" schema @a { query: Q }
    """ of the
        scalar """
    scalar S @b
    type O @c { "of the field" f("of the argument" x: [Int!]! = [1] @d, y: S): O! @e g: S }
    enum E @f { "of the value" A @g B }
    input I @h { "of the input field" a: Int = 2 @i }
    "of the directive" directive @dir(a: Int @j) repeatable on | FIELD | QUERY
    directive @plain on ENUM
  )");
  const TypeSystemDocument& document = parsed.document;
  ASSERT_EQ(document.schemas.size(), 1U);
  EXPECT_EQ(document.schemas[0].description, "of the schema");
  EXPECT_EQ(document.schemas[0].directives.at(0).name, "a");
  EXPECT_EQ(document.schemas[0].roots.at(0).operation, "query");
  EXPECT_EQ(document.schemas[0].roots.at(0).type, "Q");

  ASSERT_EQ(document.types.size(), 4U);
  EXPECT_EQ(document.types[0].kind, TypeDefinitionNode::Kind::Scalar);
  EXPECT_EQ(document.types[0].description, " of the\nscalar ");
  const TypeDefinitionNode& object = document.types[1];
  EXPECT_EQ(object.kind, TypeDefinitionNode::Kind::Object);
  EXPECT_EQ(object.location, (Location{6, 10}));
  EXPECT_FALSE(object.description);
  ASSERT_EQ(object.fields.size(), 2U);
  EXPECT_EQ(object.fields[0].description, "of the field");
  EXPECT_EQ(object.fields[0].type.kind, TypeNode::Kind::NonNull);
  EXPECT_EQ(object.fields[0].directives.at(0).name, "e");
  ASSERT_EQ(object.fields[0].arguments.size(), 2U);
  EXPECT_EQ(object.fields[0].arguments[0].description, "of the argument");
  EXPECT_EQ(object.fields[0].arguments[0].defaultValue->items.at(0).text, "1");
  EXPECT_EQ(object.fields[0].arguments[0].directives.at(0).name, "d");
  EXPECT_FALSE(object.fields[0].arguments[1].defaultValue);
  EXPECT_EQ(document.types[2].enumValues.at(0).description, "of the value");
  EXPECT_EQ(document.types[2].enumValues.at(0).directives.at(0).name, "g");
  EXPECT_EQ(document.types[2].enumValues.at(1).name, "B");
  EXPECT_EQ(document.types[3].inputFields.at(0).description, "of the input field");
  EXPECT_EQ(document.types[3].inputFields.at(0).defaultValue->text, "2");

  ASSERT_EQ(document.directives.size(), 2U);
  EXPECT_EQ(document.directives[0].description, "of the directive");
  EXPECT_TRUE(document.directives[0].isRepeatable);
  EXPECT_EQ(document.directives[0].places.at(1).name, "QUERY");
  EXPECT_EQ(document.directives[0].arguments.at(0).directives.at(0).name, "j");
  EXPECT_FALSE(document.directives[1].isRepeatable);
}

TEST(TypeSystemParser, KeywordsAreNamesElsewhere) {
  const Parsed parsed(
      "type type { input: schema on(enum: scalar): on } enum repeatable { type on } scalar implements");
  EXPECT_EQ(parsed.document.types.at(0).name, "type");
  EXPECT_EQ(parsed.document.types.at(0).fields.at(1).arguments.at(0).name, "enum");
  EXPECT_EQ(parsed.document.types.at(1).enumValues.at(1).name, "on");
}

TEST(TypeSystemParser, WhatTheGrammarForbidsIsRefusedAtTheOffendingToken) {
  const std::pair<const char*, Location> texts[] = {
      {"", {1, 1}},
      {"\"text\"", {1, 7}},
      {"type", {1, 5}},
      {"type {", {1, 6}},
      {"type T {}", {1, 9}},
      {"type T { a }", {1, 12}},
      {"type T { a: }", {1, 13}},
      {"type T { a(): Int }", {1, 12}},
      {"type T { a(b): Int }", {1, 13}},
      {"type T { a(b: Int = $c): Int }", {1, 21}},
      {"type T { a: Int = 1 }", {1, 17}},
      {"type T @a(b: $c) { a: Int }", {1, 14}},
      {"enum E {}", {1, 9}},
      {"enum E { true }", {1, 10}},
      {"enum E { A false }", {1, 12}},
      {"enum E { null }", {1, 10}},
      {"enum E { 1 }", {1, 10}},
      {"input I {}", {1, 10}},
      {"input I { a(b: Int): Int }", {1, 12}},
      {"scalar S { a: Int }", {1, 10}},
      {"schema {}", {1, 9}},
      {"schema { query }", {1, 16}},
      {"directive d on FIELD", {1, 11}},
      {"directive @d FIELD", {1, 14}},
      {"directive @d on", {1, 16}},
      {"directive @d on FIELD |", {1, 24}},
      {"directive @d() on FIELD", {1, 14}},
      {"type T { a: Int } }", {1, 19}},
      {"{ a }", {1, 1}},
  };
  for (const auto& [text, location] : texts) EXPECT_EQ(refusedAt(text), location) << text;
}

TEST(TypeSystemParser, WhatIsNotSupportedIsNamed) {
  const std::pair<const char*, const char*> texts[] = {{"interface I { a: Int }", "Interfaces"},
                                                       {"type T implements I { a: Int }", "Interfaces"},
                                                       {"type T implements & I", "Interfaces"},
                                                       {"union U = A | B", "Unions"},
                                                       {"extend type T { a: Int }", "Extensions"},
                                                       {"\"text\" union U", "Unions"},
                                                       {"query { a }", "\"query\""},
                                                       {"fragment F on T { a }", "\"fragment\""}};
  for (const auto& [text, word] : texts) {
    EXPECT_NE(refusal(text).message.find(word), std::string::npos) << text;
  }
}

TEST(TypeSystemParser, ValuesAndTypesNestUpToALimit) {
  const auto nested = [](std::size_t depth) {
    return "type T { a(b: " + std::string(depth, '[') + "Int" + std::string(depth, ']') + " = " +
           std::string(depth, '[') + std::string(depth, ']') + "): Int }";
  };
  EXPECT_EQ(Parsed(nested(32)).document.types.size(), 1U);
  EXPECT_EQ(refusedAt(nested(33)), (Location{1, 15 + 32}));
  EXPECT_EQ(refusedAt("type T { a(b: T = " + std::string(100'000, '[')), (Location{1, 19 + 32}));
}

}  // namespace
}  // namespace ferrox::graphql
