// Whether what the network says about a peer can be true at all, before it is used in URLs and look-ups.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ferrox {

class FRXNetService;

/// Longest published name, in bytes, that is taken over from a record.
inline constexpr std::size_t maxPeerNameSize = 255;

/// True for an IP address (an IPv6 one may carry %scope) and for UTF-8 text that can name a host: not too
/// long, without blanks and control characters, and without what would end or split the host part of a URL.
/// Thread: any
bool isPlausibleHostName(std::string_view hostName);

/// Why this record cannot belong to a peer that can be reached: no plausible host name, a port outside
/// 1..65535, no name, or a name with control characters. Nothing when it can. Thread: any
std::optional<std::string> whyNotAPeer(const FRXNetService& service);

}  // namespace ferrox
