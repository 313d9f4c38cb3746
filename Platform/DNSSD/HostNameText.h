// Host names as text. Names from the network are used only when they may safely stand in a URL.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/DNSSD/DNSMessage.h"

namespace ferrox::dnssd {

/// "label.label." when every label holds only ASCII letters and digits, "-", "_" or well-formed UTF-8.
std::optional<std::string> hostNameText(const DNSName& name);
/// Lower case (ASCII) without the trailing dot; nothing when it could not be such a name.
std::optional<std::string> normalizedHostName(std::string_view text);
/// As `normalizedHostName`, for text that is known to be a host name.
std::string lowerCaseHostName(std::string_view text);

}  // namespace ferrox::dnssd
