// An HTTP server that sends exactly the bytes a test wants, when it wants them, and nothing else.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace ferrox::test {

/// One accepted connection, in the hands of the script. Thread: the connection's
class ScriptedConnection {
 public:
  explicit ScriptedConnection(int socket, std::size_t index) : socket_(socket), index_(index) {}

  /// The how-manieth connection of its server this is, from 0.
  std::size_t index() const { return index_; }
  /// The next request up to and with its empty line; empty when the client has gone.
  std::string readRequest();
  /// Exactly `count` bytes; fewer when the client has gone.
  std::string read(std::size_t count);
  /// What one look at the socket brings, waiting for the first byte; empty when the client has gone.
  std::string readOnce();
  /// False when the client has gone.
  bool send(std::string_view bytes);
  /// Byte by byte, with a pause after each.
  bool drip(std::string_view bytes, std::chrono::milliseconds pause);
  /// Says nothing until the client goes or the server stops.
  void stall();
  /// Ends this side; what the client sends can still be read.
  void endSending();
  /// Ends the connection with a reset instead of an orderly end.
  void reset();

 private:
  friend class ScriptedHTTPServer;
  void close();
  void interrupt();

  std::mutex mutex_;
  int socket_;
  const std::size_t index_;
  std::string unread_;
};

/// Listens on one address; every connection runs the script on a thread of its own and is closed in an
/// orderly way when the script returns.
class ScriptedHTTPServer {
 public:
  using Script = std::function<void(ScriptedConnection&)>;

  explicit ScriptedHTTPServer(Script script, const std::string& address = "127.0.0.1",
                              std::uint16_t port = 0);
  ~ScriptedHTTPServer();
  ScriptedHTTPServer(const ScriptedHTTPServer&) = delete;
  ScriptedHTTPServer& operator=(const ScriptedHTTPServer&) = delete;

  /// A script that answers every request of a connection with `answer`.
  static Script answeringWith(std::string answer);
  /// A whole answer with a Content-Length.
  static std::string answer(std::string_view body, std::string_view statusLine = "HTTP/1.1 200 OK");

  std::uint16_t port() const { return port_; }
  std::string url(std::string_view path = "/") const;
  std::size_t acceptCount() const { return acceptCount_; }
  std::size_t openCount() const { return openCount_; }
  std::size_t highestOpenCount() const { return highestOpenCount_; }

 private:
  void acceptConnections();
  void serve(const std::shared_ptr<ScriptedConnection>& connection);

  const Script script_;
  const std::string address_;
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<std::size_t> acceptCount_{0};
  std::atomic<std::size_t> openCount_{0};
  std::atomic<std::size_t> highestOpenCount_{0};
  std::mutex mutex_;
  std::vector<std::shared_ptr<ScriptedConnection>> connections_;
  std::vector<std::thread> threads_;
  std::thread acceptThread_;
};

}  // namespace ferrox::test
