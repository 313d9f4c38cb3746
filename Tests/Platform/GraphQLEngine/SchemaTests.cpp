#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/GraphQLEngine/Schema.h"
#include "Platform/GraphQLEngine/ValuePrinter.h"

namespace ferrox::graphql {
namespace {

using Kind = NamedType::Kind;

std::shared_ptr<const Schema> built(std::string_view sdl) {
  GraphQLError error;
  auto schema = Schema::build(sdl, &error);
  EXPECT_TRUE(schema) << sdl << ": " << error.message;
  return schema;
}

GraphQLError refusal(std::string_view sdl) {
  GraphQLError error;
  EXPECT_FALSE(Schema::build(sdl, &error)) << sdl;
  EXPECT_FALSE(error.message.empty()) << sdl;
  EXPECT_FALSE(Schema::build(sdl)) << sdl;
  return error;
}

/// Each is refused, with these words in the message.
void expectRefused(const std::vector<std::pair<std::string, std::string>>& texts) {
  for (const auto& [sdl, words] : texts) {
    const std::string message = refusal(sdl).message;
    EXPECT_NE(message.find(words), std::string::npos) << sdl << ": " << message;
  }
}

std::vector<std::string> namesOfTypes(const Schema& schema) {
  std::vector<std::string> names;
  for (const auto& type : schema.types()) names.push_back(type->name);
  return names;
}

const char* const zoo = R"(
  "All about animals"
  schema { query: Zoo }
  type Zoo { "By name." animal(name: String! = "Leo", filter: Filter, old: Int @deprecated): Animal all: [Animal!]! }
  type Animal { name: String! kind: AnimalKind weight: Float @deprecated(reason: "Use mass.") born: Date zoo: Zoo }
  "What it is"
  enum AnimalKind { LION "striped" TIGER CAT @deprecated }
  input Filter { kinds: [AnimalKind!] = [LION, TIGER] and: Filter heavier: Float! = 1 @deprecated(reason: "x") id: ID! }
  scalar Date @specifiedBy(url: "https://example.org/date")
  scalar Plain
  "put anywhere" directive @tag(name: String! = "t", level: Int) repeatable on FIELD | OBJECT | QUERY
)";

TEST(Schema, TypesAreListedAsDeclaredBeforeTheBuiltInOnes) {
  const auto schema = built(zoo);
  EXPECT_EQ(
      namesOfTypes(*schema),
      (std::vector<std::string>{"Zoo", "Animal", "AnimalKind", "Filter", "Date", "Plain", "Int", "Float",
                                "String", "Boolean", "ID", "__Schema", "__Type", "__TypeKind", "__Field",
                                "__InputValue", "__EnumValue", "__Directive", "__DirectiveLocation"}));
  EXPECT_EQ(schema->queryType().name, "Zoo");
  EXPECT_EQ(schema->description(), "All about animals");
  for (const auto& type : schema->types()) EXPECT_EQ(schema->type(type->name), type.get());
  EXPECT_EQ(schema->type("Elephant"), nullptr);
  EXPECT_EQ(schema->type(""), nullptr);
}

TEST(Schema, FieldsKnowTheirTypesAndArguments) {
  const auto schema = built(zoo);
  const NamedType& root = schema->queryType();
  EXPECT_EQ(root.kind, Kind::Object);
  const FieldDefinition* const animal = root.field("animal");
  ASSERT_NE(animal, nullptr);
  EXPECT_EQ(animal->description, "By name.");
  EXPECT_EQ(animal->type.named, schema->type("Animal"));
  EXPECT_EQ(animal->type.text(), "Animal");
  ASSERT_EQ(animal->arguments.size(), 3U);
  const InputValueDefinition& name = *animal->argument("name");
  EXPECT_EQ(name.type.text(), "String!");
  EXPECT_EQ(printValue(*name.defaultValue), "\"Leo\"");
  EXPECT_FALSE(name.isRequired());
  EXPECT_EQ(animal->argument("old")->deprecationReason, "No longer supported");
  EXPECT_EQ(animal->argument("missing"), nullptr);
  EXPECT_EQ(root.field("all")->type.text(), "[Animal!]!");
  EXPECT_EQ(&root.field("all")->type.innermost(), schema->type("Animal"));
  EXPECT_EQ(root.field("missing"), nullptr);
  EXPECT_EQ(schema->type("Animal")->field("weight")->deprecationReason, "Use mass.");
  EXPECT_FALSE(schema->type("Animal")->field("name")->deprecationReason);
}

TEST(Schema, EnumsInputsAndScalarsAreComplete) {
  const auto schema = built(zoo);
  const NamedType& kind = *schema->type("AnimalKind");
  EXPECT_EQ(kind.kind, Kind::Enum);
  EXPECT_EQ(kind.description, "What it is");
  EXPECT_EQ(kind.enumValue("TIGER")->description, "striped");
  EXPECT_EQ(kind.enumValue("CAT")->deprecationReason, "No longer supported");
  EXPECT_EQ(kind.enumValue("DOG"), nullptr);
  const NamedType& filter = *schema->type("Filter");
  EXPECT_EQ(filter.kind, Kind::InputObject);
  EXPECT_EQ(printValue(*filter.inputField("kinds")->defaultValue), "[LION, TIGER]");
  EXPECT_EQ(filter.inputField("heavier")->deprecationReason, "x");
  EXPECT_TRUE(filter.inputField("id")->isRequired());
  EXPECT_EQ(filter.inputField("missing"), nullptr);
  EXPECT_EQ(schema->type("Date")->specifiedByURL, "https://example.org/date");
  EXPECT_FALSE(schema->type("Plain")->specifiedByURL);
  EXPECT_FALSE(schema->type("Plain")->description);
}

TEST(Schema, DirectivesAreTheDeclaredAndTheBuiltInOnes) {
  const auto schema = built(zoo);
  ASSERT_EQ(schema->directives().size(), 5U);
  const DirectiveDefinition& tag = *schema->directive("tag");
  EXPECT_EQ(&tag, &schema->directives().front());
  EXPECT_EQ(tag.description, "put anywhere");
  EXPECT_TRUE(tag.isRepeatable);
  EXPECT_EQ(tag.locations, (std::vector<std::string>{"FIELD", "OBJECT", "QUERY"}));
  EXPECT_EQ(tag.argument("level")->type.text(), "Int");
  for (const char* const name : {"skip", "include", "deprecated", "specifiedBy"}) {
    ASSERT_NE(schema->directive(name), nullptr) << name;
    EXPECT_TRUE(schema->directive(name)->description) << name;
    EXPECT_FALSE(schema->directive(name)->isRepeatable) << name;
  }
  EXPECT_EQ(schema->directive("skip")->argument("if")->type.text(), "Boolean!");
  EXPECT_EQ(printValue(*schema->directive("deprecated")->argument("reason")->defaultValue),
            "\"No longer supported\"");
  EXPECT_EQ(schema->directive("missing"), nullptr);
}

TEST(Schema, TypesOfIntrospectionAreDescribed) {
  const auto schema = built("type Query { a: Int }");
  for (const auto& type : schema->types()) {
    if (!type->name.starts_with("__")) continue;
    EXPECT_TRUE(type->description) << type->name;
    for (const FieldDefinition& field : type->fields) EXPECT_TRUE(field.description) << field.name;
    for (const EnumValueDefinition& value : type->enumValues) EXPECT_TRUE(value.description) << value.name;
  }
  EXPECT_EQ(schema->type("__Type")->field("fields")->type.text(), "[__Field!]");
  EXPECT_EQ(printValue(*schema->type("__Type")->field("fields")->arguments.at(0).defaultValue), "false");
}

TEST(Schema, BuiltInScalarsAreThereWhenSomethingRefersToThem) {
  const auto schema = built("type Query { a(b: [ID]): Boolean }");
  EXPECT_NE(schema->type("ID"), nullptr);
  EXPECT_NE(schema->type("String"), nullptr);
  EXPECT_EQ(schema->type("Int"), nullptr);
  EXPECT_EQ(schema->type("Float"), nullptr);
  const auto names = namesOfTypes(*schema);
  EXPECT_EQ(std::count(names.begin(), names.end(), "Int"), 0);
}

TEST(Schema, MetaFieldsAreFoundWhereTheyMayBeAskedFor) {
  const auto schema = built(zoo);
  const NamedType& root = schema->queryType();
  const NamedType& animal = *schema->type("Animal");
  EXPECT_EQ(schema->field(root, "__schema")->type.text(), "__Schema!");
  EXPECT_EQ(schema->field(root, "__type")->type.text(), "__Type");
  EXPECT_EQ(schema->field(root, "__type")->argument("name")->type.text(), "String!");
  EXPECT_TRUE(schema->field(root, "__type")->argument("name")->isRequired());
  EXPECT_EQ(schema->field(root, "__typename")->type.text(), "String!");
  EXPECT_EQ(schema->field(animal, "__typename")->type.text(), "String!");
  EXPECT_EQ(schema->field(animal, "__schema"), nullptr);
  EXPECT_EQ(schema->field(animal, "__type"), nullptr);
  EXPECT_EQ(schema->field(animal, "__other"), nullptr);
  EXPECT_EQ(schema->field(*schema->type("AnimalKind"), "__typename"), nullptr);
  EXPECT_EQ(schema->field(animal, "name"), animal.field("name"));
  EXPECT_EQ(root.field("__typename"), nullptr);
}

TEST(Schema, TypesAreEqualWhenTheyMeanTheSame) {
  const auto schema = built("type Query { a: [Int!] b: [Int!] c: [Int] d: [String!] e: Int }");
  const NamedType& root = schema->queryType();
  EXPECT_EQ(root.field("a")->type, root.field("b")->type);
  EXPECT_FALSE(root.field("a")->type == root.field("c")->type);
  EXPECT_FALSE(root.field("a")->type == root.field("d")->type);
  EXPECT_FALSE(root.field("a")->type == root.field("e")->type);
}

TEST(Schema, TheQueryTypeIsTheOneNamedQueryUnlessItIsSaid) {
  EXPECT_EQ(built("type Query { a: Int } type Other { a: Int }")->queryType().name, "Query");
  EXPECT_EQ(built("schema { query: Other } type Query { a: Int } type Other { a: Int }")->queryType().name,
            "Other");
  EXPECT_EQ(
      built("schema { query: Query } type Query { a: Mutation } type Mutation { a: Int }")->queryType().name,
      "Query");
  expectRefused({{"type Other { a: Int }", "no type \"Query\""},
                 {"enum Query { A }", "\"Query\" is none"},
                 {"schema { query: Other } type Query { a: Int }", "no type \"Other\""},
                 {"schema { query: In } input In { a: Int }", "\"In\" is none"},
                 {"schema { query: Q query: Q } type Q { a: Int }", "two types"},
                 {"schema { query: Q } schema { query: Q } type Q { a: Int }", "defined twice"},
                 {"schema { ask: Q } type Q { a: Int }", "\"ask\" is no operation"}});
  EXPECT_EQ(refusal("schema { query: Other } type Query { a: Int }").locations,
            (std::vector<Location>{{1, 17}}));
}

TEST(Schema, MutationsAndSubscriptionsAreRefused) {
  expectRefused({{"schema { query: Q mutation: Q } type Q { a: Int }", "Mutations are not supported"},
                 {"schema { subscription: Q } type Q { a: Int }", "Subscriptions are not supported"},
                 {"type Query { a: Int } type Mutation { a: Int }", "Mutations are not supported"},
                 {"type Query { a: Int } type Subscription { a: Int }", "Subscriptions are not supported"}});
}

TEST(Schema, DuplicatesAreRefused) {
  expectRefused(
      {{"type Query { a: Int } enum Query { A }", "\"Query\" is declared twice"},
       {"type Query { a: Int a: Int }", "\"a\" is declared twice"},
       {"type Query { a(b: Int b: Int): Int }", "\"b\" is declared twice"},
       {"type Query { a: Int } enum E { A A }", "\"A\" is declared twice"},
       {"type Query { a: Int } input I { a: Int a: Int }", "\"a\" is declared twice"},
       {"type Query { a: Int } directive @d on FIELD directive @d on FIELD", "\"d\" is declared twice"},
       {"type Query { a: Int } directive @d(a: Int a: Int) on FIELD", "\"a\" is declared twice"},
       {"type Query { a: Int } scalar Int", "built in"},
       {"type Query { a: Int } directive @skip(if: Int) on FIELD", "built in"}});
}

TEST(Schema, ReservedNamesAreRefused) {
  expectRefused({{"type Query { a: Int } type __T { a: Int }", "\"__T\" is reserved"},
                 {"type Query { __a: Int }", "\"__a\" is reserved"},
                 {"type Query { a(__b: Int): Int }", "\"__b\" is reserved"},
                 {"type Query { a: Int } enum E { __A }", "\"__A\" is reserved"},
                 {"type Query { a: Int } input I { __a: Int }", "\"__a\" is reserved"},
                 {"type Query { a: Int } directive @__d on FIELD", "\"__d\" is reserved"},
                 {"type Query { a: Int } scalar __Type", "\"__Type\" is reserved"}});
}

TEST(Schema, EmptyTypesAreRefused) {
  expectRefused({{"type Query", "nothing in the type \"Query\""},
                 {"type Query { a: Int } enum E", "nothing in the type \"E\""},
                 {"type Query { a: Int } input I @deprecated", "nothing in the type \"I\""}});
}

TEST(Schema, UnknownAndMisplacedTypesAreRefused) {
  expectRefused({{"type Query { a: Missing }", "\"Missing\" is not declared"},
                 {"type Query { a(b: [Missing!]): Int }", "\"Missing\" is not declared"},
                 {"type Query { a: Int } input I { a: Missing }", "\"Missing\" is not declared"},
                 {"type Query { a: Int } directive @d(a: Missing) on FIELD", "\"Missing\" is not declared"},
                 {"type Query { a(b: Query): Int }", "\"Query\" is for answers"},
                 {"type Query { a: Int } input I { a: [Query] }", "\"Query\" is for answers"},
                 {"type Query { a: Int } directive @d(a: Query) on FIELD", "\"Query\" is for answers"},
                 {"type Query { a: [I] } input I { a: Int }", "\"I\" is for arguments"}});
  EXPECT_EQ(refusal("type Query { a: [[Missing!]] }").locations, (std::vector<Location>{{1, 19}}));
}

TEST(Schema, DefaultValuesHaveToFit) {
  const std::string rest =
      "type Query { a: Int } enum E { A } input J { x: Int! y: [E] z: Int! = 1 } scalar S";
  for (const char* const field :
       {"Int = -2147483648", "Float = 1", "Float = 1.5e10", "String = \"\"", "Boolean = true", "ID = 1",
        "ID = \"x\"", "E = A", "[Int] = 1", "[Int] = [1, null]", "[[Int]] = [1, [2]]", "Int = null",
        "[Int!]! = []", "J = {x: 1}", "J = {z: 2, x: 1, y: A}", "[J!] = {x: 1}", "S = {any: [1, thing]}",
        "S! = 1"}) {
    EXPECT_TRUE(built(rest + " input I { a: " + field + " }")) << field;
  }
  for (const char* const field : {"Int = 2147483648",
                                  "Int = 1.0",
                                  "Int = \"1\"",
                                  "Float = \"1\"",
                                  "Float = 1e400",
                                  "String = 1",
                                  "String = A",
                                  "Boolean = 1",
                                  "Boolean = TRUE",
                                  "ID = 1.5",
                                  "ID = true",
                                  "E = B",
                                  "E = \"A\"",
                                  "E = true",
                                  "[Int] = [A]",
                                  "[Int!] = [null]",
                                  "[Int!] = [1 null]",
                                  "Int! = null",
                                  "Int = [1]",
                                  "Int = {}",
                                  "J = {}",
                                  "J = {x: null}",
                                  "J = {x: 1, w: 1}",
                                  "J = {x: 1, x: 1}",
                                  "J = [{x: 1}]",
                                  "J = 1",
                                  "J = {x: 1, y: B}",
                                  "S! = null"}) {
    refusal(rest + " input I { a: " + field + " }");
    refusal(rest + " type T { a(b: " + field + "): Int }");
    refusal(rest + " directive @d(a: " + field + ") on FIELD");
  }
  EXPECT_EQ(refusal("type Query { a(b: [Int] = [1, A]): Int }").locations, (std::vector<Location>{{1, 31}}));
}

TEST(Schema, DirectivesAreUsedAsTheyWereDeclared) {
  const std::string rest =
      "type Query { a: Int } directive @d(a: Int!, b: E = A) on ENUM | ENUM_VALUE enum E { A } ";
  built(rest + "directive @r repeatable on SCALAR scalar S @r @r enum F @d(a: 1) { B @d(a: 2, b: A) }");
  expectRefused({{rest + "scalar S @missing", "\"@missing\" is not declared"},
                 {rest + "scalar S @d(a: 1)", "\"@d\" cannot be put here"},
                 {rest + "type T @skip(if: true) { a: Int }", "\"@skip\" cannot be put here"},
                 {rest + "enum F @d(a: 1) @d(a: 1) { B }", "twice"},
                 {rest + "enum F @d { B }", "\"a\" is missing"},
                 {rest + "enum F @d(a: null) { B }", "\"Int!\""},
                 {rest + "enum F @d(a: 1, a: 1) { B }", "given twice"},
                 {rest + "enum F @d(a: 1, c: 1) { B }", "no argument \"c\""},
                 {rest + "enum F @d(a: 1, b: B) { B }", "\"E\""},
                 {rest + "scalar S @specifiedBy", "\"url\" is missing"},
                 {rest + "directive @e on FIELD | NOWHERE", "\"NOWHERE\" is no place"},
                 {"schema @x { query: Query } " + rest, "\"@x\" is not declared"},
                 {rest + "input I { a: Int @x }", "\"@x\" is not declared"},
                 {rest + "type T { a: Int @x }", "\"@x\" is not declared"},
                 {rest + "type T { a(b: Int @x): Int }", "\"@x\" is not declared"},
                 {rest + "directive @e(a: Int @x) on FIELD", "\"@x\" is not declared"}});
}

TEST(Schema, WhatIsRequiredCannotBeDeprecated) {
  built("type Query { a(b: Int! = 1 @deprecated): Int! @deprecated }");
  expectRefused({{"type Query { a(b: Int! @deprecated): Int }", "\"b\" is required"},
                 {"type Query { a: Int } input I { c: Int! @deprecated }", "\"c\" is required"}});
}

TEST(Schema, InputObjectsThatNeedThemselvesAreRefused) {
  const std::string rest = "type Query { a: Int } ";
  built(rest + "input I { a: I b: [I!]! c: J! } input J { a: [J!]! b: I }");
  expectRefused({{rest + "input I { a: I! }", "\"I\" would need another"},
                 {rest + "input A { b: B! } input B { c: C! } input C { a: A! }", "\"A\" would need another"},
                 {rest + "input A { b: B! } input B { b: B! }", "\"B\" would need another"}});
}

TEST(Schema, DefaultValuesThatContainThemselvesAreRefused) {
  const std::string rest = "type Query { a: Int } ";
  built(rest + "input I { a: I = {a: null} b: [I] = [{a: null, b: []}] c: I = {a: null, b: null, c: null} }");
  expectRefused({{rest + "input I { a: I = {} }", "\"a\" is part of itself"},
                 {rest + "input I { a: [[I]] = [[{}]] }", "\"a\" is part of itself"},
                 {rest + "input I { a: J = {x: {}} } input J { x: I y: Int }", "\"a\" is part of itself"},
                 {rest + "input I { a: J = {} } input J { b: I = {} }", "part of itself"}});
}

TEST(Schema, DirectivesThatAreDefinedByThemselvesAreRefused) {
  const std::string rest = "type Query { a: Int } ";
  built(rest +
        "directive @a(x: I @b) on SCALAR directive @b on ARGUMENT_DEFINITION input I { i: I s: S } scalar S");
  const std::string places =
      " on SCALAR | ARGUMENT_DEFINITION | ENUM_VALUE | INPUT_FIELD_DEFINITION | INPUT_OBJECT ";
  expectRefused(
      {{rest + "directive @a(x: Int @a)" + places, "\"a\" is defined by itself"},
       {rest + "directive @a(x: Int @b)" + places + "directive @b(x: Int @a)" + places, "defined by itself"},
       {rest + "directive @a(x: [S!])" + places + "scalar S @a", "\"a\" is defined by itself"},
       {rest + "directive @a(x: E)" + places + "enum E { A @a }", "\"a\" is defined by itself"},
       {rest + "directive @a(x: I)" + places + "input I { j: J } input J { x: Int @a }",
        "\"a\" is defined by itself"},
       {rest + "directive @a(x: I)" + places + "input I @a { x: Int }", "\"a\" is defined by itself"}});
}

TEST(Schema, LongChainsOfInputObjectsNeedNeitherStackNorPatience) {
  // Twice as many ways with every link, were they all walked.
  std::string chain = "type Query { a: Int } ";
  constexpr int length = 10'000;
  for (int i = 0; i < length; ++i) {
    const auto name = [](int number) { return "I" + std::to_string(number % length); };
    chain += "input " + name(i) + " { a: " + name(i + 1) + "! b: " + name(i + 1) + "! } ";
  }
  EXPECT_NE(refusal(chain).message.find("would need another"), std::string::npos);
}

TEST(Schema, TextsBeyondTheLimitAreRefused) {
  std::string sdl = "type Query { a: Int } #";
  sdl.resize(std::size_t{1} << 20, ' ');
  built(sdl);
  sdl += ' ';
  expectRefused({{sdl, "longer than"}});
}

TEST(Schema, TextsOfTheSchemaOutliveTheirSource) {
  auto sdl = std::make_unique<std::string>("type Query { a(b: [String] = [\"x\\ty\", \"z\"]): Int }");
  const auto schema = built(*sdl);
  sdl.reset();
  EXPECT_EQ(printValue(*schema->queryType().field("a")->arguments.at(0).defaultValue), R"(["x\ty", "z"])");
}

}  // namespace
}  // namespace ferrox::graphql
