// What one client, or all together, may ask of the HTTP server.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace ferrox {

/// Set before the server starts. A request beyond a limit is answered with the status named here and the
/// connection is closed.
struct HTTPServerLimits {
  std::size_t requestLine = std::size_t{8} << 10;         ///< bytes; 414
  std::size_t headerBlock = std::size_t{16} << 10;        ///< bytes of all header lines; 431
  std::size_t headerCount = 128;                          ///< header lines; 431
  std::size_t body = std::size_t{1} << 20;                ///< bytes; 413
  std::size_t connections = 1024;                         ///< in all; the newest is closed unanswered
  std::size_t connectionsPerAddress = 256;                ///< from one remote address; likewise
  std::size_t webSocketMessage = std::size_t{4} << 20;    ///< bytes; close code 1009
  std::size_t webSocketSendQueue = std::size_t{8} << 20;  ///< bytes not yet taken by the peer; then cut
  /// First byte to end of header; 408. A new connection that sends nothing for that long is closed.
  std::chrono::milliseconds headerDeadline = std::chrono::seconds(10);
  std::chrono::milliseconds idleTimeout = std::chrono::seconds(75);  ///< between requests; closed
  std::chrono::milliseconds bodyTimeout = std::chrono::seconds(30);  ///< without progress either way; cut
  std::chrono::milliseconds webSocketCloseTimeout = std::chrono::seconds(5);  ///< for the closing handshake
  /// Without a sign of the peer; it is pinged after half of that, then cut.
  std::chrono::milliseconds webSocketIdleTimeout = std::chrono::minutes(5);
};

/// Who may upgrade to a WebSocket. A web page must not be able to join: neither from another origin, nor by
/// a host name of its own that it has rebound to this machine.
struct WebSocketAccess {
  /// Origins accepted besides the server's own host, for example "https://panel.example.org".
  std::vector<std::string> allowedOrigins;
  /// `Host` values accepted besides IP literals, localhost, the machine's own name and names under .local.
  std::vector<std::string> allowedHosts;
};

}  // namespace ferrox
