// One connected stream socket on one network thread.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "Platform/HTTP/Server/StreamChannel.h"

namespace ferrox {

class NetworkThread;
struct ServerCounters;

/// Thread: network
class SocketChannel final : public StreamChannel {
 public:
  /// Takes `descriptor` (non-blocking, connected) over. What is sent is counted.
  SocketChannel(NetworkThread& thread, int descriptor, std::shared_ptr<ServerCounters> counters);
  ~SocketChannel() override;
  SocketChannel(const SocketChannel&) = delete;
  SocketChannel& operator=(const SocketChannel&) = delete;

  void receive(std::span<char> space, std::shared_ptr<Session> session) override;
  void awaitWritable(std::shared_ptr<Session> session) override;
  ssize_t sendNow(const char* bytes, std::size_t count, bool more = false) override;
  /// As sendfile(2).
  ssize_t sendFile(int file, off_t& position, std::size_t count);
  /// Holds partial segments back while set (TCP_CORK).
  void setCorked(bool corked);
  void enableKeepAliveProbes() override;
  void shutDownSending() override;
  void close() override;
  bool isOpen() const;

  /// True when the peer is this very machine, so that bytes never reach a network card.
  bool isPeerLocal() const { return peerLocal_; }
  const std::string& peerHost() const override { return peerHost_; }
  std::uint16_t localPort() const override { return localPort_; }

 private:
  int descriptor() const;
  void readAddresses();

  struct Impl;
  std::unique_ptr<Impl> impl_;
  const std::shared_ptr<ServerCounters> counters_;
  std::string peerHost_;
  std::uint16_t localPort_ = 0;
  bool peerLocal_ = false;
  bool corked_ = false;
};

}  // namespace ferrox
