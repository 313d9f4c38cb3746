// The receiving side of the fan-out benchmark, the same for every broadcaster.
//   ferrox_bench_fanout_sink WIRE PORT PEERS BURST WARM-UP ACKNOWLEDGEMENTS
// WIRE: server (accepts WebSockets on PORT and prints "listening"), client, zmtp (both dial 127.0.0.1:PORT).
// One thread takes all texts, checks that none is missing and times each, the first WARM-UP bursts left out.
// A byte goes to descriptor ACKNOWLEDGEMENTS whenever a burst has arrived everywhere. At the end one line of
// JSON.

#include <arpa/inet.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Benchmarks/FanOut/SinkConnection.h"
#include "Benchmarks/Support/DelayHistogram.h"
#include "Benchmarks/Support/Stamp.h"

namespace {

using namespace ferrox::bench;

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

int boundSocket(sockaddr_in& address, std::uint16_t port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) fail("sink: socket");
  address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return socket;
}

/// On all addresses, since a broadcaster may know each peer by an address of its own.
int listenOn(std::uint16_t port, int backlog) {
  sockaddr_in address{};
  const int socket = boundSocket(address, port);
  const int yes = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  if (::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) fail("sink: bind");
  if (::listen(socket, backlog) != 0) fail("sink: listen");
  std::printf("listening\n");
  std::fflush(stdout);
  return socket;
}

/// Waits for the broadcaster to listen.
int dial(std::uint16_t port) {
  for (int i = 0; i < 500; ++i) {
    sockaddr_in address{};
    const int socket = boundSocket(address, port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) return socket;
    ::close(socket);
    usleep(10'000);
  }
  fail("sink: connect");
}

class Sink {
 public:
  Sink(std::size_t burst, std::size_t warmUp, int acknowledgements)
      : burst_(burst), warmUp_(warmUp), acknowledgements_(acknowledgements), epoll_(epoll_create1(0)) {}

  void connect(Wire wire, std::uint16_t port, std::size_t peers) {
    const int listening = wire == Wire::WebSocketServer ? listenOn(port, static_cast<int>(peers)) : -1;
    for (std::size_t i = 0; i < peers; ++i) {
      const int socket = listening >= 0 ? ::accept(listening, nullptr, nullptr) : dial(port);
      if (socket < 0) fail("sink: accept");
      connections_.push_back(std::make_unique<SinkConnection>(socket, wire));
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.ptr = connections_.back().get();
      if (epoll_ctl(epoll_, EPOLL_CTL_ADD, socket, &event) != 0) fail("sink: epoll_ctl");
    }
  }

  void run() {
    std::vector<char> space(std::size_t{1} << 20);
    std::array<epoll_event, 256> events{};
    while (finished_ < connections_.size()) {
      const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 10'000);
      if (count <= 0) {
        std::fprintf(stderr, "sink: nothing arrives any more\n");
        std::exit(1);
      }
      for (int i = 0; i < count; ++i) {
        take(*static_cast<SinkConnection*>(events[static_cast<std::size_t>(i)].data.ptr), space);
      }
    }
  }

  void report() const {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval& time) {
      return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    const double elapsed = static_cast<double>(endNs_ - beginNs_) / 1e9;
    std::printf(
        "{\"received\": %u, \"timed\": %llu, \"seconds\": %.6f, \"medianUs\": %.2f, \"p99Us\": %.2f, "
        "\"maxUs\": %.2f, \"processorSeconds\": %.6f}\n",
        connections_.front()->received(), static_cast<unsigned long long>(delays_.total()), elapsed,
        delays_.quantile(0.5) / 1e3, delays_.quantile(0.99) / 1e3, delays_.quantile(1) / 1e3,
        seconds(used.ru_utime) + seconds(used.ru_stime));
  }

 private:
  void take(SinkConnection& connection, std::vector<char>& space) {
    std::uint64_t now = 0;
    connection.read(space, [&](const Delivery& delivery) {
      if (now == 0) now = nowNs();
      if (arrived_ >= warmUp_) delays_.add(now - delivery.postedNs);
      if (delivery.last) ++finished_;
      if (connection.received() % burst_ == 0) burstArrived(connection.received() / burst_ - 1);
    });
    if (now != 0) endNs_ = now;
  }

  void burstArrived(std::size_t burst) {
    std::size_t& reached = reached_[burst % reached_.size()];
    if (++reached < connections_.size()) return;
    reached = 0;
    if (++arrived_ == warmUp_) beginNs_ = nowNs();
    const char byte = 'a';
    if (::write(acknowledgements_, &byte, 1) != 1) fail("sink: write");
  }

  const std::size_t burst_;
  const std::size_t warmUp_;
  const int acknowledgements_;
  const int epoll_;
  std::vector<std::unique_ptr<SinkConnection>> connections_;
  /// How many connections have taken each of the bursts under way.
  std::array<std::size_t, 16> reached_{};
  std::size_t arrived_ = 0;
  std::size_t finished_ = 0;
  std::uint64_t beginNs_ = 0;
  std::uint64_t endNs_ = 0;
  DelayHistogram delays_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 7) return 2;
  const std::string name = argv[1];
  const Wire wire = name == "server"   ? Wire::WebSocketServer
                    : name == "client" ? Wire::WebSocketClient
                                       : Wire::ZMTPSubscriber;
  Sink sink(std::strtoul(argv[4], nullptr, 10), std::strtoul(argv[5], nullptr, 10), std::atoi(argv[6]));
  sink.connect(wire, static_cast<std::uint16_t>(std::atoi(argv[2])), std::strtoul(argv[3], nullptr, 10));
  sink.run();
  sink.report();
  return 0;
}
