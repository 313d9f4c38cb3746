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
    const Inside inside(*this, socket, WebSocketReadyState::Open);
    ++opened;
    if (onOpen) onOpen(socket);
  }
  void webSocketDidFailWithError(WebSocketClient& socket, const FRXError& error) override {
    const Inside inside(*this, socket, WebSocketReadyState::Closed);
    failures.push_back(error);
  }
  void webSocketDidCloseWithCode(WebSocketClient& socket, int code, const std::string& reason,
                                 bool wasClean) override {
    const Inside inside(*this, socket, WebSocketReadyState::Closed);
    closes.push_back({code, reason, wasClean});
  }
  void webSocketDidReceiveMessage(WebSocketClient& socket, std::string_view text) override {
    const Inside inside(*this, socket, WebSocketReadyState::Open);
    messages.emplace_back(text);
    if (onMessage) onMessage(socket, text);
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
  /// One event; the next must not begin before it is over.
  struct Inside {
    Inside(RecordingDelegate& delegate, WebSocketClient& socket, WebSocketReadyState expected)
        : owner(delegate) {
      EXPECT_TRUE(owner.loop_.isCurrentThread());
      EXPECT_FALSE(owner.inside_) << "told inside another event";
      EXPECT_FALSE(owner.hasEnded()) << "told after the end";
      EXPECT_EQ(socket.readyState(), expected);
      owner.inside_ = true;
    }
    ~Inside() { owner.inside_ = false; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    RecordingDelegate& owner;
  };

  RunLoop& loop_;
  bool inside_ = false;
};

inline std::ostream& operator<<(std::ostream& out, const RecordingDelegate::Close& close) {
  return out << close.code << " \"" << close.reason << "\" " << (close.wasClean ? "clean" : "not clean");
}

}  // namespace ferrox::test
