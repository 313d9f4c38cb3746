// The JSON text that answers a query (GraphQL October 2021, section 7.1).
#pragma once

#include <string>

#include "Platform/GraphQLEngine/Execution.h"

namespace ferrox::graphql {

/// "errors" first, where there are any; no "data" when execution did not begin. Thread: any
std::string responseDocument(ExecutionResult result);

}  // namespace ferrox::graphql
