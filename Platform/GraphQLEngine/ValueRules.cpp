#include <algorithm>
#include <map>
#include <string>
#include <string_view>

#include "Platform/GraphQLEngine/LeafCoercion.h"
#include "Platform/GraphQLEngine/ValidationRules.h"

namespace ferrox::graphql {
namespace {

void checkInputObject(ValidationContext& context, const Value& value, const NamedType& type) {
  for (const InputValueDefinition& definition : type.inputFields) {
    const bool isGiven = std::any_of(value.fields.begin(), value.fields.end(),
                                     [&](const ObjectField& field) { return field.name == definition.name; });
    if (!isGiven && definition.isRequired()) {
      context.report(quoted(type.name) + " needs the field " + quoted(definition.name) + " of type " +
                         definition.type.text(),
                     {value.location});
    }
  }
  for (const ObjectField& field : value.fields) {
    const InputValueDefinition* const definition = type.inputField(field.name);
    if (definition == nullptr) {
      context.report(quoted(type.name) + " has no field " + quoted(field.name), {field.location});
    } else {
      checkValue(context, field.value, &definition->type);
    }
  }
}

}  // namespace

void checkValue(ValidationContext& context, const Value& value, const TypeReference* type) {
  // What a variable holds is known only when the query is executed; its type is checked where it is used.
  if (type == nullptr || value.kind == Value::Kind::Variable) return;
  if (value.kind == Value::Kind::Null) {
    if (type->isNonNull()) context.report("null is not of type " + type->text(), {value.location});
    return;
  }
  const TypeReference& nullable = type->nullable();
  if (nullable.isList() && value.kind == Value::Kind::List) {
    for (const Value& item : value.items) checkValue(context, item, nullable.of.get());
    return;
  }
  // One value stands for the list of it (section 3.11).
  const NamedType& named = nullable.innermost();
  if (named.kind == NamedType::Kind::InputObject && value.kind == Value::Kind::Object) {
    checkInputObject(context, value, named);
  } else if (!named.isLeaf() || !coerceLeafLiteral(value, named)) {
    context.report("This value is not of type " + type->text(), {value.location});
  }
}

void checkInputFieldNames(ValidationContext& context, const Value& value) {
  for (const Value& item : value.items) checkInputFieldNames(context, item);
  std::map<std::string_view, Location> known;
  for (const ObjectField& field : value.fields) {
    const auto [first, isNew] = known.emplace(field.name, field.location);
    if (!isNew) {
      context.report("There is more than one field " + quoted(field.name), {first->second, field.location});
    }
    checkInputFieldNames(context, field.value);
  }
}

}  // namespace ferrox::graphql
