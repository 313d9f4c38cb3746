// Text from anywhere made safe for a terminal, measured and fitted in columns.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ferrox::command {

/// Replaces everything that could drive a terminal or reorder a line (control characters, direction
/// overrides, line separators, bytes that are not UTF-8) by visible escapes such as \x1b or \u202e.
std::string escapedForTerminal(std::string_view text);

/// Columns that an escaped text takes: wide characters count two, combining ones none.
std::size_t displayWidth(std::string_view escaped);

enum class Align { Left, Right };

/// The escaped text cut (with an ellipsis) or padded with blanks to exactly `columns`.
std::string fitted(std::string_view escaped, std::size_t columns, Align align = Align::Left);

/// The escaped text cut with an ellipsis where it is wider than `columns`.
std::string shortened(std::string_view escaped, std::size_t columns);

/// The same, but the ellipsis stands before the end, which stays: numbers tell machines apart, and ports
/// addresses. Only where there is room for both.
std::string shortenedInside(std::string_view escaped, std::size_t columns);

}  // namespace ferrox::command
