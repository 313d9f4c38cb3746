// Client side of a WebSocket (RFC 6455): one connection to a peer, from dialling to the closing handshake.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"

namespace ferrox {

class HostNameResolver;
class RunLoop;
class WebSocketClient;

/// As in the WebSockets interface of browsers, with the same numbers.
enum class WebSocketReadyState { Connecting = 0, Open = 1, Closing = 2, Closed = 3 };

/// Where to connect and within which limits.
struct WebSocketClientRequest {
  /// "ws://HOST[:PORT]/PATH[?QUERY]".
  std::string url;
  /// From `open()` to the end of the opening handshake, look-up included.
  std::chrono::milliseconds connectTimeout = std::chrono::seconds(10);
  /// Waited before dialling and not counted as connecting time, so that many clients which are opened in one
  /// instant do not all dial in it.
  std::chrono::milliseconds dialDelay{0};
  /// A peer that sent nothing for that long is pinged; 0 never pings.
  std::chrono::milliseconds pingInterval = std::chrono::seconds(20);
  /// A ping without any sign of the peer for that long fails the socket.
  std::chrono::milliseconds pongTimeout = std::chrono::seconds(10);
  /// For the peer's part of the closing handshake; then the connection is cut.
  std::chrono::milliseconds closeTimeout = std::chrono::seconds(5);
  std::size_t maxMessage = std::size_t{4} << 20;  ///< bytes; close code 1009
  std::size_t maxSendQueue = std::size_t{8}
                             << 20;  ///< bytes not yet taken by the peer; beyond, the socket fails
};

/// Errors of opening a socket, and of reading from one.
inline constexpr const char* WebSocketClientErrorDomain = "com.ferrox.websocket.ErrorDomain";
/// The URL is no ws URL with a host.
inline constexpr int WebSocketClientErrorBadURL = 1;
/// The other side answered the handshake, but not with an upgrade to this protocol.
inline constexpr int WebSocketClientErrorHandshake = 2;
/// Nothing came of the handshake in time.
inline constexpr int WebSocketClientErrorTimedOut = 3;
/// The connection ended without a closing handshake before this side had asked for one.
inline constexpr int WebSocketClientErrorConnectionLost = 4;
/// A ping went unanswered.
inline constexpr int WebSocketClientErrorNoPong = 5;
/// The peer does not read: its send queue passed the limit.
inline constexpr int WebSocketClientErrorSendQueueFull = 6;

/// Told about one client. After `open()` there is exactly one of "did fail" and "did close", and nothing
/// after it. The client's state has changed before its listener is told. Thread: main
class FRX_EXPORT WebSocketClientDelegate {
 public:
  virtual ~WebSocketClientDelegate() = default;
  virtual void webSocketDidOpen(WebSocketClient& socket) { (void)socket; }
  /// Connecting failed, or an open connection broke. A failed look-up or connection keeps its own domain.
  virtual void webSocketDidFailWithError(WebSocketClient& socket, const FRXError& error) {
    (void)socket, (void)error;
  }
  /// `code` is the peer's close code, 1005 when it gave none, 1006 when a connection that this side was
  /// closing ended without a close frame; or the code with which this side refused what the peer sent, not
  /// clean. `wasClean`: both sides sent their close frame.
  virtual void webSocketDidCloseWithCode(WebSocketClient& socket, int code, const std::string& reason,
                                         bool wasClean) {
    (void)socket, (void)code, (void)reason, (void)wasClean;
  }
  virtual void webSocketDidReceiveMessage(WebSocketClient& socket, std::string_view text) {
    (void)socket, (void)text;
  }
};

/// Sends and receives text. Everything sent in one turn of the main loop leaves in one send, in order with
/// pongs and close frames. Pings are answered. A binary message is refused with close code 1003, one above
/// the size limit with 1009, text that is not UTF-8 with 1007. A peer that sends more than the main thread
/// takes is not read any further until it has caught up. Dropping the last reference cuts the connection, or
/// lets a closing handshake that has begun end by itself.
/// Thread: main
class FRX_EXPORT WebSocketClient {
 public:
  virtual ~WebSocketClient() = default;

  /// A client of its own over real sockets, not yet dialling. Empty, with `error` filled, when the URL cannot
  /// be one: another scheme, an unusable host, user information, a fragment, control characters or blanks.
  [[nodiscard]] static std::shared_ptr<WebSocketClient> make(const WebSocketClientRequest& request,
                                                             HostNameResolver& resolver, RunLoop& mainLoop,
                                                             FRXError* error = nullptr);
  /// Sends one text to many, framed once (with a fresh random masking key for each text; RFC 6455 section 5.3
  /// asks that no peer can predict it). Clients that are not open are skipped. How many took it.
  static std::size_t broadcast(std::span<const std::shared_ptr<WebSocketClient>> clients,
                               std::string_view text);

  /// Held weakly.
  virtual void setDelegate(std::weak_ptr<WebSocketClientDelegate> delegate) = 0;
  virtual std::shared_ptr<WebSocketClientDelegate> delegate() const = 0;

  /// Dials; a second call does nothing.
  virtual void open() = 0;
  /// Starts the closing handshake, or ends dialling. Does nothing when closing or closed.
  virtual void close(int code = 1000, const std::string& reason = {}) = 0;
  /// Queues one text. False, with nothing queued, unless open, and for a text that is not UTF-8.
  virtual bool send(std::string_view text) = 0;
  /// Pings at once, as if the peer had been quiet for long; for a machine that has just woken up.
  virtual void checkNow() = 0;

  /// `Connecting` from the beginning.
  virtual WebSocketReadyState readyState() const = 0;
  virtual const std::string& url() const = 0;
  /// Bytes of earlier turns of the main loop that wait until the peer takes them.
  virtual std::size_t unsentBytes() const { return 0; }
  /// The close code with which something the peer sent was refused, from the end of the connection on; 0 when
  /// nothing was.
  virtual int refusal() const { return 0; }
};

}  // namespace ferrox
