#include "Platform/GraphQLEngine/Validation.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "Platform/GraphQLEngine/InputCoercion.h"
#include "Platform/GraphQLEngine/ValidationContext.h"
#include "Platform/GraphQLEngine/ValidationRules.h"

namespace ferrox::graphql {
namespace {

/// Walks through every definition once, knowing what type each part is of.
class DocumentWalk {
 public:
  explicit DocumentWalk(ValidationContext& context) : context_(context) {}

  VariableUsesBySet walk() {
    for (const OperationDefinition& operation : context_.document.operations) walk(operation);
    for (const FragmentDefinition& fragment : context_.document.fragments) walk(fragment);
    return std::move(uses_);
  }

 private:
  void walk(const OperationDefinition& operation) {
    // Mutations and subscriptions have no type here: they are refused when they are to be executed.
    const bool isQuery = operation.kind == OperationDefinition::Kind::Query;
    const bool isMutation = operation.kind == OperationDefinition::Kind::Mutation;
    currentUses_ = &uses_[&operation.selectionSet];
    checkVariableDefinitions(context_, operation);
    for (const VariableDefinition& variable : operation.variables) walk(variable);
    walk(operation.directives, isQuery ? "QUERY" : isMutation ? "MUTATION" : "SUBSCRIPTION");
    walk(operation.selectionSet, isQuery ? &context_.schema.queryType() : nullptr);
  }

  void walk(const VariableDefinition& variable) {
    walk(variable.directives, "VARIABLE_DEFINITION");
    if (!variable.defaultValue) return;
    const auto type = typeFromNode(context_.schema, variable.type);
    const bool isInput = type && type->innermost().isInput();
    checkInputFieldNames(context_, *variable.defaultValue);
    checkValue(context_, *variable.defaultValue, isInput ? &*type : nullptr);
  }

  void walk(const FragmentDefinition& fragment) {
    currentUses_ = &uses_[&fragment.selectionSet];
    checkTypeCondition(context_, fragment.typeCondition, fragment.typeConditionLocation);
    walk(fragment.directives, "FRAGMENT_DEFINITION");
    walk(fragment.selectionSet, context_.compositeType(fragment.typeCondition));
  }

  void walk(const SelectionSet& set, const NamedType* parent) {
    for (const Selection& selection : set.selections) {
      context_.visit();
      std::visit([&](const auto& node) { walk(node, parent); }, selection.node);
    }
  }

  void walk(const Field& field, const NamedType* parent) {
    const auto* const definition = parent == nullptr ? nullptr : context_.schema.field(*parent, field.name);
    checkField(context_, field, parent, definition);
    walk(field.arguments, definition == nullptr ? nullptr : &definition->arguments, field.name,
         field.location);
    walk(field.directives, "FIELD");
    const NamedType* const type = definition == nullptr ? nullptr : &definition->type.innermost();
    walk(field.selectionSet, type != nullptr && type->isComposite() ? type : nullptr);
  }

  void walk(const FragmentSpread& spread, const NamedType* parent) {
    checkSpreadTarget(context_, spread);
    if (const FragmentDefinition* const fragment = context_.fragment(spread.name)) {
      checkSpreadIsPossible(context_, context_.compositeType(fragment->typeCondition), parent,
                            spread.location);
    }
    walk(spread.directives, "FRAGMENT_SPREAD");
  }

  void walk(const InlineFragment& fragment, const NamedType* parent) {
    const NamedType* type = parent;
    if (!fragment.typeCondition.empty()) {
      type = context_.compositeType(fragment.typeCondition);
      checkTypeCondition(context_, fragment.typeCondition, fragment.typeConditionLocation);
      checkSpreadIsPossible(context_, type, parent, fragment.location);
    }
    walk(fragment.directives, "INLINE_FRAGMENT");
    walk(fragment.selectionSet, type);
  }

  void walk(const std::vector<Directive>& directives, std::string_view place) {
    checkDirectives(context_, directives, place);
    for (const Directive& directive : directives) {
      const DirectiveDefinition* const definition = context_.schema.directive(directive.name);
      walk(directive.arguments, definition == nullptr ? nullptr : &definition->arguments, directive.name,
           directive.location);
    }
  }

  /// Of the field or directive `owner` at `location`.
  void walk(const std::vector<Argument>& arguments, const std::vector<InputValueDefinition>* definitions,
            std::string_view owner, Location location) {
    checkArgumentNames(context_, arguments);
    if (definitions != nullptr) checkArguments(context_, arguments, *definitions, owner, location);
    for (const Argument& argument : arguments) {
      const InputValueDefinition* const definition = definitionOf(argument, definitions);
      const TypeReference* const type = definition == nullptr ? nullptr : &definition->type;
      const bool hasDefault = definition != nullptr && definition->defaultValue != nullptr;
      checkInputFieldNames(context_, argument.value);
      checkValue(context_, argument.value, type);
      collectVariableUses(argument.value, type, hasDefault, *currentUses_);
    }
  }

  static const InputValueDefinition* definitionOf(const Argument& argument,
                                                  const std::vector<InputValueDefinition>* definitions) {
    if (definitions == nullptr) return nullptr;
    const auto found =
        std::find_if(definitions->begin(), definitions->end(),
                     [&](const InputValueDefinition& one) { return one.name == argument.name; });
    return found == definitions->end() ? nullptr : &*found;
  }

  ValidationContext& context_;
  VariableUsesBySet uses_;
  VariableUses* currentUses_ = nullptr;
};

void checkAll(ValidationContext& context) {
  checkExtent(context);
  checkOperationNames(context);
  checkFragmentNames(context);
  checkFragmentsUsed(context);
  const auto variableUses = DocumentWalk(context).walk();
  checkVariableUses(context, variableUses);
  if (checkFragmentCycles(context)) checkFieldMerging(context);
}

}  // namespace

std::vector<GraphQLError> validate(const Schema& schema, const Document& document,
                                   const GraphQLLimits& limits) {
  ValidationContext context(schema, document, limits);
  try {
    checkAll(context);
  } catch (const ValidationEnd&) {
    // The context holds what was found.
  }
  return context.takeErrors();
}

}  // namespace ferrox::graphql
