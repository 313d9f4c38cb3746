#include "Platform/Base/Json.h"

#include <algorithm>
#include <array>
#include <boost/json/basic_parser_impl.hpp>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <exception>
#include <iterator>
#include <limits>
#include <memory_resource>
#include <utility>
#include <vector>

#include "Platform/Base/ShortEscape.h"
#include "Platform/Base/Utf8.h"

namespace ferrox {
namespace {

namespace json = boost::json;

/// Builds values straight from the parser's events, without a tree of the parser's own in between.
class Builder {
 public:
  // NOLINTBEGIN(readability-identifier-naming): the parser asks for these names.
  static constexpr std::size_t max_object_size = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t max_array_size = max_object_size;
  static constexpr std::size_t max_key_size = max_object_size;
  static constexpr std::size_t max_string_size = max_object_size;
  // NOLINTEND(readability-identifier-naming)

  /// With `members`, the top level has to be an object, and its members go there.
  Builder(std::pmr::memory_resource& memory, JsonMembers* members)
      : memory_(memory), members_(members), keys_(&memory), values_(&memory) {
    keys_.reserve(expectedNesting);
    values_.reserve(expectedNesting);
  }

  FRXValue takeResult() { return std::move(values_.front()); }
  bool sawInfinity() const { return sawInfinity_; }
  bool sawNoObject() const { return sawNoObject_; }

  bool on_document_begin(json::error_code&) { return true; }
  bool on_document_end(json::error_code&) { return true; }

  bool on_object_begin(json::error_code&) {
    ++depth_;
    return true;
  }
  bool on_object_end(std::size_t count, json::error_code& failure) {
    --depth_;
    if (members_ != nullptr && depth_ == 0) return true;
    FRXDictionary object;
    for (std::size_t i = 0; i < count; ++i) {
      // In the order of the text: the last of a repeated member stays.
      object.insert_or_assign(std::string(keys_[keys_.size() - count + i]),
                              std::move(values_[values_.size() - count + i]));
    }
    keys_.resize(keys_.size() - count);
    values_.resize(values_.size() - count);
    return add(std::move(object), failure);
  }
  bool on_array_begin(json::error_code& failure) {
    if (members_ != nullptr && depth_ == 0) return refuseNoObject(failure);
    ++depth_;
    return true;
  }
  bool on_array_end(std::size_t count, json::error_code& failure) {
    --depth_;
    const auto first = values_.end() - static_cast<std::ptrdiff_t>(count);
    FRXArray array(std::make_move_iterator(first), std::make_move_iterator(values_.end()));
    values_.erase(first, values_.end());
    return add(std::move(array), failure);
  }

  bool on_key_part(json::string_view part, std::size_t, json::error_code&) {
    pending_.append(part.data(), part.size());
    return true;
  }
  bool on_key(json::string_view rest, std::size_t, json::error_code&) {
    const std::size_t size = pending_.size() + rest.size();
    auto* const bytes = static_cast<char*>(memory_.allocate(size + 1, 1));
    pending_.copy(bytes, pending_.size());
    rest.copy(bytes + pending_.size(), rest.size());
    keys_.emplace_back(bytes, size);
    pending_.clear();
    return true;
  }
  bool on_string_part(json::string_view part, std::size_t, json::error_code&) {
    pending_.append(part.data(), part.size());
    return true;
  }
  bool on_string(json::string_view rest, std::size_t, json::error_code& failure) {
    if (pending_.empty()) return add(std::string_view(rest.data(), rest.size()), failure);
    pending_.append(rest.data(), rest.size());
    return add(std::exchange(pending_, {}), failure);
  }

  bool on_number_part(json::string_view part, json::error_code&) {
    pending_.append(part.data(), part.size());
    return true;
  }
  bool on_int64(std::int64_t number, json::string_view, json::error_code& failure) {
    pending_.clear();
    return add(number, failure);
  }
  bool on_uint64(std::uint64_t number, json::string_view, json::error_code& failure) {
    pending_.clear();
    return add(number, failure);
  }
  bool on_double(double approximate, json::string_view rest, json::error_code& failure) {
    pending_.append(rest.data(), rest.size());
    // The parser's own conversion may miss the nearest double by one place: what was written would not read
    // back the same. It only decides what is too small to be told from 0.
    double number = approximate;
    (void)std::from_chars(pending_.data(), pending_.data() + pending_.size(), number);
    pending_.clear();
    sawInfinity_ = !std::isfinite(number);
    if (sawInfinity_) failure = json::error::exponent_overflow;
    return !sawInfinity_ && add(number, failure);
  }

