#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/GraphQLEngine/Parser.h"
#include "Platform/GraphQLEngine/Validation.h"
#include "Tests/Support/HostileQueries.h"

namespace ferrox::graphql {
namespace {

using test::chainOfFragments;
using test::numbered;
using test::repeated;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const char* const shop = R"(
  type Query { shelf: Shelf shelves: [Shelf!]! count(of: Int, in: [Color!], by: Size, any: Any): Int }
  type Shelf { name: String! box(size: Size!, lid: Color = RED): Box }
  type Box { name: String shelf: Shelf }
  enum Color { RED BLUE }
  input Size { width: Int! height: Int! = 1 of: [Size!] }
  scalar Any
  directive @tag(name: String!) repeatable on FIELD | QUERY
)";

GraphQLLimits wideLimits() {
  GraphQLLimits limits;
  limits.bytes = limits.tokens = std::size_t{1} << 24;
  limits.steps = std::size_t{1} << 24;
  return limits;
}

std::vector<GraphQLError> errorsOf(const std::string& query, const GraphQLLimits& limits = wideLimits(),
                                   std::string_view sdl = shop) {
  const auto schema = Schema::build(sdl);
  GraphQLError error;
  const auto document = parseQuery(query, wideLimits(), error);
  if (schema && document) return validate(*schema, *document, limits);
  ADD_FAILURE() << query << ": " << error.message;
  return {};
}

/// "MESSAGE at LINE:COLUMN, ..." of each error.
std::vector<std::string> reports(const std::string& query, const GraphQLLimits& limits = wideLimits()) {
  std::vector<std::string> all;
  for (const GraphQLError& error : errorsOf(query, limits)) {
    EXPECT_THAT(error.path, IsEmpty());
    std::string report = error.message;
    const char* separator = " at ";
    for (const auto& [line, column] : error.locations) {
      report += separator + std::to_string(line) + ':' + std::to_string(column);
      separator = ", ";
    }
    all.push_back(std::move(report));
  }
  return all;
}

TEST(Validation, SoundQueriesHaveNoErrors) {
  EXPECT_THAT(reports("{ count }"), IsEmpty());
  EXPECT_THAT(
      reports(
          "query A($s: Size = {width: 2}, $n: Int!) @tag(name: \"q\") { shelf { ...F } n: count(of: $n) "
          "count(in: RED, any: {a: [$n, X]}, by: {width: $n, of: [$s2]}) }"
          " fragment F on Shelf { box(size: {width: 1}) { ... { name } ... on Box { shelf { name } } } }"),
      ElementsAre(HasSubstr("\"s2\" is not defined"), HasSubstr("\"s\" is never used")));
}

TEST(Validation, OperationsAreToldApart) {
  EXPECT_THAT(reports("query A { count } query B { count } query A { count }"),
              ElementsAre("There is more than one operation \"A\" at 1:7, 1:43"));
  EXPECT_THAT(reports("{ count }\nquery A { count }"),
              ElementsAre("An operation without a name must be the only one at 1:1"));
}

TEST(Validation, FieldsExist) {
  EXPECT_THAT(
      reports("{ shelf { a: nothing } other }"),
      ElementsAre("\"Shelf\" has no field \"nothing\" at 1:11", "\"Query\" has no field \"other\" at 1:24"));
  EXPECT_THAT(
      reports("{ nothing { whatever(is: $inside) } __schema { types { nothing } } __typename }"),
      ElementsAre("\"Query\" has no field \"nothing\" at 1:3", "\"__Type\" has no field \"nothing\" at 1:56",
                  "The variable \"inside\" is not defined at 1:26, 1:1"));
  EXPECT_THAT(reports("{ shelf { __schema { description } } }"),
              ElementsAre("\"Shelf\" has no field \"__schema\" at 1:11"));
}

TEST(Validation, OnlyObjectsHaveSelections) {
  EXPECT_THAT(reports("{ count { a } shelves }"),
              ElementsAre("The field \"count\" of type Int has nothing to select from at 1:9",
                          "The field \"shelves\" of type [Shelf!]! needs a selection at 1:15"));
}

TEST(Validation, ArgumentsAreKnownOnceAndComplete) {
  EXPECT_THAT(reports("{ count(of: 1, what: 2) }"),
              ElementsAre("\"count\" has no argument \"what\" at 1:16"));
  EXPECT_THAT(reports("{ count(of: 1, of: 2, of: 3) }"),
              ElementsAre("There is more than one argument \"of\" at 1:9, 1:16, 1:23"));
  EXPECT_THAT(reports("{ shelf { box { name } } }"),
              ElementsAre("\"box\" needs the argument \"size\" of type Size! at 1:11"));
  EXPECT_THAT(reports("{ count @tag @skip(unless: true) }"),
              ElementsAre("\"tag\" needs the argument \"name\" of type String! at 1:9",
                          "\"skip\" has no argument \"unless\" at 1:20",
                          "\"skip\" needs the argument \"if\" of type Boolean! at 1:14"));
}

TEST(Validation, FragmentsAreKnownOnceAndUsed) {
  EXPECT_THAT(reports("{ ...  F }"), ElementsAre("There is no fragment \"F\" at 1:8"));
  EXPECT_THAT(
      reports("{ count } fragment F on Query { ...G } fragment G on Query { count }"),
      ElementsAre("The fragment \"F\" is never used at 1:11", "The fragment \"G\" is never used at 1:40"));
  EXPECT_THAT(reports("{ ...F } fragment F on Query { count } fragment F on Query { __typename }"),
              ElementsAre("There is more than one fragment \"F\" at 1:19, 1:49"));
}

TEST(Validation, TypeConditionsNameObjects) {
  EXPECT_THAT(reports("{ ... on Nowhere { a } ...F } fragment F on Color { b }"),
              ElementsAre("There is no type \"Nowhere\" at 1:10",
                          "A fragment cannot be on \"Color\", which has no fields at 1:45"));
}

TEST(Validation, SpreadsApplyToTheirParent) {
  EXPECT_THAT(reports("{ ... on Shelf { name } shelf { ...F } } fragment F on Box { name }"),
              ElementsAre("An object of \"Query\" can never be of \"Shelf\" at 1:3",
                          "An object of \"Shelf\" can never be of \"Box\" at 1:33"));
}

TEST(Validation, FragmentsContainNoneOfThemselves) {
  EXPECT_THAT(reports("{ ...F } fragment F on Query { ...G } fragment G on Query { ...F }"),
              ElementsAre("The fragment \"F\" contains itself at 1:32, 1:61"));
  EXPECT_THAT(reports("{ ...F } fragment F on Query { count ... { ...F } }"),
              ElementsAre("The fragment \"F\" contains itself at 1:44"));
}

TEST(Validation, ValuesFitTheirTypes) {
  EXPECT_THAT(reports("{ count(of: \"1\") }"), ElementsAre("This value is not of type Int at 1:13"));
  EXPECT_THAT(reports("{ count(in: [RED, GREEN, null, \"RED\"]) }"),
              ElementsAre("This value is not of type Color! at 1:19", "null is not of type Color! at 1:26",
                          "This value is not of type Color! at 1:32"));
  EXPECT_THAT(reports("{ count(of: [1], by: 5) }"),
              ElementsAre("This value is not of type Int at 1:13", "This value is not of type Size at 1:22"));
  EXPECT_THAT(reports("query ($a: Int! = null, $b: Size = {width: 1.5}) { count(of: $a, by: $b) }"),
              ElementsAre("null is not of type Int! at 1:19", "This value is not of type Int! at 1:44"));
}

TEST(Validation, InputObjectsAreKnownOnceAndComplete) {
  EXPECT_THAT(reports("{ count(by: {of: {}, depth: 1, width: 1, width: 2}, any: {a: 1, a: 2}) }"),
              ElementsAre("There is more than one field \"width\" at 1:32, 1:42",
                          "\"Size\" needs the field \"width\" of "
                          "type Int! at 1:18",
                          "\"Size\" has no field \"depth\" at 1:22",
                          "There is more than one field \"a\" at 1:59, 1:65"));
}

TEST(Validation, DirectivesAreKnownOnceAndInTheirPlace) {
  EXPECT_THAT(reports("query @skip(if: true) { count @nothing @include(if: true) @include(if: false) }"),
              ElementsAre("The directive \"skip\" must not stand at a QUERY at 1:7",
                          "There is no directive \"nothing\" at 1:31",
                          "The directive \"include\" must stand here only once at 1:40, 1:59"));
  EXPECT_THAT(reports("{ count @tag(name: \"a\") @tag(name: \"b\") }"), IsEmpty());
}

TEST(Validation, VariablesAreDefinedOnceAndUsed) {
  EXPECT_THAT(reports("query ($a: Int, $a: Int) { count(of: $a) }"),
              ElementsAre("There is more than one variable \"a\" at 1:9, 1:18"));
  EXPECT_THAT(
      reports("query ($a: Int, $b: Int) { count(of: $c) count(of: $c) }"),
      ElementsAre("The variable \"c\" is not defined at 1:38, 1:1",
                  "The variable \"c\" is not defined at 1:52, 1:1", "The variable \"a\" is never used at 1:8",
                  "The variable \"b\" is never used at 1:17"));
  EXPECT_THAT(reports("query A($a: Int) { ...F } query B { ...F } fragment F on Query { count(of: $a) }"),
              ElementsAre("The variable \"a\" is not defined at 1:76, 1:27"));
}

TEST(Validation, VariablesAreOfInputTypes) {
  EXPECT_THAT(reports("query ($a: [Shelf!], $b: [None]) { count(any: {a: $a, b: [$b]}) }"),
              ElementsAre("A variable cannot be of type \"Shelf\", which is no input type at 1:12",
                          "There is no type \"None\" at 1:27"));
}

TEST(Validation, VariablesFitWhereTheyStand) {
  const std::string query =
      "query ($v: TYPE) { shelf { box(size: {width: 1, height: $v}, lid: RED) { name } } }";
  const auto withType = [&](std::string type) { return reports(std::string(query).replace(11, 4, type)); };
  EXPECT_THAT(withType("Int"), IsEmpty()) << "the place has a default";
  EXPECT_THAT(withType("Int!"), IsEmpty());
  EXPECT_THAT(withType("String"), SizeIs(1));
  EXPECT_THAT(withType("[Int]"), SizeIs(1));
  EXPECT_THAT(reports("query ($v: Int) { count(by: {width: $v}) }"),
              ElementsAre("The variable \"v\" of type Int cannot stand where Int! is expected at 1:8, 1:37"));
  EXPECT_THAT(reports("query ($v: Int = 5) { count(by: {width: $v}) }"), IsEmpty());
  EXPECT_THAT(reports("query ($v: Int = null) { count(by: {width: $v}) }"), SizeIs(1));
  EXPECT_THAT(reports("query ($v: [Color!]!) { count(in: $v) }"), IsEmpty());
  EXPECT_THAT(reports("query ($v: [Color]) { count(in: $v) }"), SizeIs(1));
  EXPECT_THAT(reports("query ($v: Color!) { count(in: [$v]) }"), IsEmpty());
  EXPECT_THAT(reports("query ($v: Color) { count(in: $v) }"), SizeIs(1));
}

TEST(Validation, MutationsAreLookedThroughWithoutTypes) {
  EXPECT_THAT(reports("mutation { anything(a: $b) { ... on Shelf { nothing } } }"),
              ElementsAre("\"Shelf\" has no field \"nothing\" at 1:45",
                          "The variable \"b\" is not defined at 1:24, 1:1"));
}

TEST(Validation, ReportsNoMoreErrorsThanTheLimit) {
  GraphQLLimits limits;
  limits.errors = 7;
  EXPECT_THAT(reports("{" + repeated("x ", 50) + "}", limits), SizeIs(7));
}

TEST(Validation, FieldsNestNoDeeperThanTheLimitThroughFragments) {
  GraphQLLimits limits = wideLimits();
  EXPECT_THAT(reports(chainOfFragments(14, "shelf{box(size:{width:1}){...F+}}", "name"), limits),
              ElementsAre(HasSubstr("The fields of the query nest too deeply at 1:")));
  const std::string query = "{q{q{...F}}}fragment F on Query{q{q{a}}}";
  const char* const sdl = "type Query{q:Query a:Int}";
  limits.depth = 5;
  EXPECT_THAT(errorsOf(query, limits, sdl), IsEmpty());
  limits.depth = 4;
  EXPECT_THAT(errorsOf(query, limits, sdl), SizeIs(1));
}

TEST(Validation, FragmentsFollowEachOtherNoFurtherThanTheLimit) {
  GraphQLLimits limits = wideLimits();
  limits.depth = 10;
  EXPECT_THAT(reports(chainOfFragments(9, "...F+", "count"), limits), IsEmpty());
  EXPECT_THAT(reports(chainOfFragments(10, "...F+", "count"), limits),
              ElementsAre(HasSubstr("The fragments of the query nest too deeply")));
  EXPECT_THAT(reports(chainOfFragments(5000, "...F+", "...F0"), limits),
              ElementsAre(HasSubstr("The fragments of the query nest too deeply")));
  // Wherever the measuring begins.
  std::string backwards;
  for (int i = 12; i > 0; --i) {
    backwards += "fragment F" + std::to_string(i) + " on Query{...F" + std::to_string(i + 1) + "}";
  }
  EXPECT_THAT(reports(backwards + "fragment F13 on Query{count}{...F1}", limits),
              ElementsAre(HasSubstr("The fragments of the query nest too deeply")));
}

/// Each shape for a size, the number of its selections, and whether it is sound.
struct Shape {
  const char* name;
  std::string text;
  std::size_t selections;
  bool isSound;
};

std::vector<Shape> shapes(std::size_t size) {
  const auto several = [&](std::string_view text) { return "{" + repeated(text, size) + "}"; };
  return {
      {"aliases", "{" + numbered("a#:count ", size) + "}", size, true},
      {"one field again and again", several("count "), size, true},
      {"one field with the same arguments", several("count(of:1)"), size, true},
      {"one response key, different arguments", "{" + numbered("count(of:#)", size) + "}", size, false},
      {"one response key, different fields", "{" + numbered("a:b# ", size) + "}", size, false},
      {"fields merged deeply", several("shelf{box(size:{width:1}){shelf{name}}}"), size * 4, true},
      {"fields merged deeply with a conflict",
       "{" + repeated("shelf{box(size:{width:1}){shelf{name}}}", size) +
           "shelf{box(size:{width:1}){name shelf{name:box}}}}",
       size * 4 + 5, false},
      {"different parents with the same inside",
       "{" + numbered("a#:shelf{...F}", size) + "}fragment F on Shelf{a:name a:box}", size * 2 + 2, false},
      {"fragments spread again and again", several("...F ") + "fragment F on Query{count}", size + 1, true},
      {"fragments that double", chainOfFragments(12, repeated("...F+ ", size), "count"), size * 12 + 2,
       false},
      {"fragments that double inside fields",
       chainOfFragments(4, numbered("a#:shelf{box(size:{width:1}){shelf{name}}}...F+ ", size), "count"),
       size * 20 + 2, false},
      {"a fragment that contains itself often", "{...F}fragment F on Query{" + repeated("...F ", size) + "}",
       size + 1, false},
      {"directives", "{count" + repeated("@tag(name:\"a\")", size) + "}", 1, true},
      {"unknown directives", "{count" + repeated("@x", size) + "}", 1, false},
      {"directives that may stand once", "{count" + repeated("@skip(if:true)", size) + "}", 1, false},
      {"arguments of one name", "{count(" + repeated("of:1 ", size) + ")}", 1, false},
      {"unused fragments", "{count}" + numbered("fragment F# on Query{count}", size), size + 1, false},
      {"inline fragments", several("...{count}"), size * 2, true},
  };
}

const char* const tooComplex = "The query is too complex to be validated";
const char* const asksTooMuch = "The query asks for too much when its fragments are followed";

TEST(Validation, TakesStepsInProportionToTheQuery) {
  for (const std::size_t size : {100U, 1000U}) {
    for (const Shape& shape : shapes(size)) {
      GraphQLLimits limits = wideLimits();
      limits.steps = 8 * shape.selections + 8;
      const auto errors = errorsOf(shape.text, limits);
      EXPECT_EQ(errors.empty(), shape.isSound) << shape.name;
      if (!errors.empty()) {
        EXPECT_NE(errors.front().message, tooComplex) << shape.name << ", " << size;
      }
    }
  }
}

TEST(Validation, StopsBeyondTheLimitOfSteps) {
  GraphQLLimits limits = wideLimits();
  limits.steps = 20;
  EXPECT_THAT(reports("{" + repeated("x ", 21) + "}", limits), ElementsAre(tooComplex));
  limits.steps = 200'000;
  // Variables are looked for from each operation in each fragment.
  const std::string uses = "count(by:{width:1 of:[" + repeated("$x", 1000) + "]})";
  EXPECT_THAT(
      reports(numbered("query Q#($x:Size!){...F}", 500) + "fragment F on Query{" + uses + "}", limits),
      ElementsAre(tooComplex));
}

TEST(Validation, StopsWhereFragmentsMultiply) {
  GraphQLLimits limits = wideLimits();
  limits.steps = 3000;
  // 2 to the 10th, and all that leads there.
  EXPECT_THAT(reports(chainOfFragments(10, "...F+ ...F+ ", "count"), limits),
              ElementsAre(HasSubstr(std::string(asksTooMuch) + " at 1:")));
  EXPECT_THAT(reports(chainOfFragments(9, "...F+ ...F+ ", "count"), limits), IsEmpty());
}

/// Level by level each way through "x" and "y" merges other selections: twice as many sets each time.
std::string everChangingMerges(int levels) {
  const auto fragment = [](const std::string& name, const std::string& body) {
    return "fragment " + name + " on Query{" + body + "}";
  };
  std::string text = "{...L0}";
  for (int level = 0; level < levels; ++level) {
    const std::string next = std::to_string(level + 1);
    const std::string other = "K" + std::to_string(level) + "_";
    text += fragment("L" + std::to_string(level),
                     "x:q{...L" + next + "}y:q{...L" + next + "}x:q{..." + other + next + "}");
    for (int below = level + 1; below < levels; ++below) {
      const std::string deeper = "{..." + other + std::to_string(below + 1) + "}";
      text += fragment(other + std::to_string(below), "x:q" + deeper + "y:q" + deeper);
    }
    text += fragment(other + std::to_string(levels), "a");
  }
  return text + fragment("L" + std::to_string(levels), "a");
}

TEST(Validation, StopsWhereMergedSelectionsBecomeTooMany) {
  const char* const sdl = "type Query{q:Query a:Int}";
  GraphQLLimits limits = wideLimits();
  limits.depth = 30;
  EXPECT_THAT(errorsOf(everChangingMerges(6), limits, sdl), IsEmpty());
  limits.steps = GraphQLLimits().steps;
  const auto errors = errorsOf(everChangingMerges(18), limits, sdl);
  ASSERT_THAT(errors, SizeIs(1));
  EXPECT_EQ(errors.front().message, asksTooMuch);
}

}  // namespace
}  // namespace ferrox::graphql
