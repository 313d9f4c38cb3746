#include "Platform/GraphQLEngine/InputCoercion.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace ferrox::graphql {
namespace {

const FRXValue* valueOf(const Value& variable, const Variables& variables) {
  const auto found = variables.find(variable.text);
  return found == variables.end() ? nullptr : &found->second;
}

bool isMissing(const Value& value, const Variables& variables) {
  return value.kind == Value::Kind::Variable && valueOf(value, variables) == nullptr;
}

template <typename Named>
const Named* findNamed(const std::vector<Named>& all, std::string_view name) {
  const auto found = std::find_if(all.begin(), all.end(), [&](const Named& one) { return one.name == name; });
  return found == all.end() ? nullptr : &*found;
}

std::optional<FRXValue> defaultOf(const InputValueDefinition& definition) {
  if (!definition.defaultValue) return std::nullopt;
  return coerceLiteral(*definition.defaultValue, definition.type, {});
}

std::optional<FRXValue> coerceListLiteral(const Value& literal, const TypeReference& itemType,
                                          const Variables& variables) {
  FRXArray array;
  if (literal.kind != Value::Kind::List) {
    // One value stands for the list of it (section 3.11).
    auto only = coerceLiteral(literal, itemType, variables);
    if (!only) return std::nullopt;
    array.push_back(std::move(*only));
    return array;
  }
  for (const Value& item : literal.items) {
    auto value = isMissing(item, variables) && !itemType.isNonNull()
                     ? FRXValue()
                     : coerceLiteral(item, itemType, variables);
    if (!value) return std::nullopt;
    array.push_back(std::move(*value));
  }
  return array;
}

std::optional<FRXValue> coerceObjectLiteral(const Value& literal, const NamedType& type,
                                            const Variables& variables) {
  if (literal.kind != Value::Kind::Object) return std::nullopt;
  FRXDictionary object;
  for (const InputValueDefinition& definition : type.inputFields) {
    const ObjectField* const field = findNamed(literal.fields, definition.name);
    const bool given = field != nullptr && !isMissing(field->value, variables);
    auto value = given ? coerceLiteral(field->value, definition.type, variables) : defaultOf(definition);
    if (value) {
      object.emplace(definition.name, std::move(*value));
    } else if (given || definition.isRequired()) {
      return std::nullopt;
    }
  }
  return object;
}

/// One variable's JSON value, with every problem in it reported.
class InputReader {
 public:
  using OnError = std::function<void(std::string problem)>;
  explicit InputReader(OnError onError) : onError_(std::move(onError)) {}

  FRXValue read(const FRXValue& input, const TypeReference& type) const {
    if (type.isNonNull()) {
      if (!input.isNull()) return read(input, *type.of);
      onError_("null where " + type.text() + " is expected");
      return {};
    }
    if (input.isNull()) return {};
    if (type.isList()) return readList(input, *type.of);
    if (type.named->kind == NamedType::Kind::InputObject) return readObject(input, *type.named);
    auto value = coerceLeafInput(input, *type.named);
    if (!value) onError_("a value that is no " + type.named->name);
    return value ? std::move(*value) : FRXValue();
  }

 private:
  FRXValue readList(const FRXValue& input, const TypeReference& itemType) const {
    FRXArray array;
    if (const FRXArray* const items = input.asArray()) {
      for (const FRXValue& item : *items) array.push_back(read(item, itemType));
    } else {
      array.push_back(read(input, itemType));
    }
    return array;
  }
  FRXValue readObject(const FRXValue& input, const NamedType& type) const {
    const FRXDictionary* const given = input.asObject();
    if (given == nullptr) {
      onError_("a value that is no object of type " + type.name);
      return {};
    }
    FRXDictionary object;
    for (const InputValueDefinition& definition : type.inputFields) {
      const auto found = given->find(definition.name);
      if (found != given->end()) {
        object.emplace(definition.name, read(found->second, definition.type));
      } else if (auto value = defaultOf(definition)) {
        object.emplace(definition.name, std::move(*value));
      } else if (definition.isRequired()) {
        onError_("the field \"" + definition.name + "\" of " + type.name + " is missing");
      }
    }
    for (const auto& [name, value] : *given) {
      if (type.inputField(name) == nullptr) onError_(type.name + " has no field \"" + name + "\"");
    }
    return object;
  }

