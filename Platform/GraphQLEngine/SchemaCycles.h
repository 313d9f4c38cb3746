// What in a schema would never end.
#pragma once

#include "Platform/GraphQLEngine/Schema.h"
#include "Platform/GraphQLEngine/TypeSystemDocument.h"

namespace ferrox::graphql {

/// Throws a `Refusal` when there is
/// - an input object that cannot be written down, as it needs another of itself (GraphQL October 2021,
/// section
///   3.10, "circular references"),
/// - a default value that is part of itself: coercion fills in the defaults of input fields (section 3.10),
/// and
///   would not come to an end,
/// - a directive defined by means of itself (section 3.13).
void checkCycles(const TypeSystemDocument& document, const Schema& schema);

}  // namespace ferrox::graphql
