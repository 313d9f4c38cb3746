// The rules of GraphQL October 2021, section 5, as far as they can be broken: in schemas of object, scalar,
// enum and input types, and by documents that the parser lets through. Each reports what breaks it.
#pragma once

#include <map>
#include <string_view>
#include <vector>

#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/Schema.h"
#include "Platform/GraphQLEngine/ValidationContext.h"

namespace ferrox::graphql {

// Types and definitions are null where the document asks for what the schema lacks: that is one rule's
// matter, and the others stay silent.

// Operations: 5.2.1.1 (names are unique), 5.2.2.1 (one without a name is alone).
void checkOperationNames(ValidationContext& context);

// Fields: 5.3.1 (they exist), 5.3.3 (leafs have no selections, objects have).
void checkField(ValidationContext& context, const Field& field, const NamedType* parent,
                const FieldDefinition* definition);
/// 5.3.2: fields of one response key can be merged. The document has no cycles of fragments.
void checkFieldMerging(ValidationContext& context);

// Arguments: 5.4.2 (names are unique).
void checkArgumentNames(ValidationContext& context, const std::vector<Argument>& arguments);
/// 5.4.1 (they exist), 5.4.2.1 (required ones are there), for what stands at `location` and is described by
/// `owner`.
void checkArguments(ValidationContext& context, const std::vector<Argument>& arguments,
                    const std::vector<InputValueDefinition>& definitions, std::string_view owner,
                    Location location);

// Fragments: 5.5.1.1 (names are unique), 5.5.1.4 (they are used).
void checkFragmentNames(ValidationContext& context);
void checkFragmentsUsed(ValidationContext& context);
/// 5.5.1.2 (the type exists), 5.5.1.3 (it is composite).
void checkTypeCondition(ValidationContext& context, std::string_view name, Location location);
/// 5.5.2.1 (the fragment exists).
void checkSpreadTarget(ValidationContext& context, const FragmentSpread& spread);
/// 5.5.2.2 (fragments form no cycles). Whether there was none.
bool checkFragmentCycles(ValidationContext& context);
/// 5.5.2.3 (a fragment on `type` can apply inside `parent`).
void checkSpreadIsPossible(ValidationContext& context, const NamedType* type, const NamedType* parent,
                           Location location);
/// Stops where, with all fragments followed, fields nest deeper than the limit, more fragments than that
/// follow from each other, or selections come to more than the limit of steps.
void checkExtent(ValidationContext& context);

// Values: 5.6.1 (of correct type), 5.6.2 (input fields exist), 5.6.4 (required ones are there).
void checkValue(ValidationContext& context, const Value& value, const TypeReference* type);
/// 5.6.3 (input fields are unique).
void checkInputFieldNames(ValidationContext& context, const Value& value);

/// Directives: 5.7.1 (they exist), 5.7.2 (in a place they are for), 5.7.3 (once).
void checkDirectives(ValidationContext& context, const std::vector<Directive>& directives,
                     std::string_view place);

// Variables: 5.8.1 (names are unique), 5.8.2 (types are input types).
void checkVariableDefinitions(ValidationContext& context, const OperationDefinition& operation);

/// A variable in a value, and what is expected there.
struct VariableUse {
  const Value* variable = nullptr;
  const TypeReference* type = nullptr;
  bool hasDefault = false;
};
using VariableUses = std::vector<VariableUse>;
void collectVariableUses(const Value& value, const TypeReference* type, bool hasDefault, VariableUses& uses);

/// By the selection set of the operation or fragment they are written in.
using VariableUsesBySet = std::map<const SelectionSet*, VariableUses>;
/// 5.8.3 (uses are defined), 5.8.4 (definitions are used), 5.8.5 (types fit).
void checkVariableUses(ValidationContext& context, const VariableUsesBySet& uses);

}  // namespace ferrox::graphql
