// Server side of a WebSocket (RFC 6455): the endpoint that an upgraded connection is handed to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"

namespace ferrox {

class WebSocket;

/// Told about one endpoint. Thread: the connection's network thread
class FRX_EXPORT WebSocketListener {
 public:
  virtual ~WebSocketListener() = default;
  virtual void webSocketDidOpen(WebSocket& socket) { (void)socket; }
  virtual void webSocketDidReceiveMessage(WebSocket& socket, std::string_view text) {
    (void)socket, (void)text;
  }
  /// Exactly once for every endpoint that opened, however it ended.
  virtual void webSocketDidClose(WebSocket& socket) { (void)socket; }
};

/// The upgraded connection below an endpoint. Made by the server.
/// Thread: any
class FRX_EXPORT WebSocketTransport {
 public:
  virtual ~WebSocketTransport() = default;
  /// Queues one text message; messages keep their order. A queue over its limit ends the connection. False,
  /// with nothing queued, once the connection has ended.
  virtual bool sendText(std::string text) = 0;
  /// Starts the closing handshake.
  virtual void close(std::uint16_t code, std::string reason) = 0;
  /// Off: nothing more is read from the peer, who comes to wait, until it is switched on again. Messages that
  /// have been read already still arrive.
  virtual void setReading(bool reading) = 0;
  /// The peer's address without a port.
  virtual std::string connectedHost() const = 0;
  virtual std::uint16_t localPort() const = 0;
  /// Bytes that wait until the peer takes them.
  virtual std::size_t unsentBytes() const { return 0; }
  /// The close code with which something the peer sent was refused; 0 when nothing was. Thread: network
  virtual int refusal() const { return 0; }
  /// The connection was ended because the peer does not read. Thread: network
  virtual bool wasOverfull() const { return false; }
};

/// An inbound socket. Pings are answered and the closing handshake is kept by the server. A binary message
/// is refused with close code 1003, one above the size limit with 1009, text that is not UTF-8 with 1007.
class FRX_EXPORT WebSocket {
 public:
  explicit WebSocket(std::shared_ptr<WebSocketTransport> transport) : transport_(std::move(transport)) {}
  virtual ~WebSocket() = default;

  /// Before the upgrade is answered, on the network thread. Held weakly.
  void setDelegate(std::weak_ptr<WebSocketListener> listener) { delegate_ = std::move(listener); }
  std::shared_ptr<WebSocketListener> delegate() const { return delegate_.lock(); }

  /// False once the connection has ended.
  bool sendMessage(std::string text) { return transport_->sendText(std::move(text)); }
  void close(std::uint16_t code = 1000, std::string reason = {}) {
    transport_->close(code, std::move(reason));
  }
  void setReading(bool reading) { transport_->setReading(reading); }
  std::string connectedHost() const { return transport_->connectedHost(); }
  std::uint16_t localPort() const { return transport_->localPort(); }
  std::size_t unsentBytes() const { return transport_->unsentBytes(); }

 protected:
  const WebSocketTransport& transport() const { return *transport_; }

 private:
  std::shared_ptr<WebSocketTransport> transport_;
  std::weak_ptr<WebSocketListener> delegate_;
};

}  // namespace ferrox
