// Whole answers of the engine: execution, coercion of variables and results, errors with their places.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <limits>
#include <map>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Base/Json.h"
#include "Platform/GraphQLEngine/GraphQLEngine.h"

namespace ferrox::test {
namespace {

constexpr const char* sdl = R"(
type Query {
  name: String
  "Echoes its argument." echo(text: String = "none", number: Int, kind: Kind, point: Point, list: [Int!]): String
  reel(id: ID!): Reel
  reels: [Reel]
  strict: [Reel!]!
  int: Int float: Float string: String boolean: Boolean id: ID kind: Kind
  fails: String failsHard: String!
  words: [String!]
  old: Int @deprecated(reason: "gone")
}
type Reel { name: String! length: Int next: Reel }
enum Kind { VIDEO_ANGLE MOMENTS_DATA }
input Point { x: Int! y: Int = 7 }
)";

/// Answers with what the test put in; everything else is null.
class Properties final : public GraphQLObject {
 public:
  using Resolver = std::function<GraphQLValue(const FRXDictionary& arguments)>;

  explicit Properties(std::string type) : type_(std::move(type)) {}
  std::string_view typeName() const override { return type_; }
  GraphQLValue property(std::string_view name, const FRXDictionary& arguments) const override {
    const auto found = resolvers_.find(name);
    return found == resolvers_.end() ? GraphQLValue() : found->second(arguments);
  }
  void set(const std::string& name, GraphQLValue value) {
    resolvers_[name] = [value = std::move(value)](const FRXDictionary&) { return value; };
  }
  void compute(const std::string& name, Resolver resolver) { resolvers_[name] = std::move(resolver); }

 private:
  std::string type_;
  std::map<std::string, Resolver, std::less<>> resolvers_;
};

std::shared_ptr<Properties> reel(GraphQLValue name, GraphQLValue length = {}) {
  auto made = std::make_shared<Properties>("Reel");
  made->set("name", std::move(name));
  made->set("length", std::move(length));
  return made;
}

class Engine : public ::testing::Test {
 protected:
  std::string answer(const std::string& query, const GraphQLEngine::Options& options = {}) {
    std::string text;
    int calls = 0;
    engine_->executeQuery(
        query, root_,
        [&](const std::string& response) {
          text = response;
          ++calls;
        },
        options);
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(parseJson(text)) << text;
    return text;
  }
  FRXValue errorOf(const std::string& query, const GraphQLEngine::Options& options = {}) {
    const auto response = parseJson(answer(query, options));
    const FRXValue* const errors = response ? response->member("errors") : nullptr;
    if (errors == nullptr || errors->asArray() == nullptr || errors->asArray()->empty()) {
      ADD_FAILURE() << query << " was answered without an error";
      return {};
    }
    return errors->asArray()->front();
  }
  void useEngine(const std::string& schema, const GraphQLLimits& limits = {}) {
    engine_ = GraphQLEngine::engineWithSchema(
        schema, [this](const FRXError& error) { reported_.push_back(error); }, limits);
  }

