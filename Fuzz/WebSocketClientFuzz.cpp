// A server's bytes, handshake answer included, into the client's session over a channel in memory that takes
// only so much at once and fails at the n-th operation.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "Fuzz/FuzzSupport.h"
#include "Fuzz/WireFrames.h"
#include "Platform/Base/Utf8.h"
#include "Platform/WebSocket/ByteChannel.h"
#include "Platform/WebSocket/WebSocketClientSession.h"
#include "Platform/WebSocket/WebSocketFrame.h"
#include "Platform/WebSocket/WebSocketHandshake.h"
#include "Platform/WebSocket/WebSocketURL.h"

namespace {

using namespace ferrox;

class MemoryChannel : public ByteChannel {
 public:
  MemoryChannel(unsigned operationsUntilFailure, std::size_t pieceSize)
      : operationsLeft_(operationsUntilFailure), pieceSize_(pieceSize) {}

  ssize_t receive(std::span<char> space) override {
    if (fails()) return -1;
    const std::size_t count = std::min({space.size(), pieceSize_, incoming.size()});
    std::memcpy(space.data(), incoming.data(), count);
    incoming.remove_prefix(count);
    return static_cast<ssize_t>(count);
  }
  ssize_t send(std::span<const iovec> pieces) override {
    if (fails()) return -1;
    // Every other time the peer's buffer is full.
    if ((full_ = !full_)) return errno = EAGAIN, -1;
    const std::size_t count = std::min(pieces[0].iov_len, pieceSize_);
    FUZZ_REQUIRE(!sendingEnded_);
    outgoing.append(static_cast<const char*>(pieces[0].iov_base), count);
    return static_cast<ssize_t>(count);
  }
  void await(bool readable, bool writable) override {
    readable_ = readable;
    writable_ = writable;
  }
  void shutDownSending() override { sendingEnded_ = true; }

  bool isBroken() const { return broken_; }
  bool awaitsReadable() const { return readable_; }
  bool awaitsWritable() const { return writable_; }

  std::string_view incoming;
  std::string outgoing;

 private:
  bool fails() {
    FUZZ_REQUIRE(!broken_);
    if (operationsLeft_-- > 0) return false;
    broken_ = true;
    errno = ECONNRESET;
    return true;
  }

  unsigned operationsLeft_;
  const std::size_t pieceSize_;
  bool broken_ = false;
  bool full_ = false;
  bool readable_ = false;
  bool writable_ = false;
  bool sendingEnded_ = false;
};

class Watcher : public WebSocketClientSessionListener {
 public:
  void sessionDidOpen() override {
    FUZZ_REQUIRE(!opened && !ended);
    opened = true;
  }
  void sessionDidReceiveText(std::string_view text) override {
    FUZZ_REQUIRE(opened && !ended && isUtf8(text) && text.size() <= 300);
  }
  void sessionDidStartClosing() override {
    FUZZ_REQUIRE(opened && !closing);
    closing = true;
  }
  void sessionDidEnd(WebSocketEnding ending) override {
    FUZZ_REQUIRE(!ended);
    FUZZ_REQUIRE(ending.error.has_value() == (ending.code == 0));
    ended = true;
  }

  bool opened = false;
  bool closing = false;
  bool ended = false;
};

/// The answer that belongs to the request on the wire.
std::string rightAnswer(const std::string& request) {
  const std::string name = "Sec-WebSocket-Key: ";
  const std::size_t at = request.find(name);
  if (at == std::string::npos) return {};
  return "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: "
         "Upgrade\r\nSec-WebSocket-Accept: " +
         webSocketAcceptKey(std::string_view(request).substr(at + name.size(), 24)) + "\r\n\r\n";
}

void sendFrame(WebSocketClientSession& session, WebSocketOpcode opcode, std::string_view payload) {
  auto bytes = std::make_shared<std::string>();
  appendMaskedFrame(*bytes, opcode, payload, {1, 2, 3, 4});
  const std::size_t size = bytes->size();
  session.enqueue(std::move(bytes), 0, size, opcode == WebSocketOpcode::Close);
  session.flush();
}

void drive(WebSocketClientSession& session, MemoryChannel& channel) {
  std::array<char, 512> space{};
  while (!session.isDone() && (!channel.incoming.empty() || channel.awaitsWritable())) {
    if (channel.awaitsWritable()) session.channelIsWritable();
    if (!session.isDone() && channel.awaitsReadable() && !channel.incoming.empty()) {
      session.channelIsReadable(space);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  static const WebSocketURL url = *WebSocketURL::parse("ws://host/socket");
  const std::string_view bytes = fuzz::asText(data + 3, size - 3);
  MemoryChannel channel(data[0] == 255 ? 1'000'000 : data[0], std::size_t{1} + data[1]);
  Watcher watcher;
  WebSocketClientSession session(channel, url, {300, 2000}, watcher);
  session.start();
  drive(session, channel);
  const std::size_t requestSize = channel.outgoing.size();
  std::string incoming = (data[2] & 1) != 0 ? rightAnswer(channel.outgoing) : std::string();
  incoming.append(bytes.substr(0, bytes.size() / 2));
  channel.incoming = incoming;
  drive(session, channel);
  if ((data[2] & 2) != 0) sendFrame(session, WebSocketOpcode::Text, "of ours");
  if ((data[2] & 4) != 0) session.ping();
  if ((data[2] & 8) != 0) sendFrame(session, WebSocketOpcode::Close, "");
  channel.incoming = bytes.substr(bytes.size() / 2);
  drive(session, channel);
  if (!session.isDone() && (data[2] & 16) != 0) {
    std::array<char, 1> space{};
    session.channelIsReadable(space);  // the peer's end
  }
  if (!session.isDone()) session.deadlinePassed();
  FUZZ_REQUIRE(session.isDone() && watcher.ended);
  FUZZ_REQUIRE(requestSize <= channel.outgoing.size());
  if (watcher.opened) {
    fuzz::requireSoundFrames(std::string_view(channel.outgoing).substr(requestSize), true, true);
  }
  return 0;
}
