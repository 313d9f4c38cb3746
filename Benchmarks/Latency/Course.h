// What both sides of the latency benchmark are told, and what the observing one reports.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "Benchmarks/Support/DelayHistogram.h"
#include "Benchmarks/Support/Stamp.h"

namespace ferrox::bench {

/// PROGRAM observer COUNT, which prints its port; then PROGRAM poster COUNT PORT MICROSECONDS. Both stay
/// until their standard input ends, so that neither sees the other go.
struct Course {
  Course(int argc, char** argv)
      : isObserver(argc == 3 && std::strcmp(argv[1], "observer") == 0),
        count(argc >= 3 ? static_cast<std::uint32_t>(std::atoi(argv[2])) : 0),
        port(argc == 5 ? static_cast<std::uint16_t>(std::atoi(argv[3])) : std::uint16_t{0}),
        pause(argc == 5 ? std::atoi(argv[4]) : 0) {
    if (isObserver || argc == 5) return;
    std::fprintf(stderr, "usage: %s observer COUNT | poster COUNT PORT MICROSECONDS\n", argv[0]);
    std::exit(2);
  }

  bool isObserver;
  std::uint32_t count;
  std::uint16_t port;
  std::chrono::microseconds pause;
};

inline void announcePort(unsigned port) {
  std::printf("%u\n", port);
  std::fflush(stdout);
}

inline void awaitEnd() {
  while (std::getchar() != EOF) {
  }
}

/// Counts stamped texts and times them; the first ones warm up.
class Arrivals {
 public:
  explicit Arrivals(std::uint32_t count) : count_(count) {}

  /// Ends the process at a text that is not the next one.
  void take(std::string_view text) {
    const std::uint64_t now = nowNs();
    if (text.size() < stampSize || text[0] != stampMark || numberOf(text) != next_) {
      std::fprintf(stderr, "a text was lost, repeated or overtaken\n");
      std::exit(1);
    }
    if (next_++ >= warmUp) delays_.add(now - postedAt(text));
  }
  bool isDone() const { return next_ == count_; }
  void report() const {
    std::printf("{\"timed\": %llu, \"medianUs\": %.2f, \"p99Us\": %.2f, \"maxUs\": %.2f}\n",
                static_cast<unsigned long long>(delays_.total()), delays_.quantile(0.5) / 1e3,
                delays_.quantile(0.99) / 1e3, delays_.quantile(1) / 1e3);
    std::fflush(stdout);
  }

 private:
  static constexpr std::uint32_t warmUp = 50;

  static std::uint64_t wordAt(std::string_view text, std::size_t at) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + at, sizeof(word));
    return word;
  }
  static std::uint32_t numberOf(std::string_view text) { return readLetters(wordAt(text, 17)); }
  static std::uint64_t postedAt(std::string_view text) {
    return std::uint64_t{readLetters(wordAt(text, 9))} << 32 | readLetters(wordAt(text, 1));
  }

  std::uint32_t count_;
  std::uint32_t next_ = 0;
  DelayHistogram delays_;
};

}  // namespace ferrox::bench
