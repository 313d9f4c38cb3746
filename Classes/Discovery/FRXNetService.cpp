#include "Classes/Discovery/FRXNetService.h"

#include <cmath>
#include <functional>
#include <utility>

#include "Classes/Utilities/StringUtilities.h"
#include "Platform/Base/Json.h"
#include "Platform/Host/Text.h"

namespace ferrox {
namespace {

std::optional<std::string> upperCased(std::optional<std::string> text) {
  if (text) *text = text::upperCased(*text);
  return text;
}

std::optional<std::string> textMember(const FRXValue& object, std::string_view key) {
  const FRXValue* member = object.member(key);
  const std::string* text = member == nullptr ? nullptr : member->asText();
  if (text == nullptr) return std::nullopt;
  return *text;
}

/// A number or a numeric text; 0 for anything else and for numbers that no 64-bit integer holds.
std::int64_t integerMember(const FRXValue& object, std::string_view key) {
  constexpr double beyondInt64 = 9223372036854775808.0;
  const FRXValue* member = object.member(key);
  if (member == nullptr) return 0;
  if (const auto* integer = member->asInteger()) return *integer;
  if (const auto* text = member->asText()) return integerValue(*text);
  const auto* number = member->asDouble();
  return number != nullptr && std::abs(*number) < beyondInt64 ? static_cast<std::int64_t>(*number) : 0;
}

}  // namespace

FRXNetService::FRXNetService(std::optional<std::string> hostName, std::int64_t port,
                             std::optional<std::string> serviceName)
    : hostName_(upperCased(std::move(hostName))),
      port_(port),
      serviceId_(hostName_.value_or(std::string()) + ":" + std::to_string(port)),
      name_(upperCased(std::move(serviceName))) {}

std::shared_ptr<FRXNetService> FRXNetService::fromJson(std::string_view json, FRXError* error) {
  const auto value = parseJson(json, error);
  if (!value) return nullptr;
  if (value->asObject() == nullptr && value->asArray() == nullptr) {
    setError(error, {"com.ferrox.json.ErrorDomain", 1,
                     "The top level of the JSON text is neither an object nor an array."});
    return nullptr;
  }
  return std::make_shared<FRXNetService>(textMember(*value, "hostName"), integerMember(*value, "port"),
                                         textMember(*value, "name"));
}

std::optional<std::string> FRXNetService::toJson() const {
  // The answer to every "/service" request: written straight into one text, without a tree of values.
  constexpr std::size_t membersAndName = 192;
  if (!hostName_) return std::nullopt;
  std::string json;
  json.reserve(membersAndName + serviceId_.size() + hostName_->size());
  json += R"({"serviceId":)";
  appendJsonString(json, serviceId_);
  json += R"(,"hostName":)";
  appendJsonString(json, *hostName_);
  json += R"(,"port":)";
  json += std::to_string(port_);
  json += R"(,"name":)";
  {
    const std::lock_guard lock(nameMutex_);
    // Host name and id were cleaned on creation; a name set later is kept as given.
    if (!name_ || !text::isValidUtf8(*name_)) return std::nullopt;
    appendJsonString(json, *name_);
  }
  json += '}';
  return json;
}

bool FRXNetService::isEqual(const FRXNetService& other) const {
  return this == &other || (port_ == other.port_ && hostName_ == other.hostName_);
}

std::size_t FRXNetService::hash() const {
  const std::size_t hostHash = hostName_ ? std::hash<std::string>{}(*hostName_) : 0;
  return hostHash ^ std::hash<std::int64_t>{}(port_);
}

std::optional<std::string> FRXNetService::name() const {
  const std::lock_guard lock(nameMutex_);
  return name_;
}

void FRXNetService::setName(std::optional<std::string> name) {
  // Swapped, so that the former text is freed outside the lock.
  const std::lock_guard lock(nameMutex_);
  name_.swap(name);
}

}  // namespace ferrox
