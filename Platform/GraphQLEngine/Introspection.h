// The schema as queries see it (GraphQL October 2021, section 4).
#pragma once

#include "Platform/Base/FRXValue.h"
#include "Platform/GraphQLEngine/GraphQLObject.h"
#include "Platform/GraphQLEngine/Schema.h"

namespace ferrox::graphql {

// The objects view the schema, which must outlive them. Thread: any

/// What `__schema` resolves to.
GraphQLValue introspectedSchema(const Schema& schema);
/// What `__type(name:)` resolves to: null for a type that the schema does not have.
GraphQLValue introspectedType(const Schema& schema, const FRXDictionary& arguments);

}  // namespace ferrox::graphql
