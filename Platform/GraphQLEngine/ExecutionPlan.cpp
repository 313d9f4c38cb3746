#include "Platform/GraphQLEngine/ExecutionPlan.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ferrox::graphql {

/// The fields of one response key, as they were found.
struct ExecutionPlanner::Group {
  std::string_view responseKey;
  std::vector<const Field*> fields;
};

ExecutionPlanner::ExecutionPlanner(const Schema& schema, const Document& document, const Variables& variables)
    : schema_(schema), document_(document), variables_(variables) {}

PlannedSelection ExecutionPlanner::plan(const OperationDefinition& operation) {
  return planSelections(schema_.queryType(), {&operation.selectionSet});
}

PlannedSelection ExecutionPlanner::planSelections(const NamedType& type,
                                                  const std::vector<const SelectionSet*>& sets) {
  PlannedSelection planned;
  Groups groups;
  VisitedFragments visited;
  for (const SelectionSet* const set : sets) {
    if (collectFields(type, *set, groups, visited)) continue;
    planned.failure = std::exchange(directiveError_, std::nullopt);
    return planned;
  }
  planned.fields.reserve(groups.size());
  for (const Group& group : groups) {
    const Field& first = *group.fields.front();
    PlannedField field{group.responseKey, schema_.field(type, first.name), {}, {}, {}};
    if (field.definition == nullptr) continue;
    field.arguments =
        coerceArgumentValues(field.definition->arguments, first.arguments, first.location, variables_);
    std::vector<const SelectionSet*> subsets;
    for (const Field* const one : group.fields) {
      field.locations.push_back(one->location);
      subsets.push_back(&one->selectionSet);
    }
    const NamedType& fieldType = field.definition->type.innermost();
    if (fieldType.isComposite()) field.subfields = planSelections(fieldType, subsets);
    planned.fields.push_back(std::move(field));
  }
  return planned;
}

// CollectFields (section 6.3.2). Response keys are few: looking through them beats hashing.
bool ExecutionPlanner::collectFields(const NamedType& type, const SelectionSet& set, Groups& groups,
                                     VisitedFragments& visited) {
  for (const Selection& selection : set.selections) {
    if (const auto* const field = std::get_if<Field>(&selection.node)) {
      if (!isIncluded(field->directives)) {
        if (directiveError_) return false;
        continue;
      }
      const auto known = std::find_if(groups.begin(), groups.end(), [&](const Group& group) {
        return group.responseKey == field->responseKey();
      });
      if (known == groups.end()) {
        groups.push_back({field->responseKey(), {field}});
      } else {
        known->fields.push_back(field);
      }
      continue;
    }
    const auto* const spread = std::get_if<FragmentSpread>(&selection.node);
    const auto* const inlined = std::get_if<InlineFragment>(&selection.node);
    if (!isIncluded(spread != nullptr ? spread->directives : inlined->directives)) {
      if (directiveError_) return false;
      continue;
    }
    const FragmentDefinition* const named = spread != nullptr ? fragment(spread->name) : nullptr;
    if (spread != nullptr) {
      if (named == nullptr || std::find(visited.begin(), visited.end(), named) != visited.end()) continue;
      visited.push_back(named);
    }
    const std::string_view condition = named != nullptr ? named->typeCondition : inlined->typeCondition;
    if (!condition.empty() && condition != type.name) continue;
    if (!collectFields(type, named != nullptr ? named->selectionSet : inlined->selectionSet, groups,
                       visited)) {
      return false;
    }
  }
  return true;
}

// @skip and @include (sections 3.13.1 and 3.13.2).
bool ExecutionPlanner::isIncluded(const std::vector<Directive>& directives) {
  for (const Directive& directive : directives) {
    const bool skips = directive.name == "skip";
    if (!skips && directive.name != "include") continue;
    const DirectiveDefinition* const definition = schema_.directive(directive.name);
    auto arguments =
        coerceArgumentValues(definition->arguments, directive.arguments, directive.location, variables_);
    if (arguments.error) {
      directiveError_ = std::move(arguments.error);
      return false;
    }
    const bool* const condition = arguments.values.at("if").asBool();
    if (condition != nullptr && *condition == skips) return false;
  }
  return true;
}

const FragmentDefinition* ExecutionPlanner::fragment(std::string_view name) const {
  const auto found = std::find_if(document_.fragments.begin(), document_.fragments.end(),
                                  [&](const FragmentDefinition& one) { return one.name == name; });
  return found == document_.fragments.end() ? nullptr : &*found;
}

}  // namespace ferrox::graphql
