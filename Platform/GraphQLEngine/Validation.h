// Whether a document may be executed (GraphQL October 2021, section 5).
#pragma once

#include <vector>

#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/GraphQLError.h"
#include "Platform/GraphQLEngine/GraphQLLimits.h"
#include "Platform/GraphQLEngine/Schema.h"

namespace ferrox::graphql {

/// Every violated rule, at most `limits.errors`; empty when the document is valid. Takes time in proportion
/// to the document: beyond `limits.steps` and `limits.depth` (fragments followed) it is an error. Thread: any
[[nodiscard]] std::vector<GraphQLError> validate(const Schema& schema, const Document& document,
                                                 const GraphQLLimits& limits);

}  // namespace ferrox::graphql
