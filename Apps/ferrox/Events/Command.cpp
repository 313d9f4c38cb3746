#include "Apps/ferrox/Events/Command.h"

#include <fmt/format.h>

#include <utility>

#include "Apps/ferrox/Node/Observation.h"

namespace ferrox::command {

std::string CommandMembers::text(std::string_view key) {
  const FRXValue* value = members_.member(key);
  if (value != nullptr && value->asText() != nullptr) return *value->asText();
  refuse(key, "must be a text");
  return {};
}

std::string CommandMembers::name(std::string_view key) {
  std::string text = this->text(key);
  if (problem_.empty() && isBlank(text)) refuse(key, "must not be blank");
  return text;
}

std::optional<std::string> CommandMembers::optionalName(std::string_view key) {
  if (optional(key) == nullptr) return std::nullopt;
  return name(key);
}

FRXDictionary CommandMembers::optionalObject(std::string_view key) {
  const FRXValue* value = optional(key);
  if (value == nullptr) return {};
  if (const FRXDictionary* object = value->asObject()) return *object;
  refuse(key, "must be an object");
  return {};
}

bool CommandMembers::optionalFlag(std::string_view key) {
  const FRXValue* value = optional(key);
  if (value == nullptr) return false;
  if (const bool* flag = value->asBool()) return *flag;
  refuse(key, "must be true or false");
  return false;
}

std::uint16_t CommandMembers::optionalPort(std::string_view key) {
  const FRXValue* value = optional(key);
  if (value == nullptr) return 0;
  const std::int64_t* number = value->asInteger();
  if (number != nullptr && std::in_range<std::uint16_t>(*number)) return static_cast<std::uint16_t>(*number);
  refuse(key, "must be a port number, 0 to 65535");
  return 0;
}

std::optional<std::int64_t> CommandMembers::optionalInteger(std::string_view key) {
  const FRXValue* value = optional(key);
  if (value == nullptr) return std::nullopt;
  if (const std::int64_t* number = value->asInteger()) return *number;
  refuse(key, "must be a whole number");
  return std::nullopt;
}

std::optional<double> CommandMembers::optionalNumber(std::string_view key) {
  const FRXValue* value = optional(key);
  if (value == nullptr) return std::nullopt;
  if (const std::int64_t* number = value->asInteger()) return static_cast<double>(*number);
  if (const double* number = value->asDouble()) return *number;
  refuse(key, "must be a number");
  return std::nullopt;
}

const FRXValue* CommandMembers::optional(std::string_view key) const {
  const FRXValue* value = members_.member(key);
  return value == nullptr || value->isNull() ? nullptr : value;
}

void CommandMembers::refuse(std::string_view key, std::string_view expectation) {
  if (problem_.empty()) problem_ = fmt::format("\"{}\" {}", key, expectation);
}

}  // namespace ferrox::command
