// SDL text: what is accepted is a schema whose every part is found, and that can be asked about itself.
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Fuzz/FuzzSupport.h"
#include "Platform/GraphQLEngine/GraphQLEngine.h"
#include "Platform/GraphQLEngine/Parser.h"
#include "Platform/GraphQLEngine/Schema.h"
#include "Platform/GraphQLEngine/ValuePrinter.h"

namespace {

using namespace ferrox;
using namespace ferrox::graphql;

constexpr std::string_view introspection = R"(
  { __schema { types { ...T fields(includeDeprecated: true) { name args { ...I } type { ...R } } inputFields { ...I }
    enumValues { name } } directives { name locations args { ...I } } queryType { name } } }
  fragment T on __Type { kind name description specifiedByURL }
  fragment I on __InputValue { name description defaultValue type { ...R } }
  fragment R on __Type { ...T ofType { ...T ofType { ...T } } }
)";

class Nothing : public GraphQLObject {
  std::string_view typeName() const override { return "Query"; }
  GraphQLValue property(std::string_view, const FRXDictionary&) const override { return {}; }
};

/// As introspection gives it, it means the same.
void requirePrintable(const Value& value) {
  const std::string text = printValue(value);
  GraphQLLimits limits;
  limits.bytes = limits.tokens = text.size() + 20;
  limits.depth = 32;
  GraphQLError error;
  const auto document = parseQuery("{a(b:" + text + ")}", limits, error);
  FUZZ_REQUIRE(document.has_value());
  const auto& field = std::get<Field>(document->operations.front().selectionSet.selections.front().node);
  FUZZ_REQUIRE(printValue(field.arguments.front().value) == text);
}

void requireInputs(const std::vector<InputValueDefinition>& definitions) {
  for (const InputValueDefinition& definition : definitions) {
    FUZZ_REQUIRE(definition.type.innermost().isInput());
    if (definition.defaultValue) requirePrintable(*definition.defaultValue);
  }
}

void requireSound(const Schema& schema) {
  FUZZ_REQUIRE(schema.queryType().isComposite());
  for (const auto& type : schema.types()) {
    FUZZ_REQUIRE(schema.type(type->name) == type.get());
    FUZZ_REQUIRE(!type->fields.empty() == type->isComposite());
    for (const FieldDefinition& field : type->fields) {
      FUZZ_REQUIRE(schema.field(*type, field.name) == &field && field.type.innermost().isOutput());
      requireInputs(field.arguments);
    }
    requireInputs(type->inputFields);
  }
  for (const DirectiveDefinition& directive : schema.directives()) {
    FUZZ_REQUIRE(schema.directive(directive.name) == &directive);
    requireInputs(directive.arguments);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view sdl = fuzz::asText(data, size);
  GraphQLError error;
  const auto schema = Schema::build(sdl, &error);
  FUZZ_REQUIRE(schema || !error.message.empty());
  if (!schema) return 0;
  requireSound(*schema);
  bool failed = false;
  const auto engine = GraphQLEngine::engineWithSchema(sdl, [&failed](const FRXError&) { failed = true; });
  engine->executeQuery(introspection, Nothing(), [](const std::string&) {});
  FUZZ_REQUIRE(!failed);
  return 0;
}