  OnError onError_;
};

GraphQLError argumentError(const std::string& name, const std::string& problem, Location location) {
  return {"The argument \"" + name + "\" " + problem, {location}, {}};
}

}  // namespace

std::optional<TypeReference> typeFromNode(const Schema& schema, const TypeNode& node) {
  TypeReference type;
  if (node.kind == TypeNode::Kind::Named) {
    type.named = schema.type(node.name);
    return type.named == nullptr ? std::nullopt : std::optional(std::move(type));
  }
  auto of = typeFromNode(schema, *node.of);
  if (!of) return std::nullopt;
  type.kind = node.kind == TypeNode::Kind::List ? TypeReference::Kind::List : TypeReference::Kind::NonNull;
  type.of = std::make_shared<const TypeReference>(std::move(*of));
  return type;
}

std::optional<FRXValue> coerceLiteral(const Value& literal, const TypeReference& type,
                                      const Variables& variables) {
  if (literal.kind == Value::Kind::Variable) {
    const FRXValue* const value = valueOf(literal, variables);
    if (value == nullptr || (value->isNull() && type.isNonNull())) return std::nullopt;
    return *value;
  }
  const bool isNull = literal.kind == Value::Kind::Null;
  if (type.isNonNull()) return isNull ? std::nullopt : coerceLiteral(literal, *type.of, variables);
  if (isNull) return FRXValue();
  if (type.isList()) return coerceListLiteral(literal, *type.of, variables);
  if (type.named->kind == NamedType::Kind::InputObject) {
    return coerceObjectLiteral(literal, *type.named, variables);
  }
  return coerceLeafLiteral(literal, *type.named, variables);
}

CoercedVariables coerceVariableValues(const Schema& schema, const OperationDefinition& operation,
                                      const FRXDictionary& given, std::size_t maxErrors) {
  CoercedVariables result;
  for (const VariableDefinition& definition : operation.variables) {
    const auto report = [&](const std::string& problem) {
      if (result.errors.size() >= maxErrors) return;
      result.errors.push_back({"The variable \"$" + std::string(definition.name) + "\" got " + problem,
                               {definition.location},
                               {}});
    };
    const auto type = typeFromNode(schema, definition.type);
    if (!type || !type->innermost().isInput()) {
      report("a type that is no input type");
      continue;
    }
    const auto found = given.find(definition.name);
    if (found != given.end()) {
      result.values.emplace(definition.name, InputReader(report).read(found->second, *type));
    } else if (definition.defaultValue) {
      auto value = coerceLiteral(*definition.defaultValue, *type, {});
      if (value) result.values.emplace(definition.name, std::move(*value));
    } else if (type->isNonNull()) {
      report("no value, where " + type->text() + " is required");
    }
  }
  return result;
}

CoercedArguments coerceArgumentValues(const std::vector<InputValueDefinition>& definitions,
                                      const std::vector<Argument>& arguments, Location location,
                                      const Variables& variables) {
  CoercedArguments result;
  for (const InputValueDefinition& definition : definitions) {
    const Argument* const argument = findNamed(arguments, definition.name);
    if (argument == nullptr || isMissing(argument->value, variables)) {
      if (auto value = defaultOf(definition)) {
        result.values.emplace(definition.name, std::move(*value));
      } else if (definition.isRequired()) {
        result.error = argumentError(definition.name, "is required, and no value was given",
                                     argument == nullptr ? location : argument->value.location);
        return result;
      }
      continue;
    }
    auto value = coerceLiteral(argument->value, definition.type, variables);
    if (!value) {
      result.error = argumentError(definition.name, "has a value that is no " + definition.type.text(),
                                   argument->value.location);
      return result;
    }
    result.values.emplace(definition.name, std::move(*value));
  }
  return result;
}

}  // namespace ferrox::graphql
