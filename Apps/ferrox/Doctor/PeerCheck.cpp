#include <fmt/format.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Node/Peer.h"
#include "Apps/ferrox/Node/ServiceFetch.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Platform/PlatformServices.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/TCP/TCPClientSocket.h"

namespace ferrox::command {
namespace {

constexpr std::chrono::seconds connectTimeout{3};

struct Connected final : TCPClientSocketListener {
  void socketDidConnectToHost(TCPClientSocket&, const std::string&, std::uint16_t) override {
    finish(std::nullopt);
  }
  void socketDidDisconnectWithError(TCPClientSocket&, const std::optional<FRXError>& failure) override {
    finish(failure ? failure->localizedDescription : "closed");
  }
  void finish(std::optional<std::string> why) {
    if (done) return;
    done = true;
    problem = std::move(why);
    ended = std::chrono::steady_clock::now();
  }

  bool done = false;
  std::optional<std::string> problem;
  std::chrono::steady_clock::time_point ended;
};

Finding tryTCP(const FRXPeerAddress& peer) {
  const PlatformServices& services = PlatformServices::shared();
  const auto listener = std::make_shared<Connected>();
  const auto socket = services.makeTCPSocket();
  socket->setDelegate(listener);
  const auto begun = std::chrono::steady_clock::now();
  FRXError error;
  if (!socket->connectToHost(peer.host(), peer.port(), connectTimeout, &error)) {
    listener->finish(error.localizedDescription);
  }
  if (!services.mainLoop->runUntil([&] { return listener->done; },
                                   connectTimeout + std::chrono::seconds(1))) {
    listener->finish("no answer");
  }
  socket->setDelegate({});
  socket->disconnect();
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(listener->ended - begun).count();
  const bool good = !listener->problem;
  return {good ? Verdict::Good : Verdict::Bad,
          good ? fmt::format("{} accepts TCP connections ({} ms)", displayAddress(peer), elapsed)
               : fmt::format("{} accepts no TCP connection: {}", displayAddress(peer), *listener->problem),
          {{"peer", displayAddress(peer)}, {"method", "tcp"}, {"ok", good}, {"milliseconds", elapsed}}};
}

Finding tryHTTP(const FRXPeerAddress& peer) {
  const PlatformServices& services = PlatformServices::shared();
  struct Answer {
    std::optional<FetchedService> fetched;
  };
  const auto answer = std::make_shared<Answer>();
  fetchService(*services.httpClient, peer, [answer](const FetchedService& fetched) {
    RunLoop::main().post([answer, fetched] { answer->fetched = fetched; });
  });
  if (!services.mainLoop->runUntil([&] { return answer->fetched.has_value(); }, std::chrono::seconds(12))) {
    return {Verdict::Bad,
            displayAddress(peer) + " does not answer HTTP",
            {{"peer", displayAddress(peer)}, {"ok", false}}};
  }
  const FetchedService& fetched = *answer->fetched;
  const bool good = fetched.service != nullptr;
  return {good ? Verdict::Good : Verdict::Bad,
          good ? fmt::format("{} is the node \"{}\" ({} ms)", displayAddress(peer),
                             displayName(*fetched.service), fetched.elapsed.count())
               : fmt::format("{} gives no service record: {}", displayAddress(peer),
                             fetched.error->localizedDescription),
          {{"peer", displayAddress(peer)},
           {"method", "http"},
           {"ok", good},
           {"milliseconds", fetched.elapsed.count()}}};
}

}  // namespace

Examination examinePeers(const std::vector<FRXPeerAddress>& peers) {
  Examination out{"peers", "Peers named by address", {}};
  for (const FRXPeerAddress& peer : peers) {
    out.findings.push_back(tryTCP(peer));
    if (out.findings.back().verdict == Verdict::Good) out.findings.push_back(tryHTTP(peer));
  }
  return out;
}

}  // namespace ferrox::command
