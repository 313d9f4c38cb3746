// What a query may ask of the engine.
#pragma once

#include <cstddef>

namespace ferrox {

/// Beyond any of these a query is answered with an error. The standard introspection query passes all of
/// them.
struct GraphQLLimits {
  std::size_t bytes = std::size_t{16} << 10;  ///< of the query text
  std::size_t tokens = 1000;                  ///< of the query text
  /// Nesting of fields with all fragments followed, of fragments in each other, of values and of types.
  std::size_t depth = 15;
  std::size_t errors = 100;  ///< reported by validation; it ends there
  /// Selections, each counted as often as fragments spread it; visits while validating and while executing.
  std::size_t steps = 100'000;
  std::size_t responseBytes = std::size_t{4} << 20;  ///< of the answer
};

}  // namespace ferrox
