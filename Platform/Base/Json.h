// JSON text (RFC 8259) to FRXValue and back.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

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
[[nodiscard]] std::optional<FRXValue> parseJson(std::string_view text, FRXError* error = nullptr,
                                                const JsonLimits& limits = {});

/// Compact JSON text of a value. Nothing when the value holds what JSON cannot carry: a date, a number that
/// is not finite, or text that is not UTF-8; and when it is nested more than 512 levels deep.
/// Thread: any
[[nodiscard]] std::optional<std::string> writeJson(const FRXValue& value);

/// Appends `text` as a quoted JSON string. The text must be UTF-8; for fixed-shape documents on hot paths.
void appendJsonString(std::string& out, std::string_view text);

}  // namespace ferrox