  Properties root_{"Query"};
  std::vector<FRXError> reported_;
  std::shared_ptr<const GraphQLEngine> engine_ = GraphQLEngine::engineWithSchema(sdl, nullptr);
};

TEST_F(Engine, FieldsAreAnsweredInTheirOrderUnderTheirResponseKeys) {
  root_.set("name", "suite");
  root_.set("int", std::int64_t{3});
  EXPECT_EQ(answer("{ int b: name a: name name }"),
            R"({"data":{"int":3,"b":"suite","a":"suite","name":"suite"}})");
}

TEST_F(Engine, WhatTheObjectLacksIsNull) {
  EXPECT_EQ(answer("{ name reel(id: 1) { name } reels { name } }"),
            R"({"data":{"name":null,"reel":null,"reels":null}})");
}

TEST_F(Engine, FieldsOfOneKeyAreMergedFromFragmentsToo) {
  root_.set("reels", GraphQLList{reel("A", std::int64_t{1}), reel("B", std::int64_t{2})});
  EXPECT_EQ(answer("{ reels { name } ...More ... on Query { reels { n: name } } } "
                   "fragment More on Query { reels { length __typename } }"),
            R"({"data":{"reels":[{"name":"A","length":1,"__typename":"Reel","n":"A"},)"
            R"({"name":"B","length":2,"__typename":"Reel","n":"B"}]}})");
}

TEST_F(Engine, SkipAndIncludeFollowTheirVariables) {
  root_.set("name", "x");
  const std::string query =
      "query($yes: Boolean!, $no: Boolean = false) { a: name @skip(if: $yes) b: name @include(if: $yes) "
      "c: name @include(if: $no) ...F @skip(if: $no) ... @include(if: $no) { e: name } } "
      "fragment F on Query { d: name }";
  EXPECT_EQ(answer(query, {"", {{"yes", true}}}), R"({"data":{"b":"x","d":"x"}})");
}

TEST_F(Engine, ArgumentsArriveCoercedWithTheirDefaults) {
  FRXDictionary seen;
  root_.compute("echo", [&](const FRXDictionary& arguments) {
    seen = arguments;
    return GraphQLValue("done");
  });
  answer("{ echo(number: 5, kind: VIDEO_ANGLE, point: {x: 1}, list: 4) }");
  EXPECT_EQ(seen, (FRXDictionary{{"text", "none"},
                                 {"number", 5},
                                 {"kind", "VIDEO_ANGLE"},
                                 {"point", FRXDictionary{{"x", 1}, {"y", 7}}},
                                 {"list", FRXArray{4}}}));
  answer("query($n: Int, $p: Point) { echo(text: null, number: $n, point: $p, list: [1, 2]) }",
         {"", {{"p", FRXDictionary{{"x", 2}, {"y", nullptr}}}}});
  EXPECT_EQ(seen, (FRXDictionary{{"text", nullptr},
                                 {"point", FRXDictionary{{"x", 2}, {"y", nullptr}}},
                                 {"list", FRXArray{1, 2}}}));
}

TEST_F(Engine, VariablesThatDoNotFitAreRefusedBeforeAnythingRuns) {
  bool ran = false;
  root_.compute("echo", [&](const FRXDictionary&) {
    ran = true;
    return GraphQLValue();
  });
  const std::string query = "query($p: Point!, $n: Int) { echo(point: $p, number: $n) }";
  const FRXValue x = FRXDictionary{{"x", 1}};
  for (const FRXDictionary& variables :
       {FRXDictionary{}, FRXDictionary{{"p", nullptr}}, FRXDictionary{{"p", 7}},
        FRXDictionary{{"p", FRXDictionary{}}}, FRXDictionary{{"p", FRXDictionary{{"x", 1}, {"z", 1}}}},
        FRXDictionary{{"p", x}, {"n", "1"}}, FRXDictionary{{"p", x}, {"n", std::int64_t{1} << 31}},
        FRXDictionary{{"p", x}, {"n", 1.5}}}) {
    const std::string text = answer(query, {"", variables});
    EXPECT_NE(text.find(R"("errors":[{)"), std::string::npos) << text;
    EXPECT_EQ(text.find(R"("data")"), std::string::npos) << text;
  }
  EXPECT_FALSE(ran);
  answer(query, {"", {{"p", x}, {"n", 2.0}}});
  EXPECT_TRUE(ran);
}

TEST_F(Engine, AFieldThatFailsIsNullAndSaysWhere) {
  root_.set("name", "x");
  root_.compute("fails", [](const FRXDictionary&) -> GraphQLValue { throw std::runtime_error("no disk"); });
  EXPECT_EQ(answer("{ name\n  f: fails }"),
            R"({"errors":[{"message":"no disk","locations":[{"line":2,"column":3}],"path":["f"]}],)"
            R"("data":{"name":"x","f":null}})");
  root_.compute("fails", [](const FRXDictionary&) -> GraphQLValue { throw 7; });
  EXPECT_NE(errorOf("{ fails }").member("message"), nullptr);
  root_.compute("fails", [](const FRXDictionary&) -> GraphQLValue { throw std::runtime_error("\xff"); });
  EXPECT_NE(errorOf("{ fails }").member("message"), nullptr);
}

TEST_F(Engine, ANullThatMustNotBeTakesWithItWhatIsAroundIt) {
  root_.set("name", "x");
  EXPECT_EQ(answer("{ name failsHard }").substr(0, 10), R"({"errors":)");
  EXPECT_TRUE(answer("{ name failsHard }").ends_with(R"("data":null})"));
  root_.set("reels", GraphQLList{reel("A"), reel({}), GraphQLValue(), reel("D")});
  EXPECT_TRUE(
      answer("{ reels { length name } }")
          .ends_with(
              R"("path":["reels",1,"name"]}],"data":{"reels":[{"length":null,"name":"A"},null,null,{"length":null,"name":"D"}]}})"));
  root_.set("strict", GraphQLList{reel("A"), reel({})});
  EXPECT_TRUE(answer("{ name strict { name } }").ends_with(R"("path":["strict",1,"name"]}],"data":null})"));
}

TEST_F(Engine, ResultsAreCoercedWhereNothingIsLost) {
  const auto result = [&](const char* field, GraphQLValue value) {
    root_.set(field, std::move(value));
    const auto response = parseJson(answer(std::string("{ v: ") + field + " }"));
    const bool failed = response->member("errors") != nullptr;
    return failed ? FRXValue("failed") : *response->member("data")->member("v");
  };
  EXPECT_EQ(result("int", 4.0), FRXValue(4));
  EXPECT_EQ(result("int", true), FRXValue(1));
  EXPECT_EQ(result("int", "12"), FRXValue(12));
  EXPECT_EQ(result("int", 4.5), FRXValue("failed"));
  EXPECT_EQ(result("int", std::int64_t{1} << 31), FRXValue("failed"));
  EXPECT_EQ(result("int", "twelve"), FRXValue("failed"));
  EXPECT_EQ(result("float", std::int64_t{1} << 40), FRXValue(std::int64_t{1} << 40));
  EXPECT_EQ(result("float", std::numeric_limits<double>::infinity()), FRXValue("failed"));
  EXPECT_EQ(result("string", std::int64_t{7}), FRXValue("7"));
  EXPECT_EQ(result("string", 0.5), FRXValue("0.5"));
  EXPECT_EQ(result("string", "\xc3"), FRXValue("failed"));
  EXPECT_EQ(result("boolean", std::int64_t{2}), FRXValue(true));
  EXPECT_EQ(result("boolean", "true"), FRXValue("failed"));
  EXPECT_EQ(result("id", std::int64_t{7}), FRXValue("7"));
  EXPECT_EQ(result("id", 7.5), FRXValue("failed"));
  EXPECT_EQ(result("kind", "VIDEO_ANGLE"), FRXValue("VIDEO_ANGLE"));
  EXPECT_EQ(result("kind", "video-angle"), FRXValue("failed"));
  EXPECT_EQ(result("string", GraphQLList{}), FRXValue("failed"));
  EXPECT_EQ(result("words", "no list"), FRXValue("failed"));
  EXPECT_EQ(result("words", GraphQLList{"a", GraphQLValue()}), FRXValue("failed"));
}

TEST_F(Engine, AnObjectWhereALeafBelongsFailsAndTheOtherWayRound) {
  root_.set("name", reel("A"));
  root_.set("reels", GraphQLList{GraphQLValue("no reel")});
  EXPECT_TRUE(answer("{ name reels { name } }").ends_with(R"("data":{"name":null,"reels":[null]}})"));
}

TEST_F(Engine, TheMeantOperationIsChosenByName) {
  root_.set("name", "x");
  const std::string query = "query A { a: name } query B { b: name }";
  EXPECT_EQ(answer(query, {"B", {}}), R"({"data":{"b":"x"}})");
  errorOf(query);
  errorOf(query, {"C", {}});
  EXPECT_EQ(answer("query A { a: name }"), R"({"data":{"a":"x"}})");
}

TEST_F(Engine, WhatIsNoQueryIsRefused) {
  for (const char* text : {"", "{", "nonsense", "{ unknown }", "type Query { a: Int }", "\xff",
                           "fragment F on Query { name }"}) {
    const std::string response = answer(text);
    EXPECT_TRUE(response.starts_with(R"({"errors":[{"message":)")) << text;
    EXPECT_EQ(response.find(R"("data")"), std::string::npos) << response;
  }
}

TEST_F(Engine, MutationsAndSubscriptionsHaveNoTypeToRunAgainst) {
  root_.set("name", "x");
  for (const char* text : {"mutation { name }", "subscription { name }"}) {
    const std::string response = answer(text);
    EXPECT_TRUE(response.starts_with(R"({"errors":[{"message":)")) << response;
    EXPECT_TRUE(response.ends_with(R"("data":null})")) << response;
  }
}

TEST_F(Engine, TheSchemaAnswersForItself) {
  EXPECT_EQ(answer("{ __typename }"), R"({"data":{"__typename":"Query"}})");
  EXPECT_EQ(answer(R"({ __type(name: "Kind") { kind name enumValues { name } fields { name } } })"),
            R"({"data":{"__type":{"kind":"ENUM","name":"Kind","enumValues":[{"name":"VIDEO_ANGLE"},)"
            R"({"name":"MOMENTS_DATA"}],"fields":null}}})");
  EXPECT_EQ(answer(R"({ __type(name: "Nothing") { name } })"), R"({"data":{"__type":null}})");
  EXPECT_EQ(
      answer(
          R"({ __type(name: "Point") { inputFields { name defaultValue type { kind ofType { name } } } } })"),
      R"({"data":{"__type":{"inputFields":[)"
      R"({"name":"x","defaultValue":null,"type":{"kind":"NON_NULL","ofType":{"name":"Int"}}},)"
      R"({"name":"y","defaultValue":"7","type":{"kind":"SCALAR","ofType":null}}]}}})");
  const std::string current = answer(R"({ __type(name: "Query") { fields { name } } })");
  EXPECT_EQ(current.find(R"("old")"), std::string::npos);
  EXPECT_NE(
      answer(R"({ __type(name: "Query") { fields(includeDeprecated: true) { name deprecationReason } } })")
          .find(R"({"name":"old","deprecationReason":"gone"})"),
      std::string::npos);
  EXPECT_NE(answer("{ __schema { queryType { name } directives { name } } }").find(R"({"name":"include"})"),
            std::string::npos);
}

TEST_F(Engine, AnUnusableSchemaIsReportedAndEveryQueryRefused) {
  for (const char* schema :
       {"", "type Query {", "type Query { a: Missing }", "interface I { a: Int } type Query { a: Int }"}) {
    reported_.clear();
    useEngine(schema);
    ASSERT_EQ(reported_.size(), 1u) << schema;
    EXPECT_EQ(reported_.front().code, GraphQLErrorSchema);
    EXPECT_EQ(answer("{ __typename }"), R"({"errors":[{"message":"There is no schema to query"}]})");
  }
}

TEST_F(Engine, TheErrorHandlerHearsOfEachRefusal) {
  useEngine(sdl);
  answer("{ __typename }");
  EXPECT_TRUE(reported_.empty());
  answer("{ nothing also }");
  ASSERT_EQ(reported_.size(), 1u);
  EXPECT_EQ(reported_.front().code, GraphQLErrorRequest);
}

TEST_F(Engine, AnAnswerThatGrowsBeyondItsLimitsIsGivenUp) {
  GraphQLLimits limits;
  limits.steps = 50;
  useEngine(sdl, limits);
  GraphQLList many(60, reel("A"));
  root_.set("reels", many);
  EXPECT_EQ(answer("{ reels { name } }").find(R"("data")"), std::string::npos);
  root_.set("reels", GraphQLList(10, reel("A")));
  EXPECT_NE(answer("{ reels { name } }").find(R"("data")"), std::string::npos);

  limits = {};
  limits.responseBytes = 1000;
  useEngine(sdl, limits);
  root_.set("reels", GraphQLList(20, reel(std::string(100, 'x'))));
  EXPECT_EQ(answer("{ reels { name } }").find(R"("data")"), std::string::npos);
}

TEST_F(Engine, ErrorsAreCountedOutAtTheirLimit) {
  GraphQLLimits limits;
  limits.errors = 5;
  useEngine(sdl, limits);
  root_.set("reels", GraphQLList(20, reel({})));
  const auto response = parseJson(answer("{ reels { name } }"));
  EXPECT_EQ(response->member("errors")->asArray()->size(), 5u);
  EXPECT_EQ(response->member("data")->member("reels")->asArray()->size(), 20u);
}

TEST_F(Engine, ManyThreadsMayAskOneEngine) {
  root_.set("reels", GraphQLList(10, reel("A")));
  const std::string expected = answer("{ reels { name } }");
  std::atomic<int> same{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        engine_->executeQuery("{ reels { name } }", root_,
                              [&](const std::string& text) { same += text == expected; });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(same, 200);
}

}  // namespace
}  // namespace ferrox::test
