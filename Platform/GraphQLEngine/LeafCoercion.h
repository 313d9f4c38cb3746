// Scalars and enums, in and out (GraphQL October 2021, sections 3.5 and 3.9).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/FRXValue.h"
#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/GraphQLObject.h"
#include "Platform/GraphQLEngine/Schema.h"

namespace ferrox::graphql {

/// The variables that have a value, by name.
using Variables = std::map<std::string_view, FRXValue>;

/// A literal of the query as a value of the scalar or enum `type`; nothing when it does not fit. A scalar
/// that the schema declares takes every literal, with the variables in it. Thread: any
std::optional<FRXValue> coerceLeafLiteral(const Value& literal, const NamedType& type,
                                          const Variables& variables = {});

/// A variable's JSON value as a value of the scalar or enum `type`; nothing when it does not fit.
/// Thread: any
std::optional<FRXValue> coerceLeafInput(const FRXValue& input, const NamedType& type);

/// Appends what a resolver gave as the JSON of the scalar or enum `type`; false, with nothing appended, when
/// it does not fit. Thread: any
bool appendLeafResult(std::string& json, const GraphQLValue& result, const NamedType& type);

}  // namespace ferrox::graphql
