// Finds out, when a listener is set, which of the optional operations its class really implements.
#pragma once

#include <type_traits>

namespace ferrox {

/// True when `Concrete` overrides the operation `BaseOperation` (a pointer to member of the listener
/// interface). Write the other side as `&Concrete::operation`: for a class that does not override, that
/// expression still has the interface's type, and the two types are the same. The override has to be public
/// and not overloaded.
template <typename BaseOperation, typename ConcreteOperation>
constexpr bool overridesOperation(BaseOperation, ConcreteOperation) {
  return !std::is_same_v<BaseOperation, ConcreteOperation>;
}

}  // namespace ferrox
