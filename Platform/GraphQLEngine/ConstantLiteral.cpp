#include "Platform/GraphQLEngine/ConstantLiteral.h"

#include <map>
#include <string>
#include <string_view>

#include "Platform/GraphQLEngine/LeafCoercion.h"
#include "Platform/GraphQLEngine/Refusal.h"

namespace ferrox::graphql {
namespace {

std::string quoted(std::string_view name) { return '"' + std::string(name) + '"'; }

void requireFitsObject(const Value& literal, const NamedType& type) {
  std::map<std::string_view, const ObjectField*> given;
  for (const ObjectField& field : literal.fields) {
    if (!given.emplace(field.name, &field).second) {
      refuse("The field " + quoted(field.name) + " is given twice.", field.location);
    }
  }
  for (const InputValueDefinition& definition : type.inputFields) {
    const auto field = given.find(definition.name);
    if (field != given.end()) {
      requireFit(field->second->value, definition.type);
      given.erase(field);
    } else if (definition.isRequired()) {
      refuse("The field " + quoted(definition.name) + " of " + quoted(type.name) + " is missing.",
             literal.location);
    }
  }
  if (given.empty()) return;
  const ObjectField& unknown = *given.begin()->second;
  refuse(quoted(type.name) + " has no field " + quoted(unknown.name) + ".", unknown.location);
}

}  // namespace

void requireFit(const Value& literal, const TypeReference& type) {
  const TypeReference& nullable = type.nullable();
  if (literal.kind == Value::Kind::Null && !type.isNonNull()) return;
  if (nullable.isList()) {
    // One value stands for the list of it (section 3.11).
    if (literal.kind == Value::Kind::List) {
      for (const Value& item : literal.items) requireFit(item, *nullable.of);
      return;
    }
    if (literal.kind != Value::Kind::Null) return requireFit(literal, *nullable.of);
  } else if (nullable.named->kind == NamedType::Kind::InputObject) {
    if (literal.kind == Value::Kind::Object) return requireFitsObject(literal, *nullable.named);
  } else if (literal.kind != Value::Kind::Null && coerceLeafLiteral(literal, *nullable.named)) {
    return;
  }
  refuse("This is no value of the type " + quoted(type.text()) + ".", literal.location);
}

}  // namespace ferrox::graphql
