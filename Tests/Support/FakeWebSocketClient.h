// A client socket whose other side is the test.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/WebSocket/WebSocketClient.h"

namespace ferrox::test {

/// Thread: main
class FakeWebSocketClient final : public WebSocketClient {
 public:
  explicit FakeWebSocketClient(WebSocketClientRequest request) : request_(std::move(request)) {}

  void setDelegate(std::weak_ptr<WebSocketClientDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  std::shared_ptr<WebSocketClientDelegate> delegate() const override { return delegate_.lock(); }
  void open() override { ++opened; }
  void close(int code, const std::string&) override {
    if (state_ == WebSocketReadyState::Closing || state_ == WebSocketReadyState::Closed) return;
    closeCode = code;
    state_ = WebSocketReadyState::Closing;
  }
  bool send(std::string_view text) override {
    if (state_ != WebSocketReadyState::Open) return false;
    sent.emplace_back(text);
    return true;
  }
  void checkNow() override { ++checked; }
  WebSocketReadyState readyState() const override { return state_; }
  const std::string& url() const override { return request_.url; }

  // What happens on the wire.
  void peerAccepts() {
    state_ = WebSocketReadyState::Open;
    if (const auto listener = delegate()) listener->webSocketDidOpen(*this);
  }
  void peerSends(std::string_view text) {
    if (const auto listener = delegate()) listener->webSocketDidReceiveMessage(*this, text);
  }
  void fails(const std::string& description) {
    state_ = WebSocketReadyState::Closed;
    if (const auto listener = delegate()) {
      listener->webSocketDidFailWithError(*this, {WebSocketClientErrorDomain, 1, description});
    }
  }
  void ends(int code = 1000, const std::string& reason = {}, bool wasClean = true) {
    state_ = WebSocketReadyState::Closed;
    if (const auto listener = delegate()) {
      listener->webSocketDidCloseWithCode(*this, code, reason, wasClean);
    }
  }

  const WebSocketClientRequest& request() const { return request_; }
  std::vector<std::string> sent;
  int opened = 0;
  int checked = 0;
  int closeCode = 0;

 private:
  const WebSocketClientRequest request_;
  WebSocketReadyState state_ = WebSocketReadyState::Connecting;
  std::weak_ptr<WebSocketClientDelegate> delegate_;
};

}  // namespace ferrox::test
