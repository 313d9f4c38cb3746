// Literals of a schema: default values, and arguments of the directives in it.
#pragma once

#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/Schema.h"

namespace ferrox::graphql {

/// Throws a `Refusal` when `literal` is no value of `type` (GraphQL October 2021, sections 3.5 to 3.12,
/// "input coercion").
void requireFit(const Value& literal, const TypeReference& type);

}  // namespace ferrox::graphql
