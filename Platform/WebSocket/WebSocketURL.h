// Where a WebSocket URL (RFC 6455 section 3) leads, checked so strictly that nothing can be smuggled through
// it into a request.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Platform/Base/FRXError.h"

namespace ferrox {

struct WebSocketURL {
  std::string host;  ///< to look up: a name or an IP literal, without brackets, with its zone
  std::uint16_t port = 0;
  std::string authority;  ///< value of the Host header: IPv6 in brackets, no zone, always with the port
  std::string target;     ///< path and query as they stand in the URL

  /// Nothing, with `error` filled, unless `text` is "ws://HOST[:PORT][/PATH][?QUERY]". Characters beyond
  /// ASCII are escaped. Thread: any
  [[nodiscard]] static std::optional<WebSocketURL> parse(const std::string& text, FRXError* error = nullptr);
};

}  // namespace ferrox
