#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/GraphQLEngine/ValidationRules.h"

namespace ferrox::graphql {
namespace {

/// Follows each fragment's spreads once, depth first.
class CycleSearch {
 public:
  explicit CycleSearch(ValidationContext& context) : context_(context) {}

  void follow(const FragmentDefinition& fragment) {
    if (!followed_.insert(fragment.name).second) return;
    positionInPath_.emplace(fragment.name, path_.size());
    for (const FragmentSpread* const spread : context_.spreadsIn(fragment.selectionSet)) {
      path_.push_back(spread->location);
      const auto start = positionInPath_.find(spread->name);
      if (start != positionInPath_.end()) {
        report(spread->name, start->second);
      } else if (const FragmentDefinition* const next = context_.fragment(spread->name)) {
        follow(*next);
      }
      path_.pop_back();
    }
    positionInPath_.erase(fragment.name);
  }
  bool hasFound() const { return hasFound_; }

 private:
  void report(std::string_view name, std::size_t start) {
    hasFound_ = true;
    context_.report("The fragment " + quoted(name) + " contains itself",
                    {path_.begin() + static_cast<std::ptrdiff_t>(start), path_.end()});
  }

  ValidationContext& context_;
  std::set<std::string_view> followed_;
  /// The spreads from one fragment to the next, and at which of them the path entered a fragment.
  std::vector<Location> path_;
  std::map<std::string_view, std::size_t> positionInPath_;
  bool hasFound_ = false;
};

/// What a selection set comes to when all fragments in it are followed.
struct Extent {
  /// The most fields, and the most spreads, on a way into it.
  std::size_t fields = 0;
  std::size_t spreads = 0;
  /// As many as an executor would visit if no two were merged.
  std::size_t selections = 0;
};

/// Measures each fragment once.
class ExtentMeter {
 public:
  explicit ExtentMeter(ValidationContext& context) : context_(context) {}

  void measureAll() {
    for (const OperationDefinition& operation : context_.document.operations) {
      measure(operation.selectionSet, 0);
    }
    for (const FragmentDefinition& fragment : context_.document.fragments) {
      if (!known_.contains(fragment.name)) measure(fragment, 0);
    }
  }

 private:
  /// A cycle is another rule's matter: a fragment inside itself counts as empty.
  Extent measure(const FragmentDefinition& fragment, std::size_t spreadsAround) {
    known_[fragment.name] = {};
    return known_[fragment.name] = measure(fragment.selectionSet, spreadsAround);
  }

  Extent measure(const SelectionSet& set, std::size_t spreadsAround) {
    Extent extent;
    for (const Selection& selection : set.selections) {
      context_.visit();
      const auto [location, one] = measure(selection, spreadsAround);
      extent.fields = std::max(extent.fields, one.fields);
      extent.spreads = std::max(extent.spreads, one.spreads);
      // Neither is beyond the limit: no sum overflows.
      extent.selections += one.selections + 1;
      refuseBeyond(extent, spreadsAround, location);
    }
    return extent;
  }

  std::pair<Location, Extent> measure(const Selection& selection, std::size_t spreadsAround) {
    if (const auto* const field = std::get_if<Field>(&selection.node)) {
      Extent extent = measure(field->selectionSet, spreadsAround);
      ++extent.fields;
      return {field->location, extent};
    }
    if (const auto* const inlined = std::get_if<InlineFragment>(&selection.node)) {
      return {inlined->location, measure(inlined->selectionSet, spreadsAround)};
    }
    const auto& spread = std::get<FragmentSpread>(selection.node);
    Extent extent = measure(spread, spreadsAround + 1);
    ++extent.spreads;
    return {spread.location, extent};
  }

  Extent measure(const FragmentSpread& spread, std::size_t spreadsAround) {
    refuseBeyond({}, spreadsAround, spread.location);
    const auto known = known_.find(spread.name);
    if (known != known_.end()) return known->second;
    const FragmentDefinition* const fragment = context_.fragment(spread.name);
    return fragment == nullptr ? Extent() : measure(*fragment, spreadsAround);
  }

  void refuseBeyond(const Extent& extent, std::size_t spreadsAround, Location location) {
    const GraphQLLimits& limits = context_.limits;
    if (extent.fields > limits.depth) context_.stop("The fields of the query nest too deeply", {location});
    if (spreadsAround + extent.spreads > limits.depth) {
      context_.stop("The fragments of the query nest too deeply", {location});
    }
    if (extent.selections > limits.steps) {
      context_.stop("The query asks for too much when its fragments are followed", {location});
    }
  }

  ValidationContext& context_;
  std::map<std::string_view, Extent> known_;
};

}  // namespace

void checkFragmentNames(ValidationContext& context) {
  std::map<std::string_view, Location> known;
  for (const FragmentDefinition& fragment : context.document.fragments) {
    const auto [first, isNew] = known.emplace(fragment.name, fragment.nameLocation);
    if (!isNew) {
      context.report("There is more than one fragment " + quoted(fragment.name),
                     {first->second, fragment.nameLocation});
    }
  }
}

void checkFragmentsUsed(ValidationContext& context) {
  std::vector<const SelectionSet*> sets;
  for (const OperationDefinition& operation : context.document.operations) {
    sets.push_back(&operation.selectionSet);
  }
  std::set<std::string_view> used;
  for (const FragmentDefinition* const fragment : context.fragmentsReachedFrom(std::move(sets))) {
    used.insert(fragment->name);
  }
  for (const FragmentDefinition& fragment : context.document.fragments) {
    if (!used.contains(fragment.name)) {
      context.report("The fragment " + quoted(fragment.name) + " is never used", {fragment.location});
    }
  }
}

void checkTypeCondition(ValidationContext& context, std::string_view name, Location location) {
  const NamedType* const type = context.schema.type(name);
  if (type == nullptr) {
    context.report("There is no type " + quoted(name), {location});
  } else if (!type->isComposite()) {
    context.report("A fragment cannot be on " + quoted(name) + ", which has no fields", {location});
  }
}

void checkSpreadTarget(ValidationContext& context, const FragmentSpread& spread) {
  if (context.fragment(spread.name) == nullptr) {
    context.report("There is no fragment " + quoted(spread.name), {spread.nameLocation});
  }
}

bool checkFragmentCycles(ValidationContext& context) {
  CycleSearch search(context);
  for (const FragmentDefinition& fragment : context.document.fragments) search.follow(fragment);
  return !search.hasFound();
}

void checkSpreadIsPossible(ValidationContext& context, const NamedType* type, const NamedType* parent,
                           Location location) {
  // Without interfaces and unions two types have objects in common only when they are the same.
  if (type == nullptr || parent == nullptr || type == parent) return;
  context.report("An object of " + quoted(parent->name) + " can never be of " + quoted(type->name),
                 {location});
}

void checkExtent(ValidationContext& context) { ExtentMeter(context).measureAll(); }

}  // namespace ferrox::graphql
