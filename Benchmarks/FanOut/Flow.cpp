#include "Benchmarks/FanOut/Flow.h"

#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "Benchmarks/Support/Stamp.h"

namespace ferrox::bench {

Flow::Flow(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: %s PORT PEERS BURST WINDOW SECONDS <ACKNOWLEDGEMENTS\n", argv[0]);
    std::exit(2);
  }
  port_ = static_cast<std::uint16_t>(std::atoi(argv[1]));
  peers_ = std::strtoul(argv[2], nullptr, 10);
  burst_ = std::strtoul(argv[3], nullptr, 10);
  window_ = std::strtoul(argv[4], nullptr, 10);
  durationNs_ = static_cast<std::uint64_t>(std::atof(argv[5]) * 1e9);
}

void Flow::start() {
  started_ = true;
  startNs_ = nowNs();
}

bool Flow::isOver() const { return nowNs() - startNs_ >= durationNs_; }

std::size_t Flow::takeAcknowledgements() {
  std::array<char, 64> bytes{};
  const ssize_t count = ::read(acknowledgements, bytes.data(), bytes.size());
  if (count <= 0 && !isDone()) {
    std::fprintf(stderr, "the sink went away\n");
    std::exit(1);
  }
  const auto arrived = count > 0 ? static_cast<std::size_t>(count) : 0;
  underWay_ -= arrived;
  return arrived;
}

void Flow::report() const {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  std::printf("{\"posted\": %u, \"processorSeconds\": %.6f}\n", next_,
              seconds(used.ru_utime) + seconds(used.ru_stime));
  std::fflush(stdout);
}

}  // namespace ferrox::bench
