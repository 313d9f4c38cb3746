#include "Platform/WebSocket/WebSocketFraming.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Platform/Base/Utf8.h"

namespace ferrox {
namespace {

constexpr std::size_t keptMessage = 64 * 1024;
constexpr std::size_t codeSize = 2;
constexpr std::size_t shortHeader = 2;
constexpr std::size_t maxControlPayload = 125;
constexpr std::uint64_t maxIn16Bits = 0xFFFF;

constexpr std::uint16_t protocolError = 1002;
constexpr std::uint16_t unsupportedData = 1003;
constexpr std::uint16_t noStatus = 1005;
constexpr std::uint16_t invalidPayload = 1007;
constexpr std::uint16_t messageTooBig = 1009;

enum Opcode : unsigned {
  continuation = 0x0,
  text = 0x1,
  binary = 0x2,
  closing = 0x8,
  ping = 0x9,
  pong = 0xA
};

}  // namespace

WebSocketFraming::WebSocketFraming(Role role, std::size_t maxMessage, TextSink onText)
    : role_(role), maxMessage_(maxMessage), onText_(std::move(onText)) {}

void WebSocketFraming::read(std::string_view bytes) {
  while (reading_ && !bytes.empty()) {
    if (insideFrame_) {
      readPayload(bytes);
    } else {
      readHeader(bytes);
    }
  }
}

std::size_t WebSocketFraming::headerSize() const {
  if (headerUsed_ < shortHeader) return shortHeader;
  const unsigned length = header_[1] & 0x7FU;
  const std::size_t lengthBytes = length == 127 ? 8 : length == 126 ? 2 : 0;
  return shortHeader + lengthBytes + ((header_[1] & 0x80U) != 0 ? key_.size() : 0);
}

void WebSocketFraming::readHeader(std::string_view& bytes) {
  const std::size_t count = std::min(headerSize() - headerUsed_, bytes.size());
  std::memcpy(header_.data() + headerUsed_, bytes.data(), count);
  headerUsed_ += count;
  bytes.remove_prefix(count);
  if (headerUsed_ == shortHeader) {
    if (const std::uint16_t code = judgeHeader(); code != 0) return refuse(code);
  }
  if (headerUsed_ >= shortHeader && headerUsed_ == headerSize()) beginFrame();
}

/// What the first two bytes tell; 0 when nothing is wrong with them (RFC 6455 sections 5.1 to 5.5).
std::uint16_t WebSocketFraming::judgeHeader() const {
  const bool final = (header_[0] & 0x80U) != 0, reservedBits = (header_[0] & 0x70U) != 0;
  const bool masked = (header_[1] & 0x80U) != 0;
  const unsigned opcode = header_[0] & 0x0FU, length = header_[1] & 0x7FU;
  if (reservedBits || masked != (role_ == Role::Server)) return protocolError;
  switch (opcode) {
    case Opcode::closing:
      if (length == 1) return protocolError;
      [[fallthrough]];
    case Opcode::ping:
    case Opcode::pong:
      return final && length <= maxControlPayload ? 0 : protocolError;
    case Opcode::continuation:
      return insideMessage_ ? 0 : protocolError;
    case Opcode::text:
      return insideMessage_ ? protocolError : 0;
    case Opcode::binary:
      return insideMessage_ ? protocolError : unsupportedData;
    default:
      return protocolError;
  }
}

void WebSocketFraming::beginFrame() {
  const unsigned length = header_[1] & 0x7FU;
  const std::size_t lengthBytes = length == 127 ? 8 : length == 126 ? 2 : 0;
  std::uint64_t size = lengthBytes == 0 ? length : 0;
  for (std::size_t i = 0; i < lengthBytes; ++i) size = size << 8 | header_[shortHeader + i];
  // The shortest form is required (section 5.2), and the highest bit must not be set.
  const std::uint64_t smallest = lengthBytes == 8 ? maxIn16Bits + 1 : lengthBytes == 2 ? 126 : 0;
  if (size < smallest || size >> 63 != 0) return refuse(protocolError);
  isControl_ = (header_[0] & 0x08U) != 0;
  if (!isControl_ && size > maxMessage_ - message_.size()) return refuse(messageTooBig);
  if (role_ == Role::Server)
    std::memcpy(key_.data(), header_.data() + shortHeader + lengthBytes, key_.size());
  left_ = static_cast<std::size_t>(size);
  headerUsed_ = 0;
  insideFrame_ = true;
  if (left_ == 0) endFrame();
}

void WebSocketFraming::readPayload(std::string_view& bytes) {
  std::string& target = isControl_ ? control_ : message_;
  const std::size_t count = std::min(left_, bytes.size()), start = target.size();
  if (role_ == Role::Server) {
    target.resize(start + count);
    copyMasked(target.data() + start, bytes.data(), count, key_);
    // The next piece begins where this one left off within the key.
    const MaskingKey turned{key_[count % 4], key_[(count + 1) % 4], key_[(count + 2) % 4],
                            key_[(count + 3) % 4]};
    key_ = turned;
  } else {
    target.append(bytes.substr(0, count));
  }
  bytes.remove_prefix(count);
  left_ -= count;
  if (left_ == 0) endFrame();
}

void WebSocketFraming::endFrame() {
  insideFrame_ = false;
  const bool final = (header_[0] & 0x80U) != 0;
  if (!isControl_) {
    insideMessage_ = !final;
    if (final) receivedText();
    return;
  }
  const std::string payload = std::exchange(control_, {});
  const unsigned opcode = header_[0] & 0x0FU;
  if (opcode == Opcode::ping) queue(WebSocketOpcode::Pong, payload);
  if (opcode == Opcode::closing) receivedClose(payload);
}

void WebSocketFraming::receivedText() {
  if (!isUtf8(message_)) return refuse(invalidPayload);
  onText_(message_);
  message_.clear();
  if (message_.capacity() > keptMessage) message_.shrink_to_fit();
}

void WebSocketFraming::receivedClose(std::string_view payload) {
  int code = noStatus;
  if (payload.size() >= codeSize) {
    code = static_cast<unsigned char>(payload[0]) << 8 | static_cast<unsigned char>(payload[1]);
    if (!isSendableCloseCode(code)) return refuse(protocolError);
    if (!isUtf8(payload.substr(codeSize))) return refuse(invalidPayload);
    closeReason_ = payload.substr(codeSize);
  }
  closeReceived_ = true;
  closeCode_ = static_cast<std::uint16_t>(code);
  reading_ = false;
  queue(WebSocketOpcode::Close, payload);
}

void WebSocketFraming::refuse(std::uint16_t code) {
  refusal_ = code;
  reading_ = false;
  queue(WebSocketOpcode::Close, closePayload(code, {}));
}

// Nothing may follow a close frame (RFC 6455 section 5.5.1).
void WebSocketFraming::queue(WebSocketOpcode opcode, std::string_view payload) {
  if (closeQueued_) return;
  closeQueued_ = opcode == WebSocketOpcode::Close;
  if (role_ == Role::Server) return appendFrame(output_, opcode, payload);
  appendMaskedFrame(output_, opcode, payload, MaskingKeys().next());
}

void WebSocketFraming::stopWriting() {
  closeQueued_ = closeWritten_ = true;
  output_.clear();
}

void WebSocketFraming::write(std::string& output) {
  if (output.empty()) {
    output.swap(output_);
  } else {
    output.append(output_);
    output_.clear();
  }
  closeWritten_ = closeQueued_;
}

}  // namespace ferrox
