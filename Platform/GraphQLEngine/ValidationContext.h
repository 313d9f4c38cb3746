// What the rules of validation share while they look at one document.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/GraphQLError.h"
#include "Platform/GraphQLEngine/GraphQLLimits.h"
#include "Platform/GraphQLEngine/Schema.h"

namespace ferrox::graphql {

/// Thrown when enough was found; never leaves `validate`.
struct ValidationEnd {};

class ValidationContext {
 public:
  ValidationContext(const Schema& ofSchema, const Document& ofDocument, const GraphQLLimits& withLimits);

  const Schema& schema;
  const Document& document;
  const GraphQLLimits& limits;

  /// Null without one. Of several with one name the last.
  const FragmentDefinition* fragment(std::string_view name) const;
  /// The spreads that are written in a selection set, at any depth; none is followed.
  const std::vector<const FragmentSpread*>& spreadsIn(const SelectionSet& set);
  /// The fragments that are reached from selection sets, each once.
  std::vector<const FragmentDefinition*> fragmentsReachedFrom(std::vector<const SelectionSet*> sets);
  /// The type of that name if it has fields, else null.
  const NamedType* compositeType(std::string_view name) const;

  /// Notes the violation of a rule. Throws when there are as many as are reported.
  void report(std::string message, std::vector<Location> locations);
  /// Replaces all that was reported, and throws.
  [[noreturn]] void stop(std::string message, std::vector<Location> locations);
  /// To be called for each selection, and each use of a variable, that is looked at. Throws when too many
  /// were.
  void visit();

  std::vector<GraphQLError> takeErrors() { return std::move(errors_); }

 private:
  std::map<std::string_view, const FragmentDefinition*> fragments_;
  std::map<const SelectionSet*, std::vector<const FragmentSpread*>> spreads_;
  std::vector<GraphQLError> errors_;
  std::size_t visits_ = 0;
};

/// A name for people.
std::string quoted(std::string_view name);

}  // namespace ferrox::graphql
