// GraphQL source text to a document (GraphQL October 2021, section 2 and appendix B).
#pragma once

#include <optional>
#include <string_view>

#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/GraphQLError.h"
#include "Platform/GraphQLEngine/GraphQLLimits.h"

namespace ferrox::graphql {

/// Reads an executable document. Nothing, with `error` filled, at the first syntax error, for type system
/// definitions, and beyond `limits.bytes`, `limits.tokens` and `limits.depth` (nesting as it is written).
/// Thread: any
[[nodiscard]] std::optional<Document> parseQuery(std::string_view text, const GraphQLLimits& limits,
                                                 GraphQLError& error);

}  // namespace ferrox::graphql
