// Answers the GraphQL queries that peers send.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace ferrox {

/// Knows no schema yet: every query is answered with an error document (GraphQL October 2021, section 7.1).
/// Thread: any
class FRXGraphQLInterpreter {
 public:
  /// Takes the response document, a JSON text.
  using ResponseCallback = std::function<void(const std::string& response)>;

  /// Calls `onResponse` once, possibly inside this call.
  void query(const std::optional<std::string>& text, const ResponseCallback& onResponse) const;
};

}  // namespace ferrox
