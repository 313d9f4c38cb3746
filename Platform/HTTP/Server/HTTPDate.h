// Dates as HTTP writes them (RFC 9110 section 5.6.7).
#pragma once

#include <ctime>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"

namespace ferrox {

/// For example "Sun, 06 Nov 1994 08:49:37 GMT", whatever the locale. Thread: any
FRX_EXPORT std::string httpDate(std::time_t time);

/// Reads the three forms that a recipient has to know, whatever the locale; nothing for any other text.
/// Thread: any
FRX_EXPORT std::optional<std::time_t> timeOfHTTPDate(const std::string& text);

}  // namespace ferrox
