// A JSON-compatible value, plus a point in time, which JSON cannot carry.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/Base/Export.h"

namespace ferrox {

class FRXValue;
/// A JSON array.
using FRXArray = std::vector<FRXValue>;
/// A JSON object. Members come in the order of their names.
using FRXDictionary = std::map<std::string, FRXValue, std::less<>>;
/// A moment. What peers send has milliseconds.
using FRXDate = std::chrono::system_clock::time_point;

/// One value: null, boolean, 64-bit integer, double, text, array, object, or a date.
class FRX_EXPORT FRXValue {
 public:
  using Storage =
      std::variant<std::monostate, bool, std::int64_t, double, std::string, FRXArray, FRXDictionary, FRXDate>;

  FRXValue() = default;
  FRXValue(std::nullptr_t) {}
  FRXValue(bool value) : storage_(value) {}
  /// An integer that does not fit 64 bits signed becomes a double, as in `parseJson`.
  template <typename Integer>
  requires(std::is_integral_v<Integer> && !std::is_same_v<Integer, bool>) FRXValue(Integer value) {
    if (std::in_range<std::int64_t>(value)) {
      storage_ = static_cast<std::int64_t>(value);
    } else {
      storage_ = static_cast<double>(value);
    }
  }
  FRXValue(double value) : storage_(value) {}
  FRXValue(const char* text) : storage_(std::string(text)) {}
  FRXValue(std::string_view text) : storage_(std::string(text)) {}
  FRXValue(std::string text) : storage_(std::move(text)) {}
  FRXValue(FRXArray array) : storage_(std::move(array)) {}
  FRXValue(FRXDictionary object) : storage_(std::move(object)) {}
  FRXValue(FRXDate date) : storage_(date) {}

  bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }

  /// The content if it is of that type, else nullptr. Integers and doubles are not converted into each other.
  const bool* asBool() const { return std::get_if<bool>(&storage_); }
  const std::int64_t* asInteger() const { return std::get_if<std::int64_t>(&storage_); }
  const double* asDouble() const { return std::get_if<double>(&storage_); }
  const std::string* asText() const { return std::get_if<std::string>(&storage_); }
  const FRXArray* asArray() const { return std::get_if<FRXArray>(&storage_); }
  const FRXDictionary* asObject() const { return std::get_if<FRXDictionary>(&storage_); }
  const FRXDate* asDate() const { return std::get_if<FRXDate>(&storage_); }

  /// The member of an object, or nullptr when this is no object or has no such member.
  const FRXValue* member(std::string_view key) const;

  const Storage& storage() const { return storage_; }
  /// To move the content out.
  Storage& storage() { return storage_; }
  bool operator==(const FRXValue&) const = default;

 private:
  Storage storage_;
};

}  // namespace ferrox
