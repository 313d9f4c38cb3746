// A valid query's answer (GraphQL October 2021, section 6).
#pragma once

#include <string>
#include <vector>

#include "Platform/GraphQLEngine/ExecutionPlan.h"
#include "Platform/GraphQLEngine/GraphQLError.h"
#include "Platform/GraphQLEngine/GraphQLLimits.h"
#include "Platform/GraphQLEngine/GraphQLObject.h"
#include "Platform/GraphQLEngine/Schema.h"

namespace ferrox::graphql {

struct ExecutionResult {
  /// The JSON of "data"; empty when `limits` were passed and there is none.
  std::string data;
  std::vector<GraphQLError> errors;
};

/// ExecuteQuery (section 6.2.1): the planned fields of `root`, one after another. A field that fails is null,
/// and so is what may not contain a null. Beyond `limits.steps` and `limits.responseBytes` there is no data.
/// Thread: any
ExecutionResult executeQuery(const Schema& schema, const PlannedSelection& selection,
                             const GraphQLObject& root, const GraphQLLimits& limits);

}  // namespace ferrox::graphql
