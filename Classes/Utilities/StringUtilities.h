// Small questions about text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"

namespace ferrox {

/// True for an absent and for an empty text; blanks count as content. Thread: any
FRX_EXPORT bool isNilOrEmpty(const std::optional<std::string>& text);
/// Without white space and line breaks (Unicode) at both ends. Thread: any
FRX_EXPORT std::string trim(std::string_view text);
/// The integer at the beginning: leading white space and a sign are accepted, reading stops at the first
/// character that is no digit, 0 without digits; beyond 64 bits the nearest end of the range. Thread: any
FRX_EXPORT std::int64_t integerValue(std::string_view text);

}  // namespace ferrox
