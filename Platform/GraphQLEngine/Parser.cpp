#include "Platform/GraphQLEngine/Parser.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>

#include "Platform/GraphQLEngine/Refusal.h"
#include "Platform/GraphQLEngine/SyntaxReader.h"

namespace ferrox::graphql {
namespace {

using Kind = Token::Kind;

/// One function for each production of section 2.
class QueryParser : private SyntaxReader {
 public:
  QueryParser(std::string_view source, Lexer::Texts& texts, const Limits& limits)
      : SyntaxReader(source, texts, limits) {}

  void parse(Document& document) {
    do {
      if (isAtKeyword("fragment")) {
        document.fragments.push_back(fragmentDefinition());
      } else {
        document.operations.push_back(operationDefinition());
      }
    } while (!isAt(Kind::EndOfSource));
  }

 private:
  OperationDefinition operationDefinition() {
    OperationDefinition operation;
    operation.location = location();
    if (!isAt(Kind::BraceLeft)) {
      operation.kind = operationType();
      operation.nameLocation = location();
      if (isAt(Kind::Name)) operation.name = take().text;
      operation.variables = variableDefinitions();
      operation.directives = directives(Constness::Variable);
    }
    operation.selectionSet = selectionSet();
    return operation;
  }

  OperationDefinition::Kind operationType() {
    if (skipKeyword("query")) return OperationDefinition::Kind::Query;
    if (skipKeyword("mutation")) return OperationDefinition::Kind::Mutation;
    if (skipKeyword("subscription")) return OperationDefinition::Kind::Subscription;
    constexpr std::array<std::string_view, 9> others = {"schema",    "scalar", "type",  "interface", "union",
                                                        "directive", "enum",   "input", "extend"};
    if (isAt(Kind::Name) && std::find(others.begin(), others.end(), token().text) != others.end()) {
      refuse("\"" + std::string(token().text) + "\" defines a type system, which is not to be executed.",
             location());
    }
    refuseToken("an operation or a fragment");
  }

  std::vector<VariableDefinition> variableDefinitions() {
    std::vector<VariableDefinition> variables;
    if (!skip(Kind::ParenLeft)) return variables;
    do variables.push_back(variableDefinition());
    while (!skip(Kind::ParenRight));
    return variables;
  }

  VariableDefinition variableDefinition() {
    VariableDefinition variable;
    variable.location = expect(Kind::Dollar, "a variable").location;
    variable.nameLocation = location();
    variable.name = name("the name of a variable");
    expect(Kind::Colon, "\":\"");
    variable.type = type();
    if (skip(Kind::Equals)) variable.defaultValue = std::make_unique<Value>(value(Constness::Constant));
    variable.directives = directives(Constness::Constant);
    return variable;
  }

  FragmentDefinition fragmentDefinition() {
    FragmentDefinition fragment;
    fragment.location = take().location;
    fragment.nameLocation = location();
    if (isAtKeyword("on")) refuse("A fragment may not be named \"on\".", location());
    fragment.name = name("the name of the fragment");
    expectKeyword("on");
    fragment.typeConditionLocation = location();
    fragment.typeCondition = namedType();
    fragment.directives = directives(Constness::Variable);
    fragment.selectionSet = selectionSet();
    return fragment;
  }

  SelectionSet selectionSet() {
    const Level level(selectionDepth_, *this);
    SelectionSet set;
    set.location = expect(Kind::BraceLeft, "\"{\"").location;
    set.selections.reserve(4);
    do set.selections.push_back(selection());
    while (!skip(Kind::BraceRight));
    return set;
  }

  Selection selection() {
    if (!isAt(Kind::Spread)) return {field()};
    const Location here = take().location;
    if (isAt(Kind::Name) && token().text != "on") {
      const Token fragment = take();
      return {FragmentSpread{fragment.text, here, fragment.location, directives(Constness::Variable)}};
    }
    return {inlineFragment(here)};
  }

  Field field() {
    Field field;
    field.location = location();
    field.name = name("a field or a fragment");
    if (skip(Kind::Colon)) field.alias = std::exchange(field.name, name("the name of a field"));
    field.arguments = arguments(Constness::Variable);
    field.directives = directives(Constness::Variable);
    if (isAt(Kind::BraceLeft)) field.selectionSet = selectionSet();
    return field;
  }

  InlineFragment inlineFragment(Location here) {
    InlineFragment fragment;
    fragment.location = here;
    if (skipKeyword("on")) {
      fragment.typeConditionLocation = location();
      fragment.typeCondition = namedType();
    }
    fragment.directives = directives(Constness::Variable);
    fragment.selectionSet = selectionSet();
    return fragment;
  }

  std::size_t selectionDepth_ = 0;
};

}  // namespace

std::optional<Document> parseQuery(std::string_view text, const GraphQLLimits& limits, GraphQLError& error) {
  if (text.size() > limits.bytes) {
    error = {"The query is longer than " + std::to_string(limits.bytes) + " bytes.", {}, {}};
    return std::nullopt;
  }
  try {
    Document document;
    const std::string& source = *document.texts.emplace_back(std::make_unique<const std::string>(text));
    QueryParser(source, document.texts, {limits.tokens, limits.depth}).parse(document);
    return document;
  } catch (Refusal& refusal) {
    error = std::move(refusal.error);
    return std::nullopt;
  }
}

}  // namespace ferrox::graphql
