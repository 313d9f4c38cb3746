// Ours in the fan-out benchmark: client sockets to every peer; each text is a notification's message, built
// and serialised for every post, padded to the size of all others.

#include <poll.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Benchmarks/FanOut/Flow.h"
#include "Benchmarks/FanOut/Stamp.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/PlatformServices.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/WebSocket/WebSocketClient.h"

namespace {

using namespace ferrox;
using bench::Flow;

FRXWebsocketMessage messageOf(std::string note) {
  return {FRXMessageType::FRXMessageTypeNotification, "TimelineChanged", std::nullopt,
          FRXDictionary{{"note", std::move(note)}}};
}

std::size_t paddingFor(std::size_t size) {
  const auto bare = messageOf(std::string(bench::stampSize, '.')).toJson();
  return bare && bare->size() < size ? size - bare->size() : 0;
}

class Broadcaster : public WebSocketClientDelegate, public std::enable_shared_from_this<Broadcaster> {
 public:
  Broadcaster(Flow& flow, RunLoop& loop)
      : flow_(flow), loop_(loop), note_(bench::stampSize + paddingFor(bench::textSize), '.') {}

  bool dial() {
    const PlatformServices& services = PlatformServices::shared();
    for (std::size_t i = 0; i < flow_.peers(); ++i) {
      WebSocketClientRequest request;
      request.url = "ws://127.0.0.1:" + std::to_string(flow_.port()) + "/frxsocket?id=bench";
      const auto client = WebSocketClient::make(request, *services.resolver, loop_);
      if (!client) return false;
      client->setDelegate(weak_from_this());
      client->open();
      clients_.push_back(client);
    }
    return true;
  }

  void post() {
    flow_.postDue([this](std::uint32_t number, bool last) {
      bench::writeStamp(note_.data(), number, last);
      const auto json = messageOf(note_).toJson();
      if (json) WebSocketClient::broadcast(clients_, *json);
    });
  }

  void webSocketDidOpen(WebSocketClient&) override {
    if (++open_ < flow_.peers()) return;
    flow_.start();
    post();
  }
  void webSocketDidFailWithError(WebSocketClient&, const FRXError& error) override {
    if (!flow_.isDone()) std::fprintf(stderr, "%s\n", error.localizedDescription.c_str());
  }

 private:
  Flow& flow_;
  RunLoop& loop_;
  std::string note_;
  std::vector<std::shared_ptr<WebSocketClient>> clients_;
  std::size_t open_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  Flow flow(argc, argv);
  RunLoop& loop = RunLoop::main();
  loop.runPending();
  const auto broadcaster = std::make_shared<Broadcaster>(flow, loop);
  if (!broadcaster->dial()) return 1;
  pollfd watched[] = {{loop.descriptor(), POLLIN, 0}, {Flow::acknowledgements, POLLIN, 0}};
  while (!flow.isDone()) {
    if (::poll(watched, 2, -1) < 0) return 1;
    if (watched[1].revents != 0) {
      flow.takeAcknowledgements();
      broadcaster->post();
    }
    loop.runPending();
  }
  flow.report();
  return 0;
}
