// What the WebSocket fuzz targets check about the bytes that one side has put on the wire.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Fuzz/FuzzSupport.h"

namespace ferrox::fuzz {

/// Requires that `wire` is a sequence of sound, unfragmented frames, all masked or none, with nothing after a
/// close frame. The last one may be cut where the channel failed.
inline void requireSoundFrames(std::string_view wire, bool masked, bool mayBeCut) {
  bool closed = false;
  while (!wire.empty()) {
    FUZZ_REQUIRE(!closed);
    const auto byteAt = [wire](std::size_t at) { return static_cast<std::uint8_t>(wire[at]); };
    std::size_t header = 2;
    if (wire.size() < header) return FUZZ_REQUIRE(mayBeCut);
    const int opcode = byteAt(0) & 15;
    FUZZ_REQUIRE((byteAt(0) & 0xF0) == 0x80);
    FUZZ_REQUIRE(opcode == 1 || opcode == 8 || opcode == 9 || opcode == 10);
    FUZZ_REQUIRE(((byteAt(1) & 0x80) != 0) == masked);
    std::size_t size = byteAt(1) & 0x7FU;
    FUZZ_REQUIRE(opcode < 8 || size <= 125);
    const std::size_t lengthBytes = size < 126 ? 0 : size == 126 ? 2 : 8;
    const std::size_t whole = header + lengthBytes + (masked ? 4 : 0);
    if (wire.size() < whole) return FUZZ_REQUIRE(mayBeCut);
    if (lengthBytes > 0) size = 0;
    for (std::size_t i = 0; i < lengthBytes; ++i) size = size * 256 + byteAt(header++);
    if (wire.size() < whole + size) return FUZZ_REQUIRE(mayBeCut);
    FUZZ_REQUIRE(opcode != 8 || size != 1);
    wire.remove_prefix(whole + size);
    closed = opcode == 8;
  }
}

}  // namespace ferrox::fuzz
