#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/GraphQLEngine/InputCoercion.h"
#include "Platform/GraphQLEngine/ValidationRules.h"

namespace ferrox::graphql {
namespace {

struct KnownVariable {
  const VariableDefinition* definition = nullptr;
  /// Nothing when the schema has no such type.
  std::optional<TypeReference> type;
};

/// AreTypesCompatible (section 5.8.5).
bool areTypesCompatible(const TypeReference& variable, const TypeReference& place) {
  if (place.isNonNull()) return variable.isNonNull() && areTypesCompatible(*variable.of, *place.of);
  if (variable.isNonNull()) return areTypesCompatible(*variable.of, place);
  if (place.isList()) return variable.isList() && areTypesCompatible(*variable.of, *place.of);
  return !variable.isList() && variable.named == place.named;
}

/// IsVariableUsageAllowed (section 5.8.5).
bool isUseAllowed(const VariableUse& use, const KnownVariable& variable) {
  const TypeReference& place = *use.type;
  if (!place.isNonNull() || variable.type->isNonNull()) return areTypesCompatible(*variable.type, place);
  const Value* const defaultValue = variable.definition->defaultValue.get();
  const bool isNeverNull = defaultValue != nullptr && defaultValue->kind != Value::Kind::Null;
  return (isNeverNull || use.hasDefault) && areTypesCompatible(*variable.type, *place.of);
}

void checkUse(ValidationContext& context, const VariableUse& use, const KnownVariable& variable) {
  if (use.type == nullptr || !variable.type || isUseAllowed(use, variable)) return;
  context.report("The variable " + quoted(use.variable->text) + " of type " + variable.type->text() +
                     " cannot stand where " + use.type->text() + " is expected",
                 {variable.definition->location, use.variable->location});
}

void checkUsesOf(ValidationContext& context, const OperationDefinition& operation,
                 const VariableUsesBySet& uses) {
  std::map<std::string_view, KnownVariable> variables;
  for (const VariableDefinition& definition : operation.variables) {
    variables[definition.name] = {&definition, typeFromNode(context.schema, definition.type)};
  }
  std::vector<const SelectionSet*> sets{&operation.selectionSet};
  for (const auto* const fragment : context.fragmentsReachedFrom(sets)) {
    sets.push_back(&fragment->selectionSet);
  }
  std::set<std::string_view> used;
  for (const SelectionSet* const set : sets) {
    for (const VariableUse& use : uses.at(set)) {
      context.visit();
      used.insert(use.variable->text);
      const auto variable = variables.find(use.variable->text);
      if (variable != variables.end()) {
        checkUse(context, use, variable->second);
      } else {
        context.report("The variable " + quoted(use.variable->text) + " is not defined",
                       {use.variable->location, operation.location});
      }
    }
  }
  for (const VariableDefinition& definition : operation.variables) {
    if (!used.contains(definition.name)) {
      context.report("The variable " + quoted(definition.name) + " is never used", {definition.location});
    }
  }
}

const TypeNode& innermost(const TypeNode& node) {
  return node.kind == TypeNode::Kind::Named ? node : innermost(*node.of);
}

}  // namespace

void checkVariableDefinitions(ValidationContext& context, const OperationDefinition& operation) {
  std::map<std::string_view, std::vector<Location>> locations;
  for (const VariableDefinition& definition : operation.variables) {
    locations[definition.name].push_back(definition.nameLocation);
    const TypeNode& named = innermost(definition.type);
    const NamedType* const type = context.schema.type(named.name);
    if (type == nullptr) {
      context.report("There is no type " + quoted(named.name), {named.location});
    } else if (!type->isInput()) {
      context.report("A variable cannot be of type " + quoted(named.name) + ", which is no input type",
                     {definition.type.location});
    }
  }
  for (auto& [name, all] : locations) {
    if (all.size() > 1) context.report("There is more than one variable " + quoted(name), std::move(all));
  }
}

void collectVariableUses(const Value& value, const TypeReference* type, bool hasDefault, VariableUses& uses) {
  if (value.kind == Value::Kind::Variable) uses.push_back({&value, type, hasDefault});
  const TypeReference* itemType = type == nullptr ? nullptr : &type->nullable();
  if (itemType != nullptr && itemType->isList()) itemType = itemType->of.get();
  for (const Value& item : value.items) collectVariableUses(item, itemType, false, uses);
  for (const ObjectField& field : value.fields) {
    const auto* const definition = type == nullptr ? nullptr : type->innermost().inputField(field.name);
    const bool isKnown = definition != nullptr;
    collectVariableUses(field.value, isKnown ? &definition->type : nullptr,
                        isKnown && definition->defaultValue != nullptr, uses);
  }
}

void checkVariableUses(ValidationContext& context, const VariableUsesBySet& uses) {
  for (const OperationDefinition& operation : context.document.operations) {
    checkUsesOf(context, operation, uses);
  }
}

}  // namespace ferrox::graphql
