// A query as any peer may send it: parsed, and answered whole over objects without end.
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "Fuzz/FuzzSupport.h"
#include "Platform/Base/Json.h"
#include "Platform/GraphQLEngine/GraphQLEngine.h"
#include "Platform/GraphQLEngine/Parser.h"

namespace {

using namespace ferrox;

constexpr std::string_view sdl = R"(
  type Query { n(i: Int = 1, o: I): N l: [N!] e(e: E): E! f: Float! }
  type N { s(s: String, d: ID!): String n: N! }
  enum E { A B }
  input I { i: [Int!]! = 2 o: I e: E = B }
  directive @d(a: Int) repeatable on FIELD | QUERY
)";

/// Every object field leads to another one, as far as the query asks.
class Endless : public GraphQLObject {
 public:
  explicit Endless(std::string_view typeName) : typeName_(typeName) {}
  std::string_view typeName() const override { return typeName_; }
  GraphQLValue property(std::string_view name, const FRXDictionary& arguments) const override {
    const auto node = [] { return GraphQLValue(std::make_shared<const Endless>("N")); };
    if (name == "n") return node();
    if (name == "l") return GraphQLList{node(), node()};
    if (name == "f") return 0.5;
    if (name == "e") return arguments.empty() ? "B" : "neither";
    return std::string(name);
  }

 private:
  std::string_view typeName_;
};

void requireLocation(const graphql::GraphQLError& error, std::string_view text) {
  FUZZ_REQUIRE(!error.message.empty() && error.path.empty());
  const auto lines =
      std::count_if(text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }) + 1;
  for (const auto& [line, column] : error.locations) {
    FUZZ_REQUIRE(line >= 1 && line <= static_cast<std::uint64_t>(lines));
    FUZZ_REQUIRE(column >= 1 && column <= text.size() + 1);
  }
}

void requireAnswer(const std::string& response) {
  const auto json = parseJson(response);
  const FRXDictionary* const answer = json ? json->asObject() : nullptr;
  FUZZ_REQUIRE(answer != nullptr);
  const auto errors = answer->find("errors");
  FUZZ_REQUIRE(errors != answer->end() || answer->count("data") == 1);
  FUZZ_REQUIRE(errors == answer->end() || (errors->second.asArray() && !errors->second.asArray()->empty()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto engine = GraphQLEngine::engineWithSchema(
      sdl, [](const FRXError& error) { FUZZ_REQUIRE(error.code != GraphQLErrorSchema); });
  const std::string_view text = fuzz::asText(data, size);
  graphql::GraphQLError error;
  if (!graphql::parseQuery(text, {}, error)) requireLocation(error, text);
  int answers = 0;
  engine->executeQuery(text, Endless("Query"), [&answers](const std::string& response) {
    ++answers;
    requireAnswer(response);
  });
  FUZZ_REQUIRE(answers == 1);
  return 0;
}
