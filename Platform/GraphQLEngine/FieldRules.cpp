#include <string>

#include "Platform/GraphQLEngine/ValidationRules.h"

namespace ferrox::graphql {

void checkField(ValidationContext& context, const Field& field, const NamedType* parent,
                const FieldDefinition* definition) {
  if (parent == nullptr) return;
  if (definition == nullptr) {
    context.report(quoted(parent->name) + " has no field " + quoted(field.name), {field.location});
    return;
  }
  const bool isLeaf = definition->type.innermost().isLeaf();
  if (isLeaf && !field.selectionSet.empty()) {
    context.report("The field " + quoted(field.name) + " of type " + definition->type.text() +
                       " has nothing to select from",
                   {field.selectionSet.location});
  }
  if (!isLeaf && field.selectionSet.empty()) {
    context.report(
        "The field " + quoted(field.name) + " of type " + definition->type.text() + " needs a selection",
        {field.location});
  }
}

}  // namespace ferrox::graphql
