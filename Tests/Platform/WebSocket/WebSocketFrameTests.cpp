#include <gtest/gtest.h>

#include "Platform/WebSocket/MaskingKeys.h"
#include "Platform/WebSocket/WebSocketFrame.h"
#include "Tests/Platform/WebSocket/ScriptedPeer.h"

namespace ferrox::test {
namespace {

TEST(WebSocketFrameTests, TheExampleOfTheProtocolIsMet) {
  std::string frame;
  appendMaskedFrame(frame, WebSocketOpcode::Text, "Hello", {0x37, 0xFA, 0x21, 0x3D});  // RFC 6455 section 5.7
  EXPECT_EQ(frame, "\x81\x85\x37\xfa\x21\x3d\x7f\x9f\x4d\x51\x58");
}

TEST(WebSocketFrameTests, EveryLengthIsFramedAndMasked) {
  MaskingKeys keys;
  for (const std::size_t size :
       std::vector<std::size_t>{0, 1, 3, 4, 5, 31, 32, 33, 125, 126, 500, 65535, 65536, 70001}) {
    std::string payload(size, '\0');
    for (std::size_t i = 0; i < size; ++i) payload[i] = static_cast<char>(i * 131 >> 3);
    std::string bytes = "before";
    appendMaskedFrame(bytes, WebSocketOpcode::Text, payload, keys.next());
    ASSERT_TRUE(bytes.starts_with("before"));
    bytes.erase(0, 6);
    const auto frame = takeFrame(bytes);
    ASSERT_TRUE(frame) << size;
    EXPECT_EQ(frame->firstByte, 0x81);
    EXPECT_TRUE(frame->payload == payload) << size;
    EXPECT_TRUE(bytes.empty());
  }
}

TEST(WebSocketFrameTests, KeysAreNeverZeroAndDoNotRepeatInSequence) {
  MaskingKeys keys;
  MaskingKey last{};
  for (int i = 0; i < 10000; ++i) {
    const MaskingKey key = keys.next();
    EXPECT_NE(key, MaskingKey{});
    EXPECT_NE(key, last);
    last = key;
  }
}

TEST(WebSocketFrameTests, AReasonIsCutBetweenCharacters) {
  EXPECT_EQ(closePayload(1000, std::string(121, 'x') + "\xE2\x82\xAC").size(), 2U + 121);
  EXPECT_EQ(closePayload(1000, std::string(120, 'x') + "\xE2\x82\xAC").size(), 2U + 123);
  EXPECT_EQ(closePayload(1006, "reason"), "");
}

}  // namespace
}  // namespace ferrox::test
