// Which fields a query asks of which type, before any object is looked at.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Platform/Base/FRXValue.h"
#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/GraphQLError.h"
#include "Platform/GraphQLEngine/InputCoercion.h"
#include "Platform/GraphQLEngine/Schema.h"

namespace ferrox::graphql {

struct PlannedField;

/// The fields of one object, in the order of the answer.
struct PlannedSelection {
  std::vector<PlannedField> fields;
  /// An object asked for these fields fails with it.
  std::optional<GraphQLError> failure;
};

/// One member of the answer: all fields of one response key, merged (section 6.3.2).
struct PlannedField {
  std::string_view responseKey;
  const FieldDefinition* definition = nullptr;
  CoercedArguments arguments;
  std::vector<Location> locations;
  PlannedSelection subfields;
};

/// With no interfaces and unions, a field's type tells the type of its objects. So CollectFields, argument
/// coercion and the merging of selection sets, which section 6 does for each object, are done here once for
/// each field, and a list of a thousand objects costs no more of them than one. The document is valid: its
/// extent is within the limits, and its fragments form no cycles.
/// Thread: any. What it returns views the document and the schema.
class ExecutionPlanner {
 public:
  ExecutionPlanner(const Schema& schema, const Document& document, const Variables& variables);

  PlannedSelection plan(const OperationDefinition& operation);

 private:
  struct Group;
  using Groups = std::vector<Group>;
  using VisitedFragments = std::vector<const FragmentDefinition*>;

  PlannedSelection planSelections(const NamedType& type, const std::vector<const SelectionSet*>& sets);
  bool collectFields(const NamedType& type, const SelectionSet& set, Groups& groups,
                     VisitedFragments& visited);
  bool isIncluded(const std::vector<Directive>& directives);
  const FragmentDefinition* fragment(std::string_view name) const;

  const Schema& schema_;
  const Document& document_;
  const Variables& variables_;
  std::optional<GraphQLError> directiveError_;
};

}  // namespace ferrox::graphql
