// What one connection has still to send: stretches of buffers that may be shared with other connections.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace ferrox {

class ByteChannel;

/// Thread: one at a time
class OutgoingQueue {
 public:
  using Bytes = std::shared_ptr<const std::string>;

  void append(Bytes bytes, std::size_t begin, std::size_t end);
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  void clear();

  struct Outcome {
    std::size_t sent = 0;
    int error = 0;  ///< of errno; 0 when all is well
  };
  /// Sends until nothing is left or the channel takes no more. Everything goes into one call as long as the
  /// system takes it.
  Outcome sendTo(ByteChannel& channel);

 private:
  struct Piece {
    Bytes bytes;
    std::size_t begin;
    std::size_t end;
  };

  void drop(std::size_t count);
  void keepApart();

  std::vector<Piece> pieces_;
  /// The pieces before this one are sent.
  std::size_t first_ = 0;
  std::size_t size_ = 0;
};

}  // namespace ferrox
