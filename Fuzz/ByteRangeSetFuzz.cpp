// Range headers against sizes: what is granted must lie within the whole and never exceed it in sum.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "Platform/HTTP/Server/ByteRangeSet.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using ferrox::ByteRangeSet;
  if (size < 8) return 0;
  std::uint64_t length = 0;
  std::memcpy(&length, data, 8);
  length >>= data[0] % 64;
  const std::string_view header(reinterpret_cast<const char*>(data) + 8, size - 8);
  const ByteRangeSet set = ByteRangeSet::parse(header, length);
  if ((set.kind == ByteRangeSet::Kind::Satisfiable) == set.ranges.empty()) std::abort();
  std::uint64_t total = 0;
  for (const ferrox::ByteRange& range : set.ranges) {
    if (range.length == 0 || range.first >= length || range.length > length - range.first) std::abort();
    if (range.length > length - total) std::abort();
    total += range.length;
  }
  return 0;
}