  bool on_bool(bool value, json::error_code& failure) { return add(value, failure); }
  bool on_null(json::error_code& failure) { return add(FRXValue(), failure); }
  bool on_comment_part(json::string_view, json::error_code&) { return true; }
  bool on_comment(json::string_view, json::error_code&) { return true; }

 private:
  static constexpr std::size_t expectedNesting = 24;

  bool refuseNoObject(json::error_code& failure) {
    sawNoObject_ = true;
    failure = json::error::not_object;
    return false;
  }
  bool add(FRXValue value, json::error_code& failure) {
    if (members_ == nullptr || depth_ > 1) {
      values_.push_back(std::move(value));
    } else if (depth_ == 0) {
      return refuseNoObject(failure);
    } else {
      members_->onMember(keys_.back(), std::move(value));
      keys_.pop_back();
    }
    return true;
  }

  std::pmr::memory_resource& memory_;
  JsonMembers* const members_;
  std::size_t depth_ = 0;
  std::string pending_;  // of a text or number that arrives in parts
  // Of the objects and arrays that are still open, innermost last.
  std::pmr::vector<std::string_view> keys_;
  std::pmr::vector<FRXValue> values_;
  bool sawInfinity_ = false;
  bool sawNoObject_ = false;
};

FRXError failureOf(const Builder& builder, const json::error_code& failure) {
  if (builder.sawInfinity()) return {JsonErrorDomain, 3, "The text holds a number that is not finite."};
  if (builder.sawNoObject()) {
    return {JsonErrorDomain, JsonErrorNotAnObject, "The top level of the JSON text is no object."};
  }
  return {JsonErrorDomain, 1, "The text is not usable JSON: " + failure.message() + "."};
}

/// The value, which is null when the members were handed over.
std::optional<FRXValue> parseChecked(std::string_view text, JsonMembers* members, FRXError* error,
                                     const JsonLimits& limits) {
  if (text.size() > limits.bytes) {
    setError(error,
             {JsonErrorDomain, 2, "The text is longer than " + std::to_string(limits.bytes) + " bytes."});
    return std::nullopt;
  }
  std::array<std::byte, 4096> buffer;
  std::pmr::monotonic_buffer_resource memory(buffer.data(), buffer.size());
  json::parse_options options;
  options.max_depth = limits.depth;
  json::basic_parser<Builder> parser(options, memory, members);
  json::error_code failure;
  const std::size_t read = parser.write_some(false, text.data(), text.size(), failure);
  if (!failure && read < text.size()) failure = json::error::extra_data;
  if (failure) {
    setError(error, failureOf(parser.handler(), failure));
    return std::nullopt;
  }
  return members != nullptr ? FRXValue() : parser.handler().takeResult();
}

std::optional<FRXValue> parseCatching(std::string_view text, JsonMembers* members, FRXError* error,
                                      const JsonLimits& limits) {
  try {
    return parseChecked(text, members, error, limits);
  } catch (const std::exception& exception) {
    setError(error,
             {JsonErrorDomain, 4, std::string("The text could not be read: ") + exception.what() + "."});
    return std::nullopt;
  }
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
    appendJsonInteger(out, *integer);
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

bool isWritableObject(const FRXDictionary& object, unsigned depth);

/// What `append` answers, without the text.
bool isWritable(const FRXValue& value, unsigned depth) {
  if (value.asDate() != nullptr) return false;
  if (const double* number = value.asDouble()) return std::isfinite(*number);
  if (const std::string* text = value.asText()) return isUtf8(*text);
  if (const FRXDictionary* object = value.asObject()) {
    return depth < maximumDepth && isWritableObject(*object, depth + 1);
  }
  const FRXArray* array = value.asArray();
  return array == nullptr ||
         (depth < maximumDepth && std::all_of(array->begin(), array->end(), [&](const FRXValue& item) {
            return isWritable(item, depth + 1);
          }));
}

bool isWritableObject(const FRXDictionary& object, unsigned depth) {
  return std::all_of(object.begin(), object.end(), [&](const auto& member) {
    return isUtf8(member.first) && isWritable(member.second, depth);
  });
}

/// Whether none of eight bytes needs an escape.
bool isPlain(const char* bytes) {
  constexpr std::uint64_t each = 0x0101010101010101U;
  constexpr std::uint64_t highBits = each * 0x80;
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof(word));
  const auto hasZero = [](std::uint64_t w) { return (w - each) & ~w & highBits; };
  const std::uint64_t controls = (word - each * 0x20) & ~word & highBits;
  return (controls | hasZero(word ^ each * '"') | hasZero(word ^ each * '\\')) == 0;
}

bool isPlain(char c) { return static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\'; }

constexpr std::size_t longestEscape = 6;

/// Where the next character goes.
char* writeEscape(char* out, char c) {
  constexpr std::string_view hexDigits = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(c);
  if (c == '"' || c == '\\') {
    *out++ = '\\';
    *out++ = c;
    return out;
  }
  if (const std::string_view known = shortEscape(value); !known.empty()) {
    return std::copy(known.begin(), known.end(), out);
  }
  const std::string_view zeros = "\\u00";
  out = std::copy(zeros.begin(), zeros.end(), out);
  *out++ = hexDigits[value >> 4U];
  *out++ = hexDigits[value & 15U];
  return out;
}

/// The same for a whole piece of text.
char* writeEscaped(char* out, std::string_view piece) {
  std::size_t i = 0;
  while (i < piece.size()) {
    if (piece.size() - i >= sizeof(std::uint64_t) && isPlain(piece.data() + i)) {
      std::memcpy(out, piece.data() + i, sizeof(std::uint64_t));
      out += sizeof(std::uint64_t);
      i += sizeof(std::uint64_t);
      continue;
    }
    // One of the next eight is not, or the end is near.
    bool wasPlain = true;
    while (wasPlain && i < piece.size()) {
      const char c = piece[i++];
      wasPlain = isPlain(c);
      if (wasPlain) {
        *out++ = c;
      } else {
        out = writeEscape(out, c);
      }
    }
  }
  return out;
}

}  // namespace

std::optional<FRXValue> parseJson(std::string_view text, FRXError* error, const JsonLimits& limits) {
  return parseCatching(text, nullptr, error, limits);
}

bool readJsonObject(std::string_view text, JsonMembers& members, FRXError* error, const JsonLimits& limits) {
  return parseCatching(text, &members, error, limits).has_value();
}

std::optional<std::string> writeJson(const FRXValue& value) {
  std::string out;
  if (!append(out, value, 0)) return std::nullopt;
  return out;
}

bool isWritableJson(const FRXDictionary& object) { return isWritableObject(object, 1); }

bool appendJsonObject(std::string& out, const FRXDictionary& object) { return appendObject(out, object, 1); }

void appendJsonInteger(std::string& out, std::int64_t number) {
  std::array<char, 20> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  out.append(digits.data(), end);
}

void appendJsonString(std::string& out, std::string_view text) {
  // Long texts are mostly free of escapes and taken over as they are; one JSON text within another has an
  // escape every few bytes, and is put together in pieces.
  constexpr std::size_t pieceSize = 256;
  std::array<char, pieceSize * longestEscape> piece;
  out += '"';
  while (!text.empty()) {
    std::size_t plain = 0;
    while (text.size() - plain >= sizeof(std::uint64_t) && isPlain(text.data() + plain)) {
      plain += sizeof(std::uint64_t);
    }
    if (plain >= pieceSize) {
      out.append(text, 0, plain);
      text.remove_prefix(plain);
      continue;
    }
    const std::string_view next = text.substr(0, pieceSize);
    out.append(piece.data(), writeEscaped(piece.data(), next));
    text.remove_prefix(next.size());
  }
  out += '"';
}

}  // namespace ferrox
