// Arguments and variables become values (GraphQL October 2021, sections 6.1.2 and 6.4.1).
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Platform/Base/FRXValue.h"
#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/GraphQLError.h"
#include "Platform/GraphQLEngine/LeafCoercion.h"
#include "Platform/GraphQLEngine/Schema.h"

namespace ferrox::graphql {

struct CoercedVariables {
  Variables values;
  std::vector<GraphQLError> errors;
};

/// CoerceVariableValues. At most `maxErrors` errors. The names view the document. Thread: any
CoercedVariables coerceVariableValues(const Schema& schema, const OperationDefinition& operation,
                                      const FRXDictionary& given, std::size_t maxErrors);

struct CoercedArguments {
  FRXDictionary values;
  std::optional<GraphQLError> error;
};

/// CoerceArgumentValues: `arguments` of the field or directive at `location`. Thread: any
CoercedArguments coerceArgumentValues(const std::vector<InputValueDefinition>& definitions,
                                      const std::vector<Argument>& arguments, Location location,
                                      const Variables& variables);

/// A literal, with the variables in it, as a value of `type`; nothing when it does not fit. Thread: any
std::optional<FRXValue> coerceLiteral(const Value& literal, const TypeReference& type,
                                      const Variables& variables);

/// The type that is written as `node`; nothing when the schema has no such type. Thread: any
std::optional<TypeReference> typeFromNode(const Schema& schema, const TypeNode& node);

}  // namespace ferrox::graphql
