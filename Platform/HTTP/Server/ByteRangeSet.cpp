#include "Platform/HTTP/Server/ByteRangeSet.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>

#include "Platform/HTTP/Server/RequestHead.h"

namespace ferrox {

namespace {

constexpr std::size_t maxRanges = 64;

std::string_view withoutBlanks(std::string_view text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t'; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  return text;
}

/// A number beyond 64 bits counts as the largest one: it lies beyond the end of anything.
std::optional<std::uint64_t> number(std::string_view digits) {
  std::uint64_t value = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (digits.empty() || end != digits.data() + digits.size()) return std::nullopt;
  return failure == std::errc::result_out_of_range ? std::numeric_limits<std::uint64_t>::max() : value;
}

/// Nothing for a malformed range; a length of 0 for one that cannot be satisfied.
std::optional<ByteRange> rangeOf(std::string_view spec, std::uint64_t size) {
  const std::size_t dash = spec.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const std::string_view from = spec.substr(0, dash), to = spec.substr(dash + 1);
  if (from.empty()) {
    const auto suffix = number(to);
    if (!suffix) return std::nullopt;
    const std::uint64_t length = std::min(*suffix, size);
    return ByteRange{size - length, length};
  }
  const auto first = number(from);
  const auto last = to.empty() ? std::numeric_limits<std::uint64_t>::max() : number(to);
  if (!first || !last || *last < *first) return std::nullopt;
  if (*first >= size) return ByteRange{size, 0};
  return ByteRange{*first, std::min(*last, size - 1) - *first + 1};
}

}  // namespace

ByteRangeSet ByteRangeSet::parse(std::string_view header, std::uint64_t size) {
  const std::size_t equals = header.find('=');
  if (equals == std::string_view::npos || !equalsIgnoringAsciiCase(header.substr(0, equals), "bytes"))
    return {};
  ByteRangeSet result;
  std::uint64_t total = 0;
  std::size_t count = 0;
  std::string_view list = header.substr(equals + 1);
  for (bool more = true; more;) {
    const std::size_t comma = list.find(',');
    more = comma != std::string_view::npos;
    const std::string_view spec = withoutBlanks(list.substr(0, comma));
    if (more) list.remove_prefix(comma + 1);
    if (spec.empty()) continue;
    const auto range = rangeOf(spec, size);
    if (!range || ++count > maxRanges) return {};
    if (range->length == 0) continue;
    if (range->length > size - total) return {};
    total += range->length;
    result.ranges.push_back(*range);
  }
  if (count == 0) return {};
  result.kind = result.ranges.empty() ? Kind::Unsatisfiable : Kind::Satisfiable;
  return result;
}

std::string contentRangeText(ByteRange range, std::uint64_t size) {
  return "bytes " + std::to_string(range.first) + "-" + std::to_string(range.first + range.length - 1) + "/" +
         std::to_string(size);
}

}  // namespace ferrox
