// Remembers what one client socket told its listener.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/RunLoop/RunLoop.h"
#include "Platform/WebSocket/WebSocketClient.h"

namespace ferrox::test {

class RecordingDelegate : public WebSocketClientDelegate {
 public:
  explicit RecordingDelegate(RunLoop& loop) : loop_(loop) {}

  struct Close {
    int code;
    std::string reason;
    bool wasClean;
    bool operator==(const Close&) const = default;
  };

  void webSocketDidOpen(WebSocketClient& socket) override {
    begin(socket, WebSocketReadyState::Open);
    ++opened;
    if (onOpen) onOpen(socket);
    inside_ = false;
  }
  void webSocketDidFailWithError(WebSocketClient& socket, const FRXError& error) override {
    begin(socket, WebSocketReadyState::Closed);
    failures.push_back(error);
    inside_ = false;
  }
  void webSocketDidCloseWithCode(WebSocketClient& socket, int code, const std::string& reason,
                                 bool wasClean) override {
    begin(socket, WebSocketReadyState::Closed);
    closes.push_back({code, reason, wasClean});
    inside_ = false;
  }
  void webSocketDidReceiveMessage(WebSocketClient& socket, std::string_view text) override {
    begin(socket, WebSocketReadyState::Open);
    messages.emplace_back(text);
    if (onMessage) onMessage(socket, text);
    inside_ = false;
  }

  bool hasEnded() const { return !failures.empty() || !closes.empty(); }
  std::size_t endCount() const { return failures.size() + closes.size(); }
  int failureCode() const { return failures.empty() ? 0 : failures.back().code; }

  int opened = 0;
  std::vector<std::string> messages;
  std::vector<FRXError> failures;
  std::vector<Close> closes;
  std::function<void(WebSocketClient&)> onOpen;
  std::function<void(WebSocketClient&, std::string_view)> onMessage;

 private:
  void begin(WebSocketClient& socket, WebSocketReadyState expected) {
    EXPECT_TRUE(loop_.isCurrentThread());
    EXPECT_FALSE(inside_) << "told inside another event";
    EXPECT_FALSE(hasEnded()) << "told after the end";
    EXPECT_EQ(socket.readyState(), expected);
    inside_ = true;
  }

  RunLoop& loop_;
  bool inside_ = false;
};

inline std::ostream& operator<<(std::ostream& out, const RecordingDelegate::Close& close) {
  return out << close.code << " \"" << close.reason << "\" " << (close.wasClean ? "clean" : "not clean");
}

}  // namespace ferrox::test
