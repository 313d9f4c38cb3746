// Reading UTF-8 one character at a time (RFC 3629).
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "Platform/Base/Export.h"

namespace ferrox {

/// The character at `position`, which moves behind it. Nothing for a byte that begins no well-formed
/// character (overlong forms, surrogates and values above U+10FFFF included); then `position` moves by one
/// byte. `position` must be inside the text. Thread: any
FRX_EXPORT std::optional<char32_t> nextCharacter(std::string_view utf8, std::size_t& position);

/// Whether all of it is well-formed. Thread: any
FRX_EXPORT bool isUtf8(std::string_view bytes);

}  // namespace ferrox
