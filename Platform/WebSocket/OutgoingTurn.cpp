#include "Platform/WebSocket/OutgoingTurn.h"

#include <map>
#include <mutex>
#include <utility>

#include "Platform/Net/IOThread.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/WebSocket/OutgoingQueue.h"
#include "Platform/WebSocket/WebSocketClientConnection.h"

namespace ferrox {
namespace {

/// Beyond, a turn is handed over before it ends: no peer takes more at once anyway.
constexpr std::size_t fullTurn = 256 * 1024;

}  // namespace

struct OutgoingTurn::Batch {
  OutgoingQueue::Bytes shared;
  OutgoingQueue::Bytes single;
  std::vector<Piece> pieces;
};

std::shared_ptr<OutgoingTurn> OutgoingTurn::of(RunLoop& loop) {
  static std::mutex& mutex = *new std::mutex;
  static auto& turns = *new std::map<RunLoop*, std::weak_ptr<OutgoingTurn>>;
  const std::lock_guard lock(mutex);
  std::erase_if(turns, [](const auto& entry) { return entry.second.expired(); });
  std::weak_ptr<OutgoingTurn>& known = turns[&loop];
  auto turn = known.lock();
  if (!turn) known = turn = std::make_shared<OutgoingTurn>(loop);
  return turn;
}

OutgoingTurn::Stretch OutgoingTurn::frame(Buffer buffer, WebSocketOpcode opcode, std::string_view payload) {
  if (shared_.size() + single_.size() >= fullTurn) flush();
  schedule();
  std::string& bytes = bytesOf(buffer);
  const std::size_t begin = bytes.size();
  appendMaskedFrame(bytes, opcode, payload, keys_.next());
  return {begin, bytes.size()};
}

void OutgoingTurn::begin(Place& place, const std::shared_ptr<WebSocketClientConnection>& connection,
                         Buffer buffer, Stretch stretch) {
  if (pieces_.empty()) pieces_.reserve(lastPieces_);
  place = {turn_, pieces_.size()};
  pieces_.push_back({connection, stretch.begin, stretch.end, buffer});
}

void OutgoingTurn::schedule() {
  if (std::exchange(scheduled_, true)) return;
  loop_.post([self = shared_from_this()] {
    self->scheduled_ = false;
    self->flush();
  });
}

void OutgoingTurn::flush() {
  ++turn_;
  lastPieces_ = pieces_.size();
  auto batch = std::make_shared<Batch>();
  for (Piece& piece : pieces_) {
    if (!piece.connection->admit(piece.end - piece.begin)) piece.kind = Kind::Overflow;
  }
  batch->pieces = std::exchange(pieces_, {});
  batch->shared = std::make_shared<const std::string>(std::exchange(shared_, {}));
  batch->single = std::make_shared<const std::string>(std::exchange(single_, {}));
  if (batch->pieces.empty()) return;
  IOThread::shared().post([batch = std::move(batch)] { send(*batch); });
}

void OutgoingTurn::send(const Batch& batch) {
  for (const Piece& piece : batch.pieces) {
    if (piece.kind == Kind::Overflow) {
      piece.connection->failFull();
    } else {
      piece.connection->enqueue(piece.buffer == Buffer::Shared ? batch.shared : batch.single, piece.begin,
                                piece.end, piece.kind == Kind::Closing);
    }
  }
  for (const Piece& piece : batch.pieces) piece.connection->flush();
}

}  // namespace ferrox
