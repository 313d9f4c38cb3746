#include "Platform/Base/Json.h"

#include <array>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parse.hpp>
#include <charconv>
#include <cmath>
#include <exception>

#include "Platform/Base/Utf8.h"

namespace ferrox {
namespace {

namespace json = boost::json;

constexpr const char* domain = "com.ferrox.json.ErrorDomain";

std::optional<FRXValue> converted(const json::value& value);

std::optional<FRXValue> convertedArray(const json::array& array) {
  FRXArray result;
  result.reserve(array.size());
  for (const json::value& element : array) {
    std::optional<FRXValue> item = converted(element);
    if (!item) return std::nullopt;
    result.push_back(std::move(*item));
  }
  return result;
}

std::optional<FRXValue> convertedObject(const json::object& object) {
  FRXDictionary result;
  for (const json::key_value_pair& member : object) {
    std::optional<FRXValue> item = converted(member.value());
    if (!item) return std::nullopt;
    result.insert_or_assign(std::string(member.key()), std::move(*item));
  }
  return result;
}

/// Nothing when a number is not finite: the parser reads 1e400 as infinity.
std::optional<FRXValue> converted(const json::value& value) {
  switch (value.kind()) {
    case json::kind::null:
      return FRXValue();
    case json::kind::bool_:
      return FRXValue(value.get_bool());
    case json::kind::int64:
      return FRXValue(value.get_int64());
    case json::kind::uint64:
      return FRXValue(value.get_uint64());
    case json::kind::double_:
      if (!std::isfinite(value.get_double())) return std::nullopt;
      return FRXValue(value.get_double());
    case json::kind::string:
      return FRXValue(std::string_view(value.get_string()));
    case json::kind::array:
      return convertedArray(value.get_array());
    case json::kind::object:
      return convertedObject(value.get_object());
  }
  return std::nullopt;
}

std::optional<FRXValue> parseChecked(std::string_view text, FRXError* error, const JsonLimits& limits) {
  if (text.size() > limits.bytes) {
    setError(error, {domain, 2, "The text is longer than " + std::to_string(limits.bytes) + " bytes."});
    return std::nullopt;
  }
  std::array<unsigned char, 8192> buffer;
  json::monotonic_resource memory(buffer.data(), buffer.size());
  json::parse_options options;
  options.max_depth = limits.depth;
  json::error_code failure;
  const json::value value = json::parse(text, failure, &memory, options);
  if (failure) {
    setError(error, {domain, 1, "The text is not usable JSON: " + failure.message() + "."});
    return std::nullopt;
  }
  std::optional<FRXValue> result = converted(value);
  if (!result) setError(error, {domain, 3, "The text holds a number that is not finite."});
  return result;
}

/// The shortest digits that read back as the same double, and always recognisable as one.
void appendDouble(std::string& out, double number) {
  std::array<char, 32> digits;
  const auto [end, failure] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
  (void)failure;
  const std::string_view text(digits.data(), static_cast<std::size_t>(end - digits.data()));
  out += text;
  if (text.find_first_of(".e") == std::string_view::npos) out += ".0";
}

// A value deeper than this is refused: the writer calls itself for every level.
constexpr unsigned maximumDepth = 512;

bool append(std::string& out, const FRXValue& value, unsigned depth);

bool appendText(std::string& out, std::string_view text) {
  if (!isUtf8(text)) return false;
  appendJsonString(out, text);
  return true;
}

bool appendArray(std::string& out, const FRXArray& array, unsigned depth) {
  out += '[';
  bool first = true;
  for (const FRXValue& item : array) {
    if (!first) out += ',';
    first = false;
    if (!append(out, item, depth)) return false;
  }
  out += ']';
  return true;
}

bool appendObject(std::string& out, const FRXDictionary& object, unsigned depth) {
  out += '{';
  bool first = true;
  for (const auto& [key, item] : object) {
    if (!first) out += ',';
    first = false;
    if (!appendText(out, key)) return false;
    out += ':';
    if (!append(out, item, depth)) return false;
  }
  out += '}';
  return true;
}

bool append(std::string& out, const FRXValue& value, unsigned depth) {
  if (value.isNull()) {
    out += "null";
  } else if (const bool* boolean = value.asBool()) {
    out += *boolean ? "true" : "false";
  } else if (const std::int64_t* integer = value.asInteger()) {
    out += std::to_string(*integer);
  } else if (const double* number = value.asDouble()) {
    if (!std::isfinite(*number)) return false;
    appendDouble(out, *number);
  } else if (const std::string* text = value.asText()) {
    return appendText(out, *text);
  } else if (const FRXArray* array = value.asArray()) {
    return depth < maximumDepth && appendArray(out, *array, depth + 1);
  } else if (const FRXDictionary* object = value.asObject()) {
    return depth < maximumDepth && appendObject(out, *object, depth + 1);
  } else {
    return false;  // a date
  }
  return true;
}

void appendEscape(std::string& out, char c) {
  constexpr std::string_view hexDigits = "0123456789abcdef";
  switch (c) {
    case '"':
      out += "\\\"";
      break;
    case '\\':
      out += "\\\\";
      break;
    case '\n':
      out += "\\n";
      break;
    case '\r':
      out += "\\r";
      break;
    case '\t':
      out += "\\t";
      break;
    default:
      out += "\\u00";
      out += hexDigits[static_cast<unsigned char>(c) >> 4U];
      out += hexDigits[static_cast<unsigned char>(c) & 15U];
  }
}

}  // namespace

std::optional<FRXValue> parseJson(std::string_view text, FRXError* error, const JsonLimits& limits) {
  try {
    return parseChecked(text, error, limits);
  } catch (const std::exception& exception) {
    setError(error, {domain, 4, std::string("The text could not be read: ") + exception.what() + "."});
    return std::nullopt;
  }
}

std::optional<std::string> writeJson(const FRXValue& value) {
  std::string out;
  if (!append(out, value, 0)) return std::nullopt;
  return out;
}

void appendJsonString(std::string& out, std::string_view text) {
  // Texts are mostly free of escapes: what lies between two of them is taken over in one piece.
  out += '"';
  std::size_t plainBegin = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\') continue;
    out.append(text, plainBegin, i - plainBegin);
    appendEscape(out, c);
    plainBegin = i + 1;
  }
  out.append(text, plainBegin);
  out += '"';
}

}  // namespace ferrox
