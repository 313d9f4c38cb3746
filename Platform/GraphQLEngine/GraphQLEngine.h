// Answers GraphQL queries about objects of the host.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Base/FRXValue.h"
#include "Platform/GraphQLEngine/GraphQLLimits.h"
#include "Platform/GraphQLEngine/GraphQLObject.h"

namespace ferrox {

/// Errors of a schema, a query, or its answer.
inline constexpr const char* GraphQLErrorDomain = "com.ferrox.graphql.ErrorDomain";
inline constexpr int GraphQLErrorSchema = 1;   ///< the schema text cannot be used
inline constexpr int GraphQLErrorRequest = 2;  ///< a query was answered with errors

/// Parses, validates and executes query operations of GraphQL October 2021 against one schema of object,
/// scalar, enum and input types. Thread: any
class FRX_EXPORT GraphQLEngine {
 public:
  using ErrorHandler = std::function<void(const FRXError& error)>;
  /// Takes the response document (section 7.1), a JSON text.
  using Callback = std::function<void(const std::string& response)>;

  /// Which of the document's operations is meant (empty: its only one), and its variables by name.
  struct Options {
    std::string operationName;
    FRXDictionary variables;
  };

  /// An engine for a schema in SDL. Without a usable one it is made all the same, and every query is answered
  /// with an error. `andErrorHandler` is told what is wrong with the schema, and the first error of each
  /// answer; it may be empty.
  static std::shared_ptr<const GraphQLEngine> engineWithSchema(std::string_view sdl,
                                                               ErrorHandler andErrorHandler,
                                                               const GraphQLLimits& limits = {});
  virtual ~GraphQLEngine() = default;

  /// Calls `andCallback` once, inside this call. `withRoot` answers the fields of the query type.
  virtual void executeQuery(std::string_view query, const GraphQLObject& withRoot,
                            const Callback& andCallback, const Options& options) const = 0;
  void executeQuery(std::string_view query, const GraphQLObject& withRoot,
                    const Callback& andCallback) const {
    executeQuery(query, withRoot, andCallback, {});
  }
};

}  // namespace ferrox
