// Where a request goes, and whether it can be sent at all.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/HTTP/Client/HTTPClient.h"

namespace ferrox {

/// The host and port of a URL.
struct HTTPClientTarget {
  /// A host name or an IP literal without brackets, an IPv6 one with its zone as "%zone".
  std::string host;
  std::uint16_t port = 0;
};

/// The target of an absolute http URL without credentials. Nothing, with `error` filled, for every other
/// text. Thread: any
FRX_EXPORT std::optional<HTTPClientTarget> targetOfURL(const std::string& url, FRXError* error);

/// False, with `error` filled, when the method or a header's name is no token (RFC 9110 section 5.6.2) or a
/// header's value holds a line break or NUL, with which a request could be forged. Thread: any
FRX_EXPORT bool isSendable(const HTTPClientRequest& request, FRXError* error);

}  // namespace ferrox
