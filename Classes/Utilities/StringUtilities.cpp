#include "Classes/Utilities/StringUtilities.h"

#include <limits>

#include "Platform/Host/Text.h"

namespace ferrox {

bool isNilOrEmpty(const std::optional<std::string>& text) { return !text || text->empty(); }

std::string trim(std::string_view text) { return text::trimmed(text); }

std::int64_t integerValue(std::string_view text) {
  constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  const std::size_t begin = text.find_first_not_of(" \t\n\v\f\r");
  if (begin == std::string_view::npos) return 0;
  text.remove_prefix(begin);
  const bool negative = text.front() == '-';
  if (negative || text.front() == '+') text.remove_prefix(1);

  const std::uint64_t limit = negative ? largest + 1 : largest;
  std::uint64_t magnitude = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (magnitude > (limit - digit) / 10) {
      magnitude = limit;
      break;
    }
    magnitude = magnitude * 10 + digit;
  }
  return static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
}

}  // namespace ferrox
