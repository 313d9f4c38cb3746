#include "Benchmarks/FanOut/SinkConnection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Benchmarks/Support/Stamp.h"
#include "Platform/WebSocket/WebSocketHandshake.h"

namespace ferrox::bench {
namespace {

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "sink: %s\n", what);
  std::exit(1);
}

std::uint64_t wordAt(const char* at) {
  std::uint64_t word = 0;
  std::memcpy(&word, at, sizeof(word));
  return word;
}

/// The mask of a frame's payload, turned so that its first byte belongs to payload byte `offset`.
std::uint64_t maskFrom(const char* key, std::size_t offset) {
  char turned[8];
  for (std::size_t i = 0; i < sizeof(turned); ++i) turned[i] = key[(offset + i) % 4];
  return wordAt(turned);
}

}  // namespace

SinkConnection::SinkConnection(int socket, Wire wire) : socket_(socket), wire_(wire) {
  const timeval patience{10, 0};
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
  switch (wire_) {
    case Wire::WebSocketServer:
      answerUpgrade();
      break;
    case Wire::WebSocketClient:
      askUpgrade();
      break;
    case Wire::ZMTPSubscriber:
      subscribe();
      break;
  }
}

void SinkConnection::answerUpgrade() {
  const std::string request = readUntil("\r\n\r\n");
  const std::string name = "\r\nSec-WebSocket-Key: ";
  const std::size_t at = request.find(name);
  if (at == std::string::npos) fail("a request without a key");
  const std::size_t begin = at + name.size();
  const std::string key = request.substr(begin, request.find("\r\n", begin) - begin);
  sendAll(
      "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
      "Sec-WebSocket-Accept: " +
      webSocketAcceptKey(key) + "\r\n\r\n");
}

void SinkConnection::askUpgrade() {
  sendAll(
      "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
      "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n");
  if (readUntil("\r\n\r\n").find(" 101 ") == std::string::npos) fail("no upgrade");
}

void SinkConnection::subscribe() {
  using namespace std::string_literals;
  constexpr std::size_t greetingSize = 64;
  std::string greeting = "\xFF\0\0\0\0\0\0\0\0\x7F\x03\0NULL"s;
  greeting.resize(greetingSize, '\0');
  sendAll(greeting);
  readExactly(greetingSize);
  const std::string body = "\x05READY\x0BSocket-Type\0\0\0\x03SUB"s;
  sendAll("\x04"s + static_cast<char>(body.size()) + body);
  const std::string head = readExactly(2);
  if (head[0] != 4) fail("no short command after the greeting");
  if (readExactly(static_cast<unsigned char>(head[1])).find("READY") != 1) fail("not ready");
  sendAll("\0\x01\x01"s);
}

// Byte by byte where the end is not known, so that nothing of what follows is taken.
std::string SinkConnection::readUntil(const std::string& end) {
  std::string read;
  while (!read.ends_with(end)) read += readExactly(1);
  return read;
}

std::string SinkConnection::readExactly(std::size_t count) {
  std::string read(count, '\0');
  const ssize_t got = ::recv(socket_, read.data(), count, MSG_WAITALL);
  if (got != static_cast<ssize_t>(count)) fail("the handshake ended early");
  return read;
}

void SinkConnection::sendAll(const std::string& bytes) {
  if (::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) {
    fail("the handshake could not be sent");
  }
}

std::size_t SinkConnection::begin(std::span<char> space) {
  std::memcpy(space.data(), rest_.data(), rest_.size());
  const ssize_t got = ::recv(socket_, space.data() + rest_.size(), space.size() - rest_.size(), MSG_DONTWAIT);
  if (got == 0) fail("the broadcaster ended a connection");
  if (got < 0 && errno != EAGAIN && errno != EINTR) fail("receiving failed");
  at_ = space.data();
  left_ = rest_.size() + static_cast<std::size_t>(got < 0 ? 0 : got);
  return left_;
}

// Works out the layout from the first frame; all others are alike.
void SinkConnection::learn(const char* frame, std::size_t available) {
  const bool zmtp = wire_ == Wire::ZMTPSubscriber;
  const std::size_t fixed = zmtp ? 9 : 4;
  const std::size_t key = wire_ == Wire::WebSocketServer ? 4 : 0;
  if (available < fixed + key) return;
  std::size_t size = 0;
  for (std::size_t i = zmtp ? 1 : 2; i < fixed; ++i) size = size << 8 | static_cast<unsigned char>(frame[i]);
  const unsigned char masked = key != 0 ? 0x80 : 0;
  const bool expected = zmtp ? frame[0] == 2
                             : static_cast<unsigned char>(frame[0]) == 0x81 &&
                                   static_cast<unsigned char>(frame[1]) == (masked | 126);
  if (!expected || size != textSize) fail("a frame of another kind or size");
  if (available < fixed + key + size) return;
  const char* payload = frame + fixed + key;
  std::size_t mark = 0;
  while (mark + stampSize <= size &&
         (payload[mark] ^ (key != 0 ? frame[fixed + mark % 4] : '\0')) != stampMark) {
    ++mark;
  }
  if (mark + stampSize > size) fail("a text without a stamp");
  head_.assign(frame, fixed);
  maskAt_ = key != 0 ? fixed : 0;
  stampAt_ = fixed + key + mark;
  frameSize_ = fixed + key + size;
}

Delivery SinkConnection::take(const char* frame) {
  if (std::memcmp(frame, head_.data(), head_.size()) != 0) fail("a frame out of place");
  const char* stamp = frame + stampAt_;
  std::uint64_t mask = 0;
  std::uint64_t shifted = 0;
  if (maskAt_ != 0) {
    const std::size_t offset = stampAt_ - maskAt_ - 4;
    mask = maskFrom(frame + maskAt_, offset);
    shifted = maskFrom(frame + maskAt_, offset + 1);
  }
  const auto first = static_cast<char>(mask & 0xFF);
  if ((stamp[0] ^ first) != stampMark) fail("a text without a stamp");
  const std::uint32_t low = readLetters(wordAt(stamp + 1) ^ shifted);
  const std::uint32_t high = readLetters(wordAt(stamp + 9) ^ shifted);
  const std::uint32_t number = readLetters(wordAt(stamp + 17) ^ shifted);
  if (number != received_) fail("a text was lost, repeated or overtaken");
  ++received_;
  // Byte 25 of the stamp falls on the same byte of the mask as byte 1.
  const bool last = (stamp[25] ^ static_cast<char>(shifted & 0xFF)) == 'b';
  return {std::uint64_t{high} << 32 | low, last};
}

void SinkConnection::keepRest() { rest_.assign(at_, at_ + left_); }

}  // namespace ferrox::bench
