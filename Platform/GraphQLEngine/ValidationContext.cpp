#include "Platform/GraphQLEngine/ValidationContext.h"

#include <set>
#include <utility>

namespace ferrox::graphql {

ValidationContext::ValidationContext(const Schema& ofSchema, const Document& ofDocument,
                                     const GraphQLLimits& withLimits)
    : schema(ofSchema), document(ofDocument), limits(withLimits) {
  for (const FragmentDefinition& fragment : document.fragments) fragments_[fragment.name] = &fragment;
}

const FragmentDefinition* ValidationContext::fragment(std::string_view name) const {
  const auto found = fragments_.find(name);
  return found == fragments_.end() ? nullptr : found->second;
}

// Breadth first in each set, the set that was met last before the others: the order in which cycles are told.
const std::vector<const FragmentSpread*>& ValidationContext::spreadsIn(const SelectionSet& set) {
  const auto [known, isNew] = spreads_.try_emplace(&set);
  if (!isNew) return known->second;
  std::vector<const SelectionSet*> pending{&set};
  while (!pending.empty()) {
    const SelectionSet* const next = pending.back();
    pending.pop_back();
    for (const Selection& selection : next->selections) {
      visit();
      if (const auto* const spread = std::get_if<FragmentSpread>(&selection.node)) {
        known->second.push_back(spread);
      } else if (const auto* const field = std::get_if<Field>(&selection.node)) {
        pending.push_back(&field->selectionSet);
      } else {
        pending.push_back(&std::get<InlineFragment>(selection.node).selectionSet);
      }
    }
  }
  return known->second;
}

std::vector<const FragmentDefinition*> ValidationContext::fragmentsReachedFrom(
    std::vector<const SelectionSet*> sets) {
  std::vector<const FragmentDefinition*> reached;
  std::set<std::string_view> names;
  while (!sets.empty()) {
    const SelectionSet* const next = sets.back();
    sets.pop_back();
    for (const FragmentSpread* const spread : spreadsIn(*next)) {
      visit();
      const FragmentDefinition* const target = fragment(spread->name);
      if (target == nullptr || !names.insert(spread->name).second) continue;
      reached.push_back(target);
      sets.push_back(&target->selectionSet);
    }
  }
  return reached;
}

const NamedType* ValidationContext::compositeType(std::string_view name) const {
  const NamedType* const type = schema.type(name);
  return type != nullptr && type->isComposite() ? type : nullptr;
}

void ValidationContext::report(std::string message, std::vector<Location> locations) {
  errors_.push_back({std::move(message), std::move(locations), {}});
  if (errors_.size() >= limits.errors) throw ValidationEnd();
}

void ValidationContext::stop(std::string message, std::vector<Location> locations) {
  errors_.assign({{std::move(message), std::move(locations), {}}});
  throw ValidationEnd();
}

void ValidationContext::visit() {
  if (++visits_ > limits.steps) stop("The query is too complex to be validated", {});
}

std::string quoted(std::string_view name) { return '"' + std::string(name) + '"'; }

}  // namespace ferrox::graphql
