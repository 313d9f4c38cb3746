// JSON text (RFC 8259) to FRXValue and back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

/// What a text from the network may ask of the reader. Beyond a limit the text is refused as malformed.
struct JsonLimits {
  std::size_t depth = 32;
  std::size_t bytes = std::size_t{16} << 20;
};

/// Reads one JSON text. Nothing, with `error` filled, for malformed text, for numbers that are not finite,
/// and beyond the limits. An integer that does not fit 64 bits signed becomes a double.
/// Thread: any
[[nodiscard]] FRX_EXPORT std::optional<FRXValue> parseJson(std::string_view text, FRXError* error = nullptr,
                                                           const JsonLimits& limits = {});

/// Errors of reading and writing JSON.
inline constexpr const char* JsonErrorDomain = "com.ferrox.json.ErrorDomain";
/// The text is JSON, but its top level is no object.
inline constexpr int JsonErrorNotAnObject = 5;

/// Takes the members of an object one by one.
class FRX_EXPORT JsonMembers {
 public:
  virtual void onMember(std::string_view key, FRXValue&& value) = 0;

 protected:
  ~JsonMembers() = default;
};

/// Reads one JSON text whose top level is an object and hands over its members in the order of the text, a
/// repeated one each time, without building the object: for records of a known shape. False, with `error`
/// filled, as `parseJson`; what was handed over until then is of no use.
/// Thread: any
[[nodiscard]] FRX_EXPORT bool readJsonObject(std::string_view text, JsonMembers& members,
                                             FRXError* error = nullptr, const JsonLimits& limits = {});

/// Compact JSON text of a value. Nothing when the value holds what JSON cannot carry: a date, a number that
/// is not finite, or text that is not UTF-8; and when it is nested more than 512 levels deep.
/// Thread: any
[[nodiscard]] FRX_EXPORT std::optional<std::string> writeJson(const FRXValue& value);

/// Whether `writeJson` would write it. Thread: any
[[nodiscard]] FRX_EXPORT bool isWritableJson(const FRXDictionary& object);

// For documents of a fixed shape on hot paths. Thread: any

/// Appends `text` as a quoted JSON string. The text must be UTF-8.
FRX_EXPORT void appendJsonString(std::string& out, std::string_view text);
/// Appends decimal digits.
FRX_EXPORT void appendJsonInteger(std::string& out, std::int64_t number);
/// Appends the object. False, with an incomplete text, when `writeJson` would not write it.
[[nodiscard]] FRX_EXPORT bool appendJsonObject(std::string& out, const FRXDictionary& object);

}  // namespace ferrox
