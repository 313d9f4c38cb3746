// What may stand where a host name is expected, and which names belong to multicast DNS.
#pragma once

#include <string>
#include <string_view>

namespace ferrox {

/// False for what cannot name a host: an empty text, one over 253 bytes (RFC 1035 section 2.3.4, a trailing
/// dot not counted), one with blanks or control characters, with an empty label or one over 63 bytes. IP
/// literals pass. Thread: any
bool isUsableHostName(std::string_view name);

/// A name under .local (RFC 6762 section 3), in any case, with or without the trailing dot. Thread: any
bool isMulticastHostName(std::string_view name);

/// As multicast DNS announces it: a name under .local with its trailing dot. Others stay as they are. Thread:
/// any
std::string withAnnouncedForm(std::string name);

/// Without one trailing dot.
std::string_view withoutTrailingDot(std::string_view name);

}  // namespace ferrox
