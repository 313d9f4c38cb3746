#include "Benchmarks/Support/KnownPeers.h"

#include <utility>

#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/Base/Registration.h"
#include "Platform/PlatformServices.h"

namespace ferrox::bench {

KnownPeers::KnownPeers(std::size_t count, std::uint16_t port) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::string host = "127.0.0." + std::to_string(i + 1);
    peers_.push_back(std::make_shared<FRXNetService>(host, port, "PEER" + std::to_string(i) + "-MTI=/PEER"));
  }
  LocalServiceDirectory::setServerSource([] {
    return LocalServiceDirectory::LocalServer{"BENCHMARK-MTI=/BENCHMARK", 16654};
  });
  LocalServiceDirectory::setServiceLookup([peers = peers_](const std::string& id) {
    for (const auto& peer : peers) {
      if (peer->serviceId() == id) return peer;
    }
    return std::shared_ptr<FRXNetService>();
  });

  auto parts = FRXWebsocketConnectionManagerParts::usual(PlatformServices::shared());
  parts.currentServices = [peers = peers_] { return peers; };
  parts.idForServiceName = [](const std::string&) { return std::nullopt; };
  parts.localFRXService = [] { return nullptr; };
  parts.refreshDiscovery = [] {};
  manager_ = FRXWebsocketConnectionManager::make(std::move(parts));
  Registration<MessageBroadcaster>::set(manager_);
}

void KnownPeers::connect(std::function<void()> whenAll) {
  whenAll_ = std::move(whenAll);
  connected_ = FRXNotificationCenter::sharedCenter()->addObserver(
      FRXConnectedNotification, std::nullopt, [this](const LocalNotification&) { peerConnected(); });
  manager_->start();
}

void KnownPeers::peerConnected() {
  if (++open_ == peers_.size()) whenAll_();
}

std::string noteForMessageOfSize(const std::string& name, std::size_t size) {
  const FRXWebsocketMessage empty(FRXMessageType::FRXMessageTypeNotification, name, std::nullopt,
                                  FRXDictionary{{"note", ""}});
  const std::size_t bare = empty.toJson().value_or(std::string()).size();
  return std::string(bare < size ? size - bare : 0, '.');
}

}  // namespace ferrox::bench
