// A server's answer to the client's handshake: whole and in pieces, the same answers must be accepted.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "Fuzz/FuzzSupport.h"
#include "Platform/WebSocket/WebSocketOpening.h"
#include "Platform/WebSocket/WebSocketURL.h"

namespace {

using ferrox::WebSocketOpening;

std::string verdictOn(std::string_view bytes, std::size_t pieceSize) {
  static const ferrox::WebSocketURL url = *ferrox::WebSocketURL::parse("ws://host/socket");
  WebSocketOpening opening(url, "dGhlIHNhbXBsZSBub25jZQ==");
  auto state = WebSocketOpening::State::NeedMore;
  while (!bytes.empty() && state == WebSocketOpening::State::NeedMore) {
    state = opening.read(bytes.substr(0, pieceSize));
    bytes.remove_prefix(std::min(pieceSize, bytes.size()));
  }
  switch (state) {
    // What is wrong is seen sooner or later, depending on the pieces.
    case WebSocketOpening::State::NeedMore:
      return "not accepted";
    case WebSocketOpening::State::Refused:
      FUZZ_REQUIRE(!opening.refusal().empty());
      return "not accepted";
    case WebSocketOpening::State::Accepted:
      return "accepted, then " + std::string(opening.rest()).append(bytes);
  }
  return {};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = ferrox::fuzz::asText(data, size);
  const std::string whole = verdictOn(bytes, size + 1);
  FUZZ_REQUIRE(whole == verdictOn(bytes, 1));
  FUZZ_REQUIRE(whole == verdictOn(bytes, 7));
  return 0;
}
