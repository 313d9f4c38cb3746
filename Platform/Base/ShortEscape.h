// How line feed, carriage return and tab are written in JSON (RFC 8259 section 7), in C and in logs alike.
#pragma once

#include <string_view>

namespace ferrox {

/// Empty for every other character. Thread: any
constexpr std::string_view shortEscape(char32_t c) {
  switch (c) {
    case U'\n':
      return "\\n";
    case U'\r':
      return "\\r";
    case U'\t':
      return "\\t";
    default:
      return {};
  }
}

}  // namespace ferrox
