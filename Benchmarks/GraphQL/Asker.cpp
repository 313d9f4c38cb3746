// Asks a peer for its capabilities again and again over one WebSocket, and counts the answers by id. A plain
// socket on one thread, so that the two processors measure the peer and not its client.
//   ferrox_bench_graphql_asker PORT UNDER-WAY SECONDS    prints what was done and one of the answers, as JSON
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include "Classes/GraphQL/FRXCapabilitiesQuery.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"

namespace {

using namespace ferrox;
using SteadyClock = std::chrono::steady_clock;

[[noreturn]] void giveUp(const char* why) {
  std::fprintf(stderr, "%s\n", why);
  std::exit(1);
}

/// The client's side of a WebSocket (RFC 6455) of text frames that come whole.
class Connection {
 public:
  explicit Connection(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
      giveUp("no connection");
    send(
        "GET /frxsocket?id=BENCHMARK HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: websocket\r\nConnection: "
        "Upgrade\r\n"
        "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\nSec-WebSocket-Version: 13\r\n\r\n");
    std::size_t end = std::string::npos;
    while ((end = received_.find("\r\n\r\n")) == std::string::npos) receive();
    if (!received_.starts_with("HTTP/1.1 101")) giveUp("no WebSocket there");
    begin_ = end + 4;
  }
  ~Connection() { ::close(socket_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// A masking key of zeros leaves the text as it is.
  void sendText(std::string_view text) {
    std::string frame = {static_cast<char>(0x81),
                         static_cast<char>(0x80 | 126),
                         static_cast<char>(text.size() >> 8),
                         static_cast<char>(text.size() & 255),
                         0,
                         0,
                         0,
                         0};
    send(frame.append(text));
  }

  /// Valid until the next call.
  std::string_view nextText() {
    for (;;) {
      std::size_t header = 2;
      while (received_.size() - begin_ < 10) receive();
      std::uint64_t size = byte(1);
      const int more = size == 126 ? 2 : size == 127 ? 8 : 0;
      if (more > 0) size = 0;
      for (int i = 0; i < more; ++i) size = size << 8 | byte(header++);
      while (received_.size() - begin_ < header + size) receive();
      const std::string_view text(received_.data() + begin_ + header, size);
      const bool isText = byte(0) == 0x81;
      begin_ += header + size;
      if (isText) return text;
    }
  }

 private:
  std::uint64_t byte(std::size_t at) const { return static_cast<unsigned char>(received_[begin_ + at]); }
  void send(std::string_view bytes) const {
    if (::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) {
      giveUp("the peer takes nothing");
    }
  }
  void receive() {
    received_.erase(0, begin_);
    begin_ = 0;
    const std::size_t before = received_.size();
    received_.resize(before + (std::size_t{1} << 16));
    const ssize_t count = ::recv(socket_, received_.data() + before, received_.size() - before, 0);
    if (count <= 0) giveUp("the peer ended the connection");
    received_.resize(before + static_cast<std::size_t>(count));
  }

  const int socket_;
  std::string received_;
  std::size_t begin_ = 0;
};

/// Of the message's own member: in the text within it each quote has a backslash.
std::uint64_t idOf(std::string_view text) {
  constexpr std::string_view mark = R"("id":")";
  const std::size_t begin = text.find(mark);
  std::uint64_t id = 0;
  if (begin == std::string_view::npos) return id;
  text.remove_prefix(begin + mark.size());
  std::from_chars(text.data(), text.data() + text.size(), id);
  return id;
}

std::string question(std::uint64_t id) {
  FRXWebsocketMessage request(FRXMessageType::FRXMessageTypeQuery, "capabilities request",
                              std::string(FRXCapabilitiesQuery), FRXDictionary{});
  request.setId(std::to_string(id));
  return request.toJson().value_or("");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const auto seconds = std::chrono::duration<double>(std::atof(argv[3]));
  const auto duration = std::chrono::duration_cast<SteadyClock::duration>(seconds);
  Connection connection(static_cast<std::uint16_t>(std::atoi(argv[1])));
  std::set<std::uint64_t> asked;
  std::uint64_t lastId = 0, answers = 0;
  const auto ask = [&] {
    asked.insert(++lastId);
    connection.sendText(question(lastId));
  };
  for (int i = 0; i < std::atoi(argv[2]); ++i) ask();
  // Answers before that warm both sides up.
  const auto began = SteadyClock::now() + duration / 4;
  std::string sample;
  double taken = 0;
  for (;;) {
    const std::string_view text = connection.nextText();
    if (asked.erase(idOf(text)) == 0) giveUp("an answer to nothing that was asked");
    const auto now = SteadyClock::now();
    if (sample.empty()) sample = text;
    constexpr std::size_t idSize = 20;
    if (text.size() + idSize < sample.size()) giveUp("an answer shorter than the others");
    if (now >= began) {
      ++answers;
      taken = std::chrono::duration<double>(now - began).count();
    }
    if (now >= began + duration) break;
    ask();
  }
  const auto message = FRXWebsocketMessage::fromJson(sample);
  if (!message || !message->message()) giveUp("an answer that is no message");
  std::printf(R"({"answers": %llu, "seconds": %f, "answer": %s})"
              "\n",
              static_cast<unsigned long long>(answers), taken, message->message()->c_str());
  return 0;
}
