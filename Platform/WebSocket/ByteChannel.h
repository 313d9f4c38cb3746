// A connected byte stream as the protocols above it see it.
#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include <span>

namespace ferrox {

/// Never blocks; results are those of the system's calls: bytes, 0 at the peer's end, or -1 with errno
/// (EAGAIN: nothing now). Thread: one at a time
class ByteChannel {
 public:
  virtual ~ByteChannel() = default;
  virtual ssize_t receive(std::span<char> space) = 0;
  virtual ssize_t send(std::span<const iovec> pieces) = 0;
  /// Which of the two the owner waits for from now on.
  virtual void await(bool readable, bool writable) = 0;
  /// Ends our side; the peer's can still be read.
  virtual void shutDownSending() = 0;
};

}  // namespace ferrox
