// Answers the GraphQL queries that peers send about what this instance offers.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/GraphQL/FRXCapabilitiesQuery.h"
#include "Platform/Base/Export.h"

namespace ferrox {

class GraphQLEngine;

/// Costs next to nothing: all of them share one engine, whose schema is read once in a process.
/// Thread: any
class FRX_EXPORT FRXGraphQLInterpreter {
 public:
  /// Takes the response document (GraphQL October 2021, section 7.1), a JSON text.
  using ResponseCallback = std::function<void(const std::string& response)>;

  FRXGraphQLInterpreter();

  /// Calls `onResponse` once, on the thread that the engine answers on: at present this one, inside this
  /// call. An absent text is answered like an empty one, with an error document.
  void query(const std::optional<std::string>& text, const ResponseCallback& onResponse) const;

  const std::shared_ptr<const GraphQLEngine>& engine() const { return engine_; }

 private:
  std::shared_ptr<const GraphQLEngine> engine_;
};

}  // namespace ferrox
