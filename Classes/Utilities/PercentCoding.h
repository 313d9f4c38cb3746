// Percent-encoding (RFC 3986 section 2.1) with the two sets of characters that the system leaves as they are.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"

namespace ferrox {

/// The characters that stay as they are (RFC 3986 sections 2.3 and 3.2.2 to 3.3).
enum class PercentSet {
  Host,  ///< unreserved, sub-delimiters, ":", "[", "]"
  Path,  ///< unreserved, sub-delimiters, ":", "@", "/"
};

/// Bytes outside the set as %XX, upper-case digits. Thread: any
FRX_EXPORT std::string percentEncoded(std::string_view text, PercentSet keep);
/// Nothing for an escape without two hexadecimal digits, and when the result is not UTF-8 (so neither for
/// overlong forms). The result may hold any character, "/" and NUL included. Thread: any
FRX_EXPORT std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace ferrox
