// What a schema must observe beyond the grammar (GraphQL October 2021, section 3). Each throws a `Refusal`.
#pragma once

#include "Platform/GraphQLEngine/Schema.h"
#include "Platform/GraphQLEngine/TypeSystemDocument.h"

namespace ferrox::graphql {

/// Nothing is declared twice, with a name that is built in, or with a reserved one (section 2.1.9), and every
/// type has something in it.
void checkNames(const TypeSystemDocument& document, const TypeSystemDocument& builtIn);

/// Directives that the document makes use of are declared, for that place, and are given what they need.
void checkDirectiveUse(const TypeSystemDocument& document, const Schema& schema);

/// Default values fit their types.
void checkDefaultValues(const Schema& schema);

}  // namespace ferrox::graphql
