// A client's bytes into the server's endpoint over a channel in memory that takes only so much at once and
// fails at the n-th operation.
#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "Fuzz/FuzzSupport.h"
#include "Fuzz/WireFrames.h"
#include "Platform/Base/Utf8.h"
#include "Platform/HTTP/Server/NetworkThread.h"
#include "Platform/HTTP/Server/StreamChannel.h"
#include "Platform/WebSocket/WebSocketEndpoint.h"

namespace {

using namespace ferrox;

/// The peer's end of a channel; outlives it.
struct Wire {
  unsigned operationsLeft = 0;
  std::size_t pieceSize = 1;
  std::string outgoing;
  std::span<char> space;
  std::shared_ptr<Session> receiver;
  std::shared_ptr<Session> writer;
  bool full = false;
  bool closed = false;
  bool sendingEnded = false;

  bool fails() { return operationsLeft == 0 || operationsLeft-- == 0; }
};

class MemoryChannel : public StreamChannel {
 public:
  explicit MemoryChannel(Wire& wire) : wire_(wire) {}

  void receive(std::span<char> space, std::shared_ptr<Session> session) override {
    FUZZ_REQUIRE(!wire_.receiver && !wire_.closed);
    wire_.space = space;
    wire_.receiver = std::move(session);
  }
  void awaitWritable(std::shared_ptr<Session> session) override {
    FUZZ_REQUIRE(!wire_.writer && !wire_.closed);
    wire_.writer = std::move(session);
  }
  ssize_t sendNow(const char* bytes, std::size_t count, bool) override {
    FUZZ_REQUIRE(!wire_.closed && !wire_.sendingEnded);
    if (wire_.fails()) return -1;
    if ((wire_.full = !wire_.full)) return 0;
    const std::size_t taken = std::min(count, wire_.pieceSize);
    wire_.outgoing.append(bytes, taken);
    return static_cast<ssize_t>(taken);
  }
  void enableKeepAliveProbes() override {}
  void shutDownSending() override { wire_.sendingEnded = true; }
  void close() override { wire_.closed = true; }
  const std::string& peerHost() const override { return host_; }
  std::uint16_t localPort() const override { return 1; }

 private:
  Wire& wire_;
  const std::string host_ = "10.0.0.1";
};

class Watcher : public WebSocketListener {
 public:
  void webSocketDidOpen(WebSocket&) override { ++opened; }
  void webSocketDidReceiveMessage(WebSocket& socket, std::string_view text) override {
    FUZZ_REQUIRE(opened == 1 && closed == 0 && isUtf8(text) && text.size() <= 300);
    socket.sendMessage(std::string(text));
  }
  void webSocketDidClose(WebSocket&) override { ++closed; }

  int opened = 0;
  int closed = 0;
};

void drive(NetworkThread& thread, Wire& wire, std::string_view bytes) {
  while (!wire.closed) {
    thread.context().restart();
    thread.context().poll();
    if (const auto writer = std::exchange(wire.writer, nullptr)) {
      writer->didBecomeWritable();
    } else if (wire.receiver && !bytes.empty()) {
      const auto receiver = std::exchange(wire.receiver, nullptr);
      if (wire.fails()) {
        receiver->didFail();
        continue;
      }
      const std::size_t count = std::min({wire.space.size(), wire.pieceSize, bytes.size()});
      std::memcpy(wire.space.data(), bytes.data(), count);
      bytes.remove_prefix(count);
      receiver->didReceive(count);
    } else {
      return;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  static const auto thread = std::make_shared<NetworkThread>(std::chrono::hours(1));
  const std::string_view bytes = fuzz::asText(data + 3, size - 3);
  HTTPServerLimits limits;
  limits.webSocketMessage = 300;
  limits.webSocketSendQueue = 2000;
  Wire wire;
  wire.operationsLeft = data[0] == 255 ? 1'000'000 : data[0];
  wire.pieceSize = std::size_t{1} + data[1];
  const auto watcher = std::make_shared<Watcher>();
  auto channel = std::make_unique<MemoryChannel>(wire);
  const auto endpoint = std::make_shared<WebSocketEndpoint>(thread, limits, *channel, nullptr);
  const auto socket = std::make_shared<WebSocket>(endpoint);
  socket->setDelegate(watcher);
  if ((data[2] & 1) != 0) socket->sendMessage("before the upgrade");
  const std::string answer = "HTTP/1.1 101 Switching Protocols\r\n\r\n";
  endpoint->open(std::move(channel), socket, answer, bytes.substr(0, bytes.size() / 4));
  drive(*thread, wire, bytes.substr(bytes.size() / 4, bytes.size() / 4));
  if ((data[2] & 2) != 0) socket->sendMessage("of ours");
  if ((data[2] & 4) != 0) socket->close(1000, "enough");
  drive(*thread, wire, bytes.substr(bytes.size() / 4 * 2));
  if (const auto receiver = std::exchange(wire.receiver, nullptr)) receiver->didReceive(0);
  endpoint->abort();
  wire.writer.reset();
  thread->context().restart();
  thread->context().poll();
  FUZZ_REQUIRE(watcher->opened == 1 && watcher->closed == 1 && wire.closed);
  if (wire.outgoing.size() > answer.size()) {
    fuzz::requireSoundFrames(std::string_view(wire.outgoing).substr(answer.size()), false, true);
  }
  return 0;
}
