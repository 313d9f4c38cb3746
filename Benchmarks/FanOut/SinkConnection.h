// The receiving end of one connection: its opening handshake, then frames of one size, walked and not copied.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace ferrox::bench {

enum class Wire {
  WebSocketServer,  ///< the sink accepts; the frames that come are masked
  WebSocketClient,  ///< the sink dials; the frames that come are plain
  ZMTPSubscriber,   ///< the sink dials and subscribes to everything (ZMTP 3.0, NULL mechanism)
};

struct Delivery {
  std::uint64_t postedNs;
  bool last;
};

class SinkConnection {
 public:
  /// Takes a connected, blocking socket through the handshake. Ends the process when that fails.
  SinkConnection(int socket, Wire wire);

  int socket() const { return socket_; }
  std::uint32_t received() const { return received_; }
  /// Reads once and calls `deliver(Delivery)` for each whole frame. Ends the process at a text that is not
  /// the next one.
  template <typename Deliver>
  void read(std::span<char> space, const Deliver& deliver) {
    for (std::size_t at = begin(space); at != 0; at = step(at, deliver)) {
    }
    keepRest();
  }

 private:
  void answerUpgrade();
  void askUpgrade();
  void subscribe();
  std::string readUntil(const std::string& end);
  std::string readExactly(std::size_t count);
  void sendAll(const std::string& bytes);

  std::size_t begin(std::span<char> space);
  void learn(const char* frame, std::size_t available);
  Delivery take(const char* frame);
  void keepRest();

  template <typename Deliver>
  std::size_t step(std::size_t left, const Deliver& deliver) {
    if (frameSize_ == 0) learn(at_, left);
    if (frameSize_ == 0 || left < frameSize_) {
      left_ = left;
      return 0;
    }
    deliver(take(at_));
    at_ += frameSize_;
    left_ = left - frameSize_;
    return left_;
  }

  int socket_;
  Wire wire_;
  std::string head_;  ///< what every frame begins with
  std::size_t frameSize_ = 0;
  std::size_t maskAt_ = 0;  ///< 0 when there is none
  std::size_t stampAt_ = 0;
  std::uint32_t received_ = 0;
  std::vector<char> rest_;
  const char* at_ = nullptr;
  std::size_t left_ = 0;
};

}  // namespace ferrox::bench
