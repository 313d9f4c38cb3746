#include "Platform/WebSocket/WebSocketFraming.h"

#include <sys/types.h>
#include <wslay/wslay.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include "Platform/Base/Utf8.h"
#include "Platform/Log/Log.h"
#include "Platform/WebSocket/MaskingKeys.h"
#include "Platform/WebSocket/WebSocketFrame.h"

namespace ferrox {
namespace {

constexpr std::size_t keptMessage = 64 * 1024;
constexpr std::size_t codeSize = 2;

std::string frameOf(WebSocketFraming::Role role, WebSocketOpcode opcode, std::string_view payload) {
  std::string frame;
  if (role == WebSocketFraming::Role::Client) {
    appendMaskedFrame(frame, opcode, payload, MaskingKeys().next());
  } else {
    frame = {static_cast<char>(0x80 | static_cast<int>(opcode)), static_cast<char>(payload.size())};
    frame.append(payload);
  }
  return frame;
}

}  // namespace

/// The library's context and the functions that it calls back.
struct WebSocketFraming::Library {
  explicit Library(WebSocketFraming& framing) {
    wslay_event_callbacks callbacks{};
    callbacks.recv_callback = &take;
    callbacks.send_callback = &give;
    callbacks.genmask_callback = &makeKey;
    callbacks.on_frame_recv_start_callback = &frameStarts;
    callbacks.on_frame_recv_chunk_callback = &chunkArrives;
    callbacks.on_frame_recv_end_callback = &frameEnds;
    callbacks.on_msg_recv_callback = &messageEnds;
    const auto initialise =
        framing.role_ == Role::Server ? &wslay_event_context_server_init : &wslay_event_context_client_init;
    if (initialise(&context, &callbacks, &framing) != 0) throw std::bad_alloc();
    // Unbuffered: the library keeps a list node for each fragment, which a peer can multiply at will.
    wslay_event_config_set_no_buffering(context, 1);
    wslay_event_config_set_max_recv_msg_length(context, framing.maxMessage_);
  }
  ~Library() { wslay_event_context_free(context); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  static WebSocketFraming& framingOf(void* user) { return *static_cast<WebSocketFraming*>(user); }

  static ssize_t take(wslay_event_context_ptr context, std::uint8_t* to, std::size_t count, int, void* user) {
    std::string_view& input = framingOf(user).input_;
    if (input.empty()) {
      wslay_event_set_error(context, WSLAY_ERR_WOULDBLOCK);
      return -1;
    }
    const std::size_t taken = std::min(count, input.size());
    std::memcpy(to, input.data(), taken);
    input.remove_prefix(taken);
    return static_cast<ssize_t>(taken);
  }
  static ssize_t give(wslay_event_context_ptr, const std::uint8_t* from, std::size_t count, int, void* user) {
    framingOf(user).output_->append(reinterpret_cast<const char*>(from), count);
    return static_cast<ssize_t>(count);
  }
  // No exception may pass through the library's C code.
  static int makeKey(wslay_event_context_ptr, std::uint8_t* to, std::size_t count, void*) {
    try {
      const MaskingKey key = MaskingKeys().next();
      std::memcpy(to, key.data(), std::min(count, key.size()));
      return 0;
    } catch (const std::exception& failure) {
      FRX_LOG_ERROR(std::string("No masking key: ") + failure.what());
      return -1;
    }
  }
  static void frameStarts(wslay_event_context_ptr, const wslay_event_on_frame_recv_start_arg* frame,
                          void* user) {
    auto& framing = framingOf(user);
    framing.frameStarts(frame->opcode, frame->payload_length);
  }
  static void chunkArrives(wslay_event_context_ptr, const wslay_event_on_frame_recv_chunk_arg* chunk,
                           void* user) {
    framingOf(user).chunkArrives({reinterpret_cast<const char*>(chunk->data), chunk->data_length});
  }
  static void frameEnds(wslay_event_context_ptr, void* user) { framingOf(user).frameEnds(); }
  static void messageEnds(wslay_event_context_ptr, const wslay_event_on_msg_recv_arg* message, void* user) {
    auto& framing = framingOf(user);
    if (framing.refusal_ != 0) return;
    if (message->opcode == WSLAY_TEXT_FRAME) return framing.receivedText();
    if (message->opcode != WSLAY_CONNECTION_CLOSE) return;
    framing.receivedClose(message->status_code);
  }

  void queue(WebSocketOpcode opcode, std::string_view payload) const {
    const wslay_event_msg message{static_cast<std::uint8_t>(opcode),
                                  reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size()};
    // Refused once a close frame is queued: nothing may follow it (RFC 6455 section 5.5.1).
    (void)wslay_event_queue_msg(context, &message);
  }

  wslay_event_context_ptr context = nullptr;
};

WebSocketFraming::WebSocketFraming(Role role, std::size_t maxMessage, TextSink onText)
    : role_(role),
      maxMessage_(maxMessage),
      onText_(std::move(onText)),
      library_(std::make_unique<Library>(*this)) {}

WebSocketFraming::~WebSocketFraming() = default;

void WebSocketFraming::read(std::string_view bytes) {
  if (!isReading()) return;
  input_ = bytes;
  const bool sound = wslay_event_recv(library_->context) == 0;
  input_ = {};
  if (!sound) readFailed();
  // What the library refused by itself has its code known once it is written.
  if (!isReading() && !closeReceived_ && refusal_ == 0) refusal_ = WSLAY_CODE_PROTOCOL_ERROR;
}

void WebSocketFraming::readFailed() {
  wslay_event_shutdown_read(library_->context);
  if (refusal_ != 0 || closeReceived_) return;
  refusal_ = WSLAY_CODE_PROTOCOL_ERROR;
  const bool closing = closeQueued_ || wslay_event_get_close_sent(library_->context) != 0;
  // The library has queued a close frame without a code; ours, which says what was wrong, takes its place.
  if (!closing && wslay_event_get_write_enabled(library_->context) != 0) {
    lastFrame_ = frameOf(role_, WebSocketOpcode::Close, closePayload(refusal_, {}));
    wslay_event_shutdown_write(library_->context);
  }
}

void WebSocketFraming::frameStarts(std::uint8_t opcode, std::uint64_t size) {
  insideControlFrame_ = wslay_is_ctrl_frame(opcode) != 0;
  insideCloseFrame_ = opcode == WSLAY_CONNECTION_CLOSE;
  // The library takes half a close code for none.
  if (opcode == WSLAY_CONNECTION_CLOSE && size == codeSize - 1) return refuse(WSLAY_CODE_PROTOCOL_ERROR);
  if (insideControlFrame_) return;
  if (opcode == WSLAY_BINARY_FRAME) return refuse(WSLAY_CODE_UNSUPPORTED_DATA);
  if (size > maxMessage_ - message_.size()) refuse(WSLAY_CODE_MESSAGE_TOO_BIG);
}

void WebSocketFraming::chunkArrives(std::string_view bytes) {
  if (refusal_ != 0) return;
  if (!insideControlFrame_) {
    message_.append(bytes);
  } else if (insideCloseFrame_) {
    closePayload_.append(bytes);
  }
}

// The library lets a reason pass that is not UTF-8 when it comes in pieces. This is called before the library
// answers the frame.
void WebSocketFraming::frameEnds() {
  if (!insideCloseFrame_ || refusal_ != 0 || closePayload_.size() <= codeSize) return;
  if (!isUtf8(std::string_view(closePayload_).substr(codeSize)))
    refuse(WSLAY_CODE_INVALID_FRAME_PAYLOAD_DATA);
}

void WebSocketFraming::refuse(std::uint16_t code) {
  if (refusal_ != 0) return;
  refusal_ = code;
  library_->queue(WebSocketOpcode::Close, closePayload(code, {}));
  wslay_event_shutdown_read(library_->context);
}

void WebSocketFraming::receivedText() {
  onText_(message_);
  message_.clear();
  if (message_.capacity() > keptMessage) message_.shrink_to_fit();
}

void WebSocketFraming::receivedClose(std::uint16_t code) {
  closeReceived_ = true;
  closeCode_ = closePayload_.size() < codeSize ? std::uint16_t{WSLAY_CODE_NO_STATUS_RCVD} : code;
}

std::string WebSocketFraming::closeReason() const {
  return !closeReceived_ || closePayload_.size() <= codeSize ? std::string() : closePayload_.substr(codeSize);
}

void WebSocketFraming::queueText(std::string_view text) { library_->queue(WebSocketOpcode::Text, text); }

void WebSocketFraming::queuePing() { library_->queue(WebSocketOpcode::Ping, {}); }

void WebSocketFraming::queueClose(int code, std::string_view reason) {
  closeQueued_ = true;
  library_->queue(WebSocketOpcode::Close, closePayload(code, reason));
}

void WebSocketFraming::stopWriting() {
  closeQueued_ = closeWritten_ = true;
  wslay_event_shutdown_write(library_->context);
}

bool WebSocketFraming::write(std::string& output) {
  output_ = &output;
  const bool sound = wslay_event_send(library_->context) == 0;
  output_ = nullptr;
  if (!lastFrame_.empty()) {
    output.append(lastFrame_);
    lastFrame_.clear();
    closeWritten_ = true;
  } else if (!closeWritten_ && wslay_event_get_close_sent(library_->context) != 0) {
    closeWritten_ = true;
    if (refusal_ != 0) refusal_ = wslay_event_get_status_code_sent(library_->context);
  }
  return sound;
}

bool WebSocketFraming::isReading() const { return wslay_event_get_read_enabled(library_->context) != 0; }

}  // namespace ferrox
