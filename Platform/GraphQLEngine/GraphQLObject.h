// How the engine reads the host's objects.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

class GraphQLObject;
class GraphQLValue;
/// The items of a list, in the order of the answer.
using GraphQLList = std::vector<GraphQLValue>;

/// What a field resolves to: null, a leaf, an object, or a list of such.
class FRX_EXPORT GraphQLValue {
 public:
  using Storage = std::variant<std::monostate, bool, std::int64_t, double, std::string, GraphQLList,
                               std::shared_ptr<const GraphQLObject>>;

  GraphQLValue() = default;
  GraphQLValue(bool value) : storage_(value) {}
  GraphQLValue(std::int64_t value) : storage_(value) {}
  GraphQLValue(double value) : storage_(value) {}
  GraphQLValue(std::string value) : storage_(std::move(value)) {}
  GraphQLValue(const char* value) : storage_(std::string(value)) {}
  GraphQLValue(GraphQLList value) : storage_(std::move(value)) {}
  /// An empty pointer is null.
  template <std::derived_from<GraphQLObject> Object>
  GraphQLValue(std::shared_ptr<Object> value) {
    if (value) storage_ = std::shared_ptr<const GraphQLObject>(std::move(value));
  }

  const Storage& storage() const { return storage_; }
  bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }

 private:
  Storage storage_;
};

/// An object whose properties answer the fields of its GraphQL type. The engine may read several of them from
/// several threads.
class FRX_EXPORT GraphQLObject {
 public:
  virtual ~GraphQLObject() = default;
  /// The answer to `__typename`.
  virtual std::string_view typeName() const = 0;
  /// The property of that name, null when there is none. `arguments` are coerced to their declared types,
  /// with defaults filled in; enum values are texts. What it throws becomes an error of the field.
  virtual GraphQLValue property(std::string_view name, const FRXDictionary& arguments) const = 0;
};

}  // namespace ferrox
