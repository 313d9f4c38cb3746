// The server's part of the opening handshake (RFC 6455 section 4.2.2).
#pragma once

#include <string>
#include <string_view>

namespace ferrox {

/// The value of Sec-WebSocket-Accept for a client's key. Thread: any
std::string webSocketAcceptKey(std::string_view key);

}  // namespace ferrox
