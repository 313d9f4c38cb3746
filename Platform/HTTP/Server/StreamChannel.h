// A connected byte stream on one network thread, as an upgraded connection sees it.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace ferrox {

class Session;

/// Sends at once and without blocking; receives and waits asynchronously, keeping the session alive that is
/// told about the outcome. Thread: network
class StreamChannel {
 public:
  virtual ~StreamChannel() = default;

  /// One at a time; `space` must stay in place until the session is told.
  virtual void receive(std::span<char> space, std::shared_ptr<Session> session) = 0;
  virtual void awaitWritable(std::shared_ptr<Session> session) = 0;

  /// Bytes taken by the system; 0 when it takes none now, negative when the socket is broken or, with
  /// errno EFAULT, the memory is gone. `more` announces that further bytes follow at once.
  virtual ssize_t sendNow(const char* bytes, std::size_t count, bool more = false) = 0;
  virtual void enableKeepAliveProbes() = 0;
  /// Ends our side; the peer's can still be read.
  virtual void shutDownSending() = 0;
  virtual void close() = 0;

  /// The peer's address without a port.
  virtual const std::string& peerHost() const = 0;
  virtual std::uint16_t localPort() const = 0;
};

}  // namespace ferrox
