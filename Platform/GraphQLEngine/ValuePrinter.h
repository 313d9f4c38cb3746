// Literals as GraphQL text.
#pragma once

#include <string>

#include "Platform/GraphQLEngine/Document.h"

namespace ferrox::graphql {

/// One line that reads as the same value, in the form that introspection gives default values in (GraphQL
/// October 2021, section 4.5.6). Thread: any
std::string printValue(const Value& value);

}  // namespace ferrox::graphql
