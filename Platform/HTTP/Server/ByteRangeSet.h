// The Range header of a request, held against what there is (RFC 9110 section 14).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ferrox {

struct ByteRange {
  std::uint64_t first = 0;
  std::uint64_t length = 0;
  bool operator==(const ByteRange&) const = default;
};

struct ByteRangeSet {
  enum class Kind {
    Ignored,        ///< not ours to understand, or asking for more than the whole: answer 200
    Satisfiable,    ///< at least one of `ranges`
    Unsatisfiable,  ///< answer 416
  };
  Kind kind = Kind::Ignored;
  std::vector<ByteRange> ranges;

  /// Reads the value of a Range header for a representation of `size` bytes. Ranges that start beyond its end
  /// are left out. More than 64 ranges, or ranges that together exceed the whole, are an attack or a mistake
  /// and are ignored (RFC 9110 section 17.15). Thread: any
  static ByteRangeSet parse(std::string_view header, std::uint64_t size);
};

/// For example "bytes 0-99/1234".
std::string contentRangeText(ByteRange range, std::uint64_t size);

}  // namespace ferrox
