// The main thread's half of a client socket: its state, its listener, and what it sends.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Platform/WebSocket/OutgoingTurn.h"
#include "Platform/WebSocket/WebSocketClient.h"
#include "Platform/WebSocket/WebSocketClientConnection.h"
#include "Platform/WebSocket/WebSocketURL.h"

namespace ferrox {

class HostConnector;
class Timer;

/// Thread: main
class WebSocketClientSocket final : public WebSocketClient,
                                    public WebSocketClientConnectionListener,
                                    public std::enable_shared_from_this<WebSocketClientSocket> {
 public:
  WebSocketClientSocket(const WebSocketClientRequest& request, WebSocketURL url, HostNameResolver& resolver,
                        RunLoop& mainLoop);
  ~WebSocketClientSocket() override;

  void setDelegate(std::weak_ptr<WebSocketClientDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  std::shared_ptr<WebSocketClientDelegate> delegate() const override { return delegate_.lock(); }
  void open() override;
  void close(int code, const std::string& reason) override;
  bool send(std::string_view text) override;
  void checkNow() override;
  WebSocketReadyState readyState() const override { return state_; }
  const std::string& url() const override { return request_.url; }
  std::size_t unsentBytes() const override { return connection_ ? connection_->waitingBytes() : 0; }
  int refusal() const override { return refusal_; }

  void connectionDidOpen() override;
  void connectionDidReceive(const ReceivedTexts& texts) override;
  void connectionDidEnd(const WebSocketEnding& ending) override;

 private:
  friend class WebSocketClient;

  void dial();
  void stopDialling();
  void didClose(int code, const std::string& reason, bool wasClean);
  template <typename Tell>
  void tellDelegate(const Tell& tell);

  // Together, because a broadcast looks at nothing else.
  WebSocketReadyState state_ = WebSocketReadyState::Connecting;
  OutgoingTurn::Place place_;
  std::shared_ptr<OutgoingTurn> turn_;
  std::shared_ptr<WebSocketClientConnection> connection_;

  const WebSocketClientRequest request_;
  const WebSocketURL target_;
  HostNameResolver& resolver_;
  RunLoop& mainLoop_;
  std::weak_ptr<WebSocketClientDelegate> delegate_;
  std::unique_ptr<Timer> dialTimer_;
  std::shared_ptr<HostConnector> connector_;
  bool opened_ = false;
  bool ended_ = false;
  int refusal_ = 0;
};

}  // namespace ferrox
