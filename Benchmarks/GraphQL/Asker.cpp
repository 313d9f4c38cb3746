// Asks a peer for its capabilities again and again over one WebSocket, and counts the answers by id.
//   ferrox_bench_graphql_asker PORT UNDER-WAY SECONDS    prints what was done and one of the answers, as JSON
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "Classes/GraphQL/FRXCapabilitiesQuery.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/PlatformServices.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/WebSocket/WebSocketClient.h"

namespace {

using namespace ferrox;
using SteadyClock = std::chrono::steady_clock;

[[noreturn]] void giveUp(const char* why) {
  std::fprintf(stderr, "%s\n", why);
  std::exit(1);
}

class Asker : public WebSocketClientDelegate {
 public:
  Asker(int underWay, SteadyClock::duration duration) : underWay_(underWay), duration_(duration) {}

  void webSocketDidOpen(WebSocketClient& socket) override {
    // Answers before that warm both sides up.
    began_ = SteadyClock::now() + duration_ / 4;
    for (int i = 0; i < underWay_; ++i) ask(socket);
  }
  void webSocketDidFailWithError(WebSocketClient&, const FRXError& error) override {
    giveUp(error.localizedDescription.c_str());
  }
  void webSocketDidCloseWithCode(WebSocketClient&, int, const std::string&, bool) override {
    giveUp("the peer closed the socket");
  }
  void webSocketDidReceiveMessage(WebSocketClient& socket, std::string_view text) override {
    if (asked_.erase(idOf(text)) == 0) giveUp("an answer to nothing that was asked");
    const auto now = SteadyClock::now();
    if (now < began_) {
      lastText_ = text;
    } else {
      if (text.size() + idSize < lastText_.size()) giveUp("an answer shorter than the others");
      ++answers_;
      seconds_ = std::chrono::duration<double>(now - began_).count();
    }
    if (now < began_ + duration_) return ask(socket);
    RunLoop::main().stop();
  }

  void report() const {
    const auto message = FRXWebsocketMessage::fromJson(lastText_);
    if (!message || !message->message()) giveUp("an answer that is no message");
    std::printf(R"({"answers": %llu, "seconds": %f, "answer": %s})"
                "\n",
                static_cast<unsigned long long>(answers_), seconds_, message->message()->c_str());
  }

 private:
  static constexpr std::size_t idSize = 20;

  /// Of the message's own member: in the text within it each quote has a backslash.
  static std::uint64_t idOf(std::string_view text) {
    constexpr std::string_view mark = R"("id":")";
    const std::size_t begin = text.find(mark);
    std::uint64_t id = 0;
    if (begin == std::string_view::npos) return id;
    text.remove_prefix(begin + mark.size());
    std::from_chars(text.data(), text.data() + text.size(), id);
    return id;
  }

  void ask(WebSocketClient& socket) {
    FRXWebsocketMessage request(FRXMessageType::FRXMessageTypeQuery, "capabilities request",
                                std::string(FRXCapabilitiesQuery), FRXDictionary{});
    request.setId(std::to_string(++lastId_));
    asked_.insert(lastId_);
    socket.send(request.toJson().value_or(""));
  }

  const int underWay_;
  const SteadyClock::duration duration_;
  SteadyClock::time_point began_;
  std::set<std::uint64_t> asked_;
  std::uint64_t lastId_ = 0, answers_ = 0;
  double seconds_ = 0;
  std::string lastText_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const auto duration = std::chrono::duration<double>(std::atof(argv[3]));
  const auto asker = std::make_shared<Asker>(std::atoi(argv[2]),
                                             std::chrono::duration_cast<SteadyClock::duration>(duration));
  WebSocketClientRequest request;
  request.url = "ws://127.0.0.1:" + std::string(argv[1]) + "/frxsocket?id=BENCHMARK";
  const auto socket =
      WebSocketClient::make(request, *PlatformServices::shared().resolver, RunLoop::main(), nullptr);
  if (!socket) giveUp("no socket");
  socket->setDelegate(asker);
  socket->open();
  RunLoop::main().run();
  asker->report();
  return 0;
}
