#include "Platform/GraphQLEngine/LeafCoercion.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Platform/Base/Json.h"
#include "Platform/Base/Utf8.h"

namespace ferrox::graphql {
namespace {

enum class BuiltIn { Int, Float, String, Boolean, ID, None };

/// The names differ in length, so one comparison does.
BuiltIn builtIn(const NamedType& type) {
  switch (type.name.size()) {
    case 2:
      return type.name == "ID" ? BuiltIn::ID : BuiltIn::None;
    case 3:
      return type.name == "Int" ? BuiltIn::Int : BuiltIn::None;
    case 5:
      return type.name == "Float" ? BuiltIn::Float : BuiltIn::None;
    case 6:
      return type.name == "String" ? BuiltIn::String : BuiltIn::None;
    case 7:
      return type.name == "Boolean" ? BuiltIn::Boolean : BuiltIn::None;
    default:
      return BuiltIn::None;
  }
}

template <typename Number>
std::optional<Number> numberFrom(std::string_view text) {
  Number number{};
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// Int holds 32 bits, whatever carries it (section 3.5.1).
bool fitsInt(std::int64_t number) {
  return number >= std::numeric_limits<std::int32_t>::min() &&
         number <= std::numeric_limits<std::int32_t>::max();
}

std::optional<std::int64_t> wholeNumber(double number) {
  constexpr double limit = 9007199254740992.0;  // beyond it doubles no longer tell neighbours apart
  if (!(std::abs(number) <= limit) || std::trunc(number) != number) return std::nullopt;
  return static_cast<std::int64_t>(number);
}

std::optional<FRXValue> intValue(std::optional<std::int64_t> number) {
  if (!number || !fitsInt(*number)) return std::nullopt;
  return *number;
}

/// What a literal means where no type tells; nothing for a variable without a value.
std::optional<FRXValue> untyped(const Value& literal, const Variables& variables) {
  switch (literal.kind) {
    case Value::Kind::Int:
      if (const auto number = numberFrom<std::int64_t>(literal.text)) return *number;
      [[fallthrough]];
    case Value::Kind::Float:
      if (const auto number = numberFrom<double>(literal.text)) return *number;
      return FRXValue();
    case Value::Kind::String:
    case Value::Kind::Enum:
      return literal.text;
    case Value::Kind::Boolean:
      return literal.text == "true";
    case Value::Kind::List: {
      FRXArray array;
      for (const Value& item : literal.items) {
        array.push_back(untyped(item, variables).value_or(FRXValue()));
      }
      return array;
    }
    case Value::Kind::Object: {
      FRXDictionary object;
      for (const ObjectField& field : literal.fields) {
        auto value = untyped(field.value, variables);
        if (value) object.insert_or_assign(std::string(field.name), std::move(*value));
      }
      return object;
    }
    case Value::Kind::Null:
      return FRXValue();
    case Value::Kind::Variable:
      break;
  }
  const auto variable = variables.find(literal.text);
  return variable == variables.end() ? std::nullopt : std::optional(variable->second);
}

std::optional<FRXValue> enumLiteral(const Value& literal, const NamedType& type) {
  if (literal.kind != Value::Kind::Enum || type.enumValue(literal.text) == nullptr) return std::nullopt;
  return literal.text;
}

void appendDouble(std::string& json, double number) {
  // Cannot fail: the number is finite.
  if (const auto text = writeJson(number)) json += *text;
}

/// Writes one resolved leaf as one scalar type. Conversions that lose nothing are made.
class ScalarWriter {
 public:
  ScalarWriter(std::string& json, BuiltIn type) : json_(json), type_(type) {}

  bool operator()(std::monostate) const { return false; }
  bool operator()(bool value) const {
    switch (type_) {
      case BuiltIn::Int:
      case BuiltIn::Float:
        json_ += value ? '1' : '0';
        return true;
      case BuiltIn::String:
        json_ += value ? R"("true")" : R"("false")";
        return true;
      case BuiltIn::Boolean:
      case BuiltIn::None:
        json_ += value ? "true" : "false";
        return true;
      case BuiltIn::ID:
        return false;
    }
    return false;
  }
  bool operator()(std::int64_t value) const {
    switch (type_) {
      case BuiltIn::Int:
        if (!fitsInt(value)) return false;
        [[fallthrough]];
      case BuiltIn::Float:
      case BuiltIn::None:
        appendJsonInteger(json_, value);
        return true;
      case BuiltIn::String:
      case BuiltIn::ID:
        appendJsonString(json_, std::to_string(value));
        return true;
      case BuiltIn::Boolean:
        return (*this)(value != 0);
    }
    return false;
  }
  bool operator()(double value) const {
    if (!std::isfinite(value)) return false;
    if (const auto whole = wholeNumber(value)) return (*this)(*whole);
    switch (type_) {
      case BuiltIn::Int:
      case BuiltIn::ID:
        return false;
      case BuiltIn::Float:
      case BuiltIn::None:
        appendDouble(json_, value);
        return true;
      case BuiltIn::String:
        json_ += '"';
        appendDouble(json_, value);
        json_ += '"';
        return true;
      case BuiltIn::Boolean:
        json_ += "true";
        return true;
    }
    return false;
  }
  bool operator()(const std::string& value) const {
    switch (type_) {
      case BuiltIn::Int:
      case BuiltIn::Float:
        if (const auto number = numberFrom<double>(value)) return (*this)(*number);
        return false;
      case BuiltIn::Boolean:
        return false;
      case BuiltIn::String:
      case BuiltIn::ID:
      case BuiltIn::None:
        if (!isUtf8(value)) return false;
        appendJsonString(json_, value);
        return true;
    }
    return false;
  }
  bool operator()(const GraphQLList& list) const {
    if (type_ != BuiltIn::None) return false;
    json_ += '[';
    for (std::size_t i = 0; i < list.size(); ++i) {
      if (i > 0) json_ += ',';
      if (list[i].isNull()) {
        json_ += "null";
      } else if (!std::visit(*this, list[i].storage())) {
        return false;
      }
    }
    json_ += ']';
    return true;
  }
  bool operator()(const std::shared_ptr<const GraphQLObject>&) const { return false; }

 private:
  std::string& json_;
  BuiltIn type_;
};

}  // namespace

std::optional<FRXValue> coerceLeafLiteral(const Value& literal, const NamedType& type,
                                          const Variables& variables) {
  using Kind = Value::Kind;
  if (type.kind == NamedType::Kind::Enum) return enumLiteral(literal, type);
  switch (builtIn(type)) {
    case BuiltIn::Int:
      if (literal.kind != Kind::Int) return std::nullopt;
      return intValue(numberFrom<std::int64_t>(literal.text));
    case BuiltIn::Float:
      if (literal.kind != Kind::Int && literal.kind != Kind::Float) return std::nullopt;
      if (const auto number = numberFrom<double>(literal.text)) return *number;
      return std::nullopt;
    case BuiltIn::String:
      if (literal.kind != Kind::String) return std::nullopt;
      return literal.text;
    case BuiltIn::Boolean:
      if (literal.kind != Kind::Boolean) return std::nullopt;
      return literal.text == "true";
    case BuiltIn::ID:
      if (literal.kind != Kind::String && literal.kind != Kind::Int) return std::nullopt;
      return literal.text;
    case BuiltIn::None:
      return untyped(literal, variables);
  }
  return std::nullopt;
}

std::optional<FRXValue> coerceLeafInput(const FRXValue& input, const NamedType& type) {
  const std::string* const text = input.asText();
  if (type.kind == NamedType::Kind::Enum) {
    if (text == nullptr || type.enumValue(*text) == nullptr) return std::nullopt;
    return *text;
  }
  const std::int64_t* const integer = input.asInteger();
  const double* const number = input.asDouble();
  // JSON does not tell 1 from 1.0.
  const auto whole = integer != nullptr  ? std::optional(*integer)
                     : number != nullptr ? wholeNumber(*number)
                                         : std::nullopt;
  switch (builtIn(type)) {
    case BuiltIn::Int:
      return intValue(whole);
    case BuiltIn::Float:
      if (integer != nullptr) return static_cast<double>(*integer);
      if (number != nullptr && std::isfinite(*number)) return *number;
      return std::nullopt;
    case BuiltIn::String:
      if (text == nullptr) return std::nullopt;
      return *text;
    case BuiltIn::Boolean:
      if (input.asBool() == nullptr) return std::nullopt;
      return *input.asBool();
    case BuiltIn::ID:
      if (text != nullptr) return *text;
      if (whole) return std::to_string(*whole);
      return std::nullopt;
    case BuiltIn::None:
      return input;
  }
  return std::nullopt;
}

bool appendLeafResult(std::string& json, const GraphQLValue& result, const NamedType& type) {
  const std::size_t begin = json.size();
  if (type.kind == NamedType::Kind::Enum) {
    const auto* const name = std::get_if<std::string>(&result.storage());
    if (name == nullptr || type.enumValue(*name) == nullptr) return false;
    appendJsonString(json, *name);
    return true;
  }
  if (std::visit(ScalarWriter(json, builtIn(type)), result.storage())) return true;
  json.resize(begin);
  return false;
}

}  // namespace ferrox::graphql
