#include "Platform/GraphQLEngine/GraphQLEngine.h"

#include <optional>
#include <utility>
#include <vector>

#include "Platform/GraphQLEngine/Execution.h"
#include "Platform/GraphQLEngine/ExecutionPlan.h"
#include "Platform/GraphQLEngine/InputCoercion.h"
#include "Platform/GraphQLEngine/Parser.h"
#include "Platform/GraphQLEngine/ResponseDocument.h"
#include "Platform/GraphQLEngine/Schema.h"
#include "Platform/GraphQLEngine/Validation.h"

namespace ferrox {
namespace {

using graphql::Document;
using graphql::ExecutionResult;
using graphql::GraphQLError;
using graphql::OperationDefinition;

std::string textOf(const GraphQLError& error) {
  if (error.locations.empty()) return error.message;
  const auto [line, column] = error.locations.front();
  return error.message + " (" + std::to_string(line) + ":" + std::to_string(column) + ")";
}

/// GetOperation (section 6.1); null when the choice is not clear.
const OperationDefinition* operationNamed(const Document& document, const std::string& name) {
  if (name.empty()) return document.operations.size() == 1 ? &document.operations.front() : nullptr;
  for (const OperationDefinition& operation : document.operations) {
    if (operation.name == name) return &operation;
  }
  return nullptr;
}

class SchemaEngine final : public GraphQLEngine {
 public:
  SchemaEngine(std::string_view sdl, ErrorHandler onError, const GraphQLLimits& limits)
      : limits_(limits), onError_(std::move(onError)) {
    GraphQLError error;
    schema_ = graphql::Schema::build(sdl, &error);
    if (!schema_) report(GraphQLErrorSchema, error);
  }

  void executeQuery(std::string_view query, const GraphQLObject& root, const Callback& callback,
                    const Options& options) const override {
    ExecutionResult result = execute(query, root, options);
    if (!result.errors.empty()) report(GraphQLErrorRequest, result.errors.front());
    callback(graphql::responseDocument(std::move(result)));
  }

 private:
  /// ExecuteRequest (section 6.1), with what has to come before it.
  ExecutionResult execute(std::string_view query, const GraphQLObject& root, const Options& options) const {
    if (!schema_) return refusal({"There is no schema to query", {}, {}});
    GraphQLError syntaxError;
    const auto document = graphql::parseQuery(query, limits_, syntaxError);
    if (!document) return refusal(std::move(syntaxError));
    if (auto errors = graphql::validate(*schema_, *document, limits_); !errors.empty()) {
      return {{}, std::move(errors)};
    }
    const OperationDefinition* const operation = operationNamed(*document, options.operationName);
    if (operation == nullptr) {
      return refusal({options.operationName.empty() ? "Which of the operations is meant?"
                                                    : "There is no operation of that name",
                      {},
                      {}});
    }
    auto variables = graphql::coerceVariableValues(*schema_, *operation, options.variables, limits_.errors);
    if (!variables.errors.empty()) return {{}, std::move(variables.errors)};
    if (operation->kind != OperationDefinition::Kind::Query) {
      return {"null", {{"The schema has queries only", {operation->location}, {}}}};
    }
    const auto plan = graphql::ExecutionPlanner(*schema_, *document, variables.values).plan(*operation);
    return graphql::executeQuery(*schema_, plan, root, limits_);
  }

  static ExecutionResult refusal(GraphQLError error) {
    ExecutionResult result;
    result.errors.push_back(std::move(error));
    return result;
  }

  void report(int code, const GraphQLError& error) const {
    if (onError_) onError_({GraphQLErrorDomain, code, textOf(error)});
  }

  const GraphQLLimits limits_;
  const ErrorHandler onError_;
  std::shared_ptr<const graphql::Schema> schema_;
};

}  // namespace

std::shared_ptr<const GraphQLEngine> GraphQLEngine::engineWithSchema(std::string_view sdl,
                                                                     ErrorHandler andErrorHandler,
                                                                     const GraphQLLimits& limits) {
  return std::make_shared<const SchemaEngine>(sdl, std::move(andErrorHandler), limits);
}

}  // namespace ferrox
