#include "Apps/ferrox/Terminal/TerminalText.h"

#include <fmt/format.h>

#include <array>
#include <cstdint>

namespace ferrox::command {
namespace {

struct CodePoint {
  char32_t value = 0;
  std::size_t length = 1;
  bool valid = false;
};

// One code point from the front of the text (RFC 3629): overlong forms and surrogates are invalid.
CodePoint firstCodePoint(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1, true};
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {lead, 1, false};
  char32_t value = lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {lead, 1, false};
    value = (value << 6) | (byte(i) & 0x3FU);
  }
  constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
  if (value < smallest[length] || value > 0x10FFFF || surrogate) return {lead, 1, false};
  return {value, length, true};
}

bool isUnsafe(char32_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0xAD || c == 0x61C || (c >= 0x200B && c <= 0x200F) ||
         (c >= 0x2028 && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F) || c == 0xFEFF ||
         (c >= 0xE0000 && c <= 0xE007F);
}

bool isCombining(char32_t c) {
  return (c >= 0x300 && c <= 0x36F) || (c >= 0x483 && c <= 0x489) || (c >= 0x591 && c <= 0x5BD) ||
         (c >= 0x64B && c <= 0x65F) || (c >= 0x1AB0 && c <= 0x1AFF) || (c >= 0x1DC0 && c <= 0x1DFF) ||
         (c >= 0x20D0 && c <= 0x20FF) || (c >= 0xFE00 && c <= 0xFE0F) || (c >= 0xFE20 && c <= 0xFE2F);
}

bool isWide(char32_t c) {
  return (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0x303E) || (c >= 0x3041 && c <= 0xA4CF) ||
         (c >= 0xA960 && c <= 0xA97F) || (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) ||
         (c >= 0xFE30 && c <= 0xFE6F) || (c >= 0xFF00 && c <= 0xFF60) || (c >= 0xFFE0 && c <= 0xFFE6) ||
         (c >= 0x1F300 && c <= 0x1F64F) || (c >= 0x1F900 && c <= 0x1F9FF) || (c >= 0x20000 && c <= 0x3FFFD);
}

std::size_t widthOf(const CodePoint& c) {
  if (!c.valid) return 1;
  return isCombining(c.value) ? 0 : isWide(c.value) ? 2 : 1;
}

}  // namespace

std::string escapedForTerminal(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const CodePoint c = firstCodePoint(text);
    if (!c.valid || (c.value < 0x80 && isUnsafe(c.value))) {
      out += fmt::format("\\x{:02x}", static_cast<unsigned char>(text[0]));
    } else if (isUnsafe(c.value)) {
      out += fmt::format("\\u{:04x}", static_cast<std::uint32_t>(c.value));
    } else {
      out += text.substr(0, c.length);
    }
    text.remove_prefix(c.length);
  }
  return out;
}

std::size_t displayWidth(std::string_view escaped) {
  std::size_t columns = 0;
  while (!escaped.empty()) {
    const CodePoint c = firstCodePoint(escaped);
    columns += widthOf(c);
    escaped.remove_prefix(c.length);
  }
  return columns;
}

std::string shortened(std::string_view escaped, std::size_t columns) {
  if (displayWidth(escaped) <= columns) return std::string(escaped);
  if (columns == 0) return {};
  std::string out;
  std::size_t used = 0;
  while (!escaped.empty()) {
    const CodePoint c = firstCodePoint(escaped);
    // One column stays free for the ellipsis.
    if (used + widthOf(c) > columns - 1) break;
    used += widthOf(c);
    out += escaped.substr(0, c.length);
    escaped.remove_prefix(c.length);
  }
  return out + "…";
}

std::string shortenedInside(std::string_view escaped, std::size_t columns) {
  constexpr std::size_t leastColumns = 8;
  if (columns < leastColumns || displayWidth(escaped) <= columns) return shortened(escaped, columns);
  const std::size_t kept = columns / 3;
  std::string_view end = escaped;
  // Marks that combine with what is left out would stand on the ellipsis.
  while (displayWidth(end) > kept || (!end.empty() && widthOf(firstCodePoint(end)) == 0)) {
    end.remove_prefix(firstCodePoint(end).length);
  }
  return shortened(escaped, columns - displayWidth(end)) + std::string(end);
}

std::string fitted(std::string_view escaped, std::size_t columns, Align align) {
  std::string text = shortened(escaped, columns);
  const std::string blanks(columns - displayWidth(text), ' ');
  return align == Align::Left ? text + blanks : blanks + text;
}

}  // namespace ferrox::command
