// Single frames as bytes (RFC 6455 section 5.2).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Platform/WebSocket/MaskingKeys.h"

namespace ferrox {

enum class WebSocketOpcode : std::uint8_t { Text = 0x1, Close = 0x8, Ping = 0x9, Pong = 0xA };

/// A close code that may stand in a frame (RFC 6455 section 7.4). Thread: any
bool isSendableCloseCode(int code);

/// What a close frame carries: nothing for a code that may not be sent; a reason is cut at a character
/// boundary to what a control frame holds, and left out when it is not UTF-8. Thread: any
std::string closePayload(int code, std::string_view reason);

/// Appends one whole frame as a server sends it. Thread: any
void appendFrame(std::string& to, WebSocketOpcode opcode, std::string_view payload);
/// Appends one whole frame as a client sends it: with the payload masked. Thread: any
void appendMaskedFrame(std::string& to, WebSocketOpcode opcode, std::string_view payload, MaskingKey key);

/// Copies `count` bytes and masks them on the way; the same call takes a mask off again. Thread: any
void copyMasked(char* to, const char* from, std::size_t count, MaskingKey key);

}  // namespace ferrox
