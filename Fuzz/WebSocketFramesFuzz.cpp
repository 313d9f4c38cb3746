// A peer's bytes into the framing, for either role: whole and in pieces they must mean the same.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz/FuzzSupport.h"
#include "Fuzz/WireFrames.h"
#include "Platform/Base/Utf8.h"
#include "Platform/WebSocket/WebSocketFraming.h"

namespace {

using ferrox::WebSocketFraming;

constexpr std::size_t maxMessage = 300;

struct Reading {
  std::vector<std::string> texts;
  int refusal = 0;
  int closeCode = 0;
  std::string closeReason;
  bool isReading = true;
  bool operator==(const Reading&) const = default;
};

Reading readBy(WebSocketFraming::Role role, std::string_view bytes, std::size_t pieceSize) {
  Reading seen;
  WebSocketFraming framing(role, maxMessage,
                           [&seen](std::string_view text) { seen.texts.emplace_back(text); });
  std::string output;
  while (!bytes.empty()) {
    framing.read(bytes.substr(0, pieceSize));
    bytes.remove_prefix(std::min(pieceSize, bytes.size()));
    framing.write(output);
  }
  framing.queueText("may not follow a close frame");
  framing.write(output);
  ferrox::fuzz::requireSoundFrames(output, role == WebSocketFraming::Role::Client, false);
  seen.refusal = framing.refusal();
  seen.closeCode = framing.closeCode();
  seen.closeReason = framing.closeReason();
  seen.isReading = framing.isReading();
  FUZZ_REQUIRE(seen.isReading || framing.hasWrittenClose());
  FUZZ_REQUIRE(seen.isReading == (seen.refusal == 0 && !framing.hasReceivedClose()));
  for (const std::string& text : seen.texts) FUZZ_REQUIRE(text.size() <= maxMessage && ferrox::isUtf8(text));
  return seen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto role = (data[0] & 1) != 0 ? WebSocketFraming::Role::Client : WebSocketFraming::Role::Server;
  // With a tail that ends whatever control frame has begun: half of one may be refused sooner or later.
  const std::string bytes = std::string(ferrox::fuzz::asText(data + 1, size - 1)) + std::string(140, 'x');
  const Reading whole = readBy(role, bytes, bytes.size() + 1);
  FUZZ_REQUIRE(whole == readBy(role, bytes, 1));
  FUZZ_REQUIRE(whole == readBy(role, bytes, 7));
  return 0;
}
