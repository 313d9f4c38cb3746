// One entry of a response's "errors" (GraphQL October 2021, section 7.1.2).
#pragma once

#include <cstddef>
#include <string>
#include <variant>
#include <vector>

#include "Platform/GraphQLEngine/Document.h"

namespace ferrox::graphql {

struct GraphQLError {
  using PathSegment = std::variant<std::string, std::size_t>;

  std::string message;
  std::vector<Location> locations;
  /// The response keys and list indices that lead to the field that failed; empty when no field did.
  std::vector<PathSegment> path;
};

}  // namespace ferrox::graphql
