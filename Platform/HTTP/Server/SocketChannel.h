// One connected stream socket on one network thread.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace ferrox {

class NetworkThread;
class Session;

/// Sends at once and without blocking; receives and waits asynchronously, keeping the session alive that is
/// told about the outcome. Thread: network
class SocketChannel {
 public:
  /// Takes `descriptor` (non-blocking, connected) over.
  SocketChannel(NetworkThread& thread, int descriptor);
  ~SocketChannel();
  SocketChannel(const SocketChannel&) = delete;
  SocketChannel& operator=(const SocketChannel&) = delete;

  /// One at a time; `space` must stay in place until the session is told.
  void receive(std::span<char> space, std::shared_ptr<Session> session);
  void awaitWritable(std::shared_ptr<Session> session);

  /// Bytes taken by the system; 0 when it takes none now, negative when the socket is broken or, with
  /// errno EFAULT, the memory is gone. `more` announces that further bytes follow at once.
  ssize_t sendNow(const char* bytes, std::size_t count, bool more = false);
  /// Holds partial segments back while set (TCP_CORK).
  void setCorked(bool corked);
  void enableKeepAliveProbes();
  /// Ends our side; the peer's can still be read.
  void shutDownSending();
  void close();
  bool isOpen() const;

  int descriptor() const;
  /// True when the peer is this very machine, so that bytes never reach a network card.
  bool isPeerLocal() const { return peerLocal_; }
  /// The peer's address without a port.
  const std::string& peerHost() const { return peerHost_; }
  std::uint16_t localPort() const { return localPort_; }

 private:
  void readAddresses();

  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::string peerHost_;
  std::uint16_t localPort_ = 0;
  bool peerLocal_ = false;
  bool corked_ = false;
};

}  // namespace ferrox
