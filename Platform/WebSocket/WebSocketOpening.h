// The client's part of the opening handshake (RFC 6455 sections 4.1 and 4.2.2).
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/WebSocket/WebSocketURL.h"

namespace ferrox {

/// One handshake: its request, and the judgement of the answer.
/// Thread: one at a time
class WebSocketOpening {
 public:
  /// Draws a fresh key. Throws `std::system_error` when the system has no random bytes.
  explicit WebSocketOpening(const WebSocketURL& url);
  /// With a given key of 24 characters of base64.
  WebSocketOpening(const WebSocketURL& url, std::string key);
  ~WebSocketOpening();
  WebSocketOpening(const WebSocketOpening&) = delete;
  WebSocketOpening& operator=(const WebSocketOpening&) = delete;

  const std::string& request() const { return request_; }

  enum class State { NeedMore, Accepted, Refused };
  /// Takes what the server sent; to be called until the state is another than `NeedMore`.
  State read(std::string_view bytes);
  /// What followed the answer: the first frames.
  std::string_view rest() const { return unread_; }
  /// Why the answer was refused, for people.
  const std::string& refusal() const { return refusal_; }

 private:
  State judge();
  State refuse(std::string why);

  struct Parser;
  const std::string key_;
  std::string request_;
  std::unique_ptr<Parser> parser_;
  std::string unread_;
  std::string refusal_;
};

}  // namespace ferrox
