// When a broadcaster posts: the same for ours and for every alternative.
#pragma once

#include <cstdint>
#include <string>

namespace ferrox::bench {

/// Bursts of so many texts, so many bursts under way at once, until the time is over. The sink writes one
/// byte into the pipe that is the broadcaster's standard input whenever a burst has arrived everywhere.
class Flow {
 public:
  /// PROGRAM PORT PEERS BURST WINDOW SECONDS; ends the process when they are missing.
  Flow(int argc, char** argv);

  std::uint16_t port() const { return port_; }
  std::size_t peers() const { return peers_; }
  std::size_t burst() const { return burst_; }
  static constexpr int acknowledgements = 0;

  /// All peers are there; the time begins.
  void start();
  /// Reads the pipe; to be called when it is readable. Returns how many bursts have arrived since the last
  /// call.
  std::size_t takeAcknowledgements();
  /// Calls `post(number, last)` for each text that is to be posted now.
  template <typename Post>
  void postDue(const Post& post) {
    while (started_ && !ended_ && underWay_ < window_) {
      ended_ = isOver();
      ++underWay_;
      for (std::size_t i = 0; i < burst_; ++i) post(next_++, ended_ && i + 1 == burst_);
    }
  }
  /// Everything was posted and has arrived.
  bool isDone() const { return ended_ && underWay_ == 0; }
  /// One line of JSON for whoever started the program.
  void report() const;

 private:
  bool isOver() const;

  std::uint16_t port_ = 0;
  std::size_t peers_ = 0;
  std::size_t burst_ = 0;
  std::size_t window_ = 0;
  std::uint64_t durationNs_ = 0;
  std::uint64_t startNs_ = 0;
  std::size_t underWay_ = 0;
  std::uint32_t next_ = 0;
  bool started_ = false;
  bool ended_ = false;
};

}  // namespace ferrox::bench
