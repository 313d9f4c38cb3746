// How the readers of GraphQL source give up: from any depth of the grammar, caught where the reading began.
#pragma once

#include <string>
#include <utility>

#include "Platform/GraphQLEngine/GraphQLError.h"

namespace ferrox::graphql {

/// Never leaves `parseQuery` and `Schema::build`.
struct Refusal {
  GraphQLError error;
};

/// For what has no place of its own in the source.
[[noreturn]] inline void refuse(std::string message) { throw Refusal{{std::move(message), {}, {}}}; }

[[noreturn]] inline void refuse(std::string message, Location at) {
  throw Refusal{{std::move(message), {at}, {}}};
}

}  // namespace ferrox::graphql
