// Whether a document may be executed (GraphQL October 2021, section 5).
#pragma once

#include <vector>

#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/GraphQLError.h"
#include "Platform/GraphQLEngine/GraphQLLimits.h"
#include "Platform/GraphQLEngine/Schema.h"

namespace ferrox::graphql {

/// Every violated rule, at most `limits.errors`; empty when the document is valid. Takes time in proportion
/// to the document. One error alone when it has more than `limits.steps` selections or nests deeper than
/// `limits.depth` with its fragments followed, or when looking at it takes more than `limits.steps`. Thread:
/// any
[[nodiscard]] std::vector<GraphQLError> validate(const Schema& schema, const Document& document,
                                                 const GraphQLLimits& limits);

}  // namespace ferrox::graphql
