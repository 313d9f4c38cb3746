// What the client sockets of one main loop send in one turn of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/WebSocket/MaskingKeys.h"
#include "Platform/WebSocket/WebSocketFrame.h"

namespace ferrox {

class RunLoop;
class WebSocketClientConnection;

/// Collects frames until the turn is over, then hands all of them to the I/O thread in one task. Frames for
/// many stand once in a buffer that all share; a socket holds stretches of it, and a stretch that continues
/// the last one only makes that one longer. Frames for one socket stand in a buffer of their own, so that the
/// stretches of the others stay whole.
/// Thread: main
class OutgoingTurn : public std::enable_shared_from_this<OutgoingTurn> {
 public:
  enum class Buffer : std::uint8_t { Shared, Single };
  /// Where a framed message stands.
  struct Stretch {
    std::size_t begin;
    std::size_t end;
  };
  /// What a socket remembers of the turn; zeros at first.
  struct Place {
    std::uint64_t turn = 0;
    std::size_t piece = 0;
  };

  /// The one of `loop`, made when it is needed.
  static std::shared_ptr<OutgoingTurn> of(RunLoop& loop);
  explicit OutgoingTurn(RunLoop& loop) : loop_(loop) {}

  /// Frames a text. It leaves through everyone who `add`s the result before the next one is framed.
  Stretch frame(Buffer buffer, WebSocketOpcode opcode, std::string_view payload);
  void add(Place& place, const std::shared_ptr<WebSocketClientConnection>& connection, Buffer buffer,
           Stretch stretch) {
    if (place.turn == turn_) {
      Piece& last = pieces_[place.piece];
      if (last.buffer == buffer && last.end == stretch.begin) {
        last.end = stretch.end;
        return;
      }
    }
    begin(place, connection, buffer, stretch);
  }
  /// What `place` was given last is its close frame.
  void markClosing(const Place& place) { pieces_[place.piece].kind = Kind::Closing; }

 private:
  enum class Kind : std::uint8_t { Frames, Closing, Overflow };
  struct Piece {
    std::shared_ptr<WebSocketClientConnection> connection;
    std::size_t begin;
    std::size_t end;
    Buffer buffer;
    Kind kind = Kind::Frames;
  };
  struct Batch;

  void begin(Place& place, const std::shared_ptr<WebSocketClientConnection>& connection, Buffer buffer,
             Stretch stretch);
  std::string& bytesOf(Buffer buffer) { return buffer == Buffer::Shared ? shared_ : single_; }
  void schedule();
  void flush();
  static void send(const Batch& batch);

  RunLoop& loop_;
  MaskingKeys keys_;
  std::uint64_t turn_ = 1;
  bool scheduled_ = false;
  std::string shared_;
  std::string single_;
  std::vector<Piece> pieces_;
  std::size_t lastPieces_ = 0;
};

}  // namespace ferrox
