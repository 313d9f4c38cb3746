// TXT record data: length-prefixed "key=value" strings (RFC 6763 section 6).
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"

namespace ferrox {

/// A record longer than this may not fit one multicast packet and is then never seen by anyone.
inline constexpr std::size_t maxTXTRecordSize = 1200;

/// Keys and raw values. Strings without a key are skipped, of a repeated key (compared without regard to
/// ASCII case) the first counts, a key without "=" has an empty value, truncated data ends the reading.
/// Thread: any
FRX_EXPORT std::map<std::string, std::string> decodeTXTRecord(std::string_view rdata);

/// Nothing when a key is empty or holds "=" or non-printing characters, when a string would exceed 255
/// bytes, or the record `maxTXTRecordSize`.
FRX_EXPORT std::optional<std::string> encodeTXTRecord(const std::map<std::string, std::string>& entries);

}  // namespace ferrox
