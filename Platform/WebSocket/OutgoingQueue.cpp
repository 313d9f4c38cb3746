#include "Platform/WebSocket/OutgoingQueue.h"

#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <utility>

#include "Platform/WebSocket/ByteChannel.h"

namespace ferrox {
namespace {

constexpr std::size_t maxPiecesAtOnce = 64;
constexpr std::size_t smallPart = 8;

}  // namespace

void OutgoingQueue::append(Bytes bytes, std::size_t begin, std::size_t end) {
  if (begin == end) return;
  size_ += end - begin;
  pieces_.push_back({std::move(bytes), begin, end});
}

void OutgoingQueue::clear() {
  pieces_.clear();
  first_ = size_ = 0;
}

OutgoingQueue::Outcome OutgoingQueue::sendTo(ByteChannel& channel) {
  Outcome outcome;
  while (size_ > 0) {
    std::array<iovec, maxPiecesAtOnce> list;
    const std::size_t count = std::min(list.size(), pieces_.size() - first_);
    for (std::size_t i = 0; i < count; ++i) {
      const Piece& piece = pieces_[first_ + i];
      list[i] = {const_cast<char*>(piece.bytes->data() + piece.begin), piece.end - piece.begin};
    }
    const ssize_t sent = channel.send(std::span(list.data(), count));
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) {
      if (errno != EAGAIN && errno != EWOULDBLOCK) outcome.error = errno;
      break;
    }
    outcome.sent += static_cast<std::size_t>(sent);
    drop(static_cast<std::size_t>(sent));
  }
  if (!empty() && outcome.error == 0) keepApart();
  return outcome;
}

void OutgoingQueue::drop(std::size_t count) {
  size_ -= count;
  while (count > 0) {
    Piece& piece = pieces_[first_];
    const std::size_t part = std::min(count, piece.end - piece.begin);
    piece.begin += part;
    count -= part;
    if (piece.begin == piece.end) {
      piece.bytes.reset();
      ++first_;
    }
  }
  if (size_ == 0) {
    pieces_.clear();
    first_ = 0;
  }
}

// A little that waits for a slow peer must not keep a large shared buffer in memory.
void OutgoingQueue::keepApart() {
  pieces_.erase(pieces_.begin(), pieces_.begin() + static_cast<std::ptrdiff_t>(first_));
  first_ = 0;
  for (Piece& piece : pieces_) {
    const std::size_t count = piece.end - piece.begin;
    if (piece.bytes->size() / smallPart < count) continue;
    piece.bytes = std::make_shared<const std::string>(*piece.bytes, piece.begin, count);
    piece.begin = 0;
    piece.end = count;
  }
}

}  // namespace ferrox
