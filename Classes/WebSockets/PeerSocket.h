// A client socket together with the peer it was opened for.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/WebSocket/WebSocketClient.h"

namespace ferrox {

class PeerSocket;

/// Told what happens on the sockets to the peers. Thread: main
class FRX_EXPORT PeerSocketListener {
 public:
  virtual ~PeerSocketListener() = default;
  virtual void webSocketDidOpen(const std::shared_ptr<PeerSocket>& socket) = 0;
  virtual void webSocketDidFailWithError(const std::shared_ptr<PeerSocket>& socket,
                                         const FRXError& error) = 0;
  virtual void webSocketDidCloseWithCode(const std::shared_ptr<PeerSocket>& socket, int code,
                                         const std::string& reason, bool wasClean) = 0;
  virtual void webSocketDidReceiveMessage(const std::shared_ptr<PeerSocket>& socket,
                                          std::string_view text) = 0;
  /// A socket nobody is told about any more has ended.
  virtual void detachedSocketDidEnd(const std::shared_ptr<PeerSocket>& socket) = 0;
};

/// Thread: main
class FRX_EXPORT PeerSocket final : public WebSocketClientDelegate,
                                    public std::enable_shared_from_this<PeerSocket> {
 public:
  /// `client` reports to the new object from now on. The listener has to outlive it.
  static std::shared_ptr<PeerSocket> make(std::shared_ptr<WebSocketClient> client, std::string lookupId,
                                          std::string destinationAddress, PeerSocketListener& listener);

  /// The service id of the peer this socket was opened for, under which it is filed.
  const std::string& lookupId() const { return lookupId_; }
  /// The peer's "HOST:port" when the socket was opened.
  const std::string& destinationAddress() const { return destinationAddress_; }
  const std::shared_ptr<WebSocketClient>& client() const { return client_; }
  bool isOpen() const { return client_->readyState() == WebSocketReadyState::Open; }

  /// From now on the listener hears of the end only.
  void detach() { detached_ = true; }

  void webSocketDidOpen(WebSocketClient& socket) override;
  void webSocketDidFailWithError(WebSocketClient& socket, const FRXError& error) override;
  void webSocketDidCloseWithCode(WebSocketClient& socket, int code, const std::string& reason,
                                 bool wasClean) override;
  void webSocketDidReceiveMessage(WebSocketClient& socket, std::string_view text) override;

 private:
  PeerSocket(std::shared_ptr<WebSocketClient> client, std::string lookupId, std::string destinationAddress,
             PeerSocketListener& listener);

  const std::shared_ptr<WebSocketClient> client_;
  const std::string lookupId_;
  const std::string destinationAddress_;
  PeerSocketListener& listener_;
  bool detached_ = false;
};

}  // namespace ferrox
