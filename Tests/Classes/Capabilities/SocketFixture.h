// A running server, and a connection manager with real sockets to the peers that a test names.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/FRXWebsocket.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Tests/Classes/HTTPServer/HostFixture.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/ScriptedResolver.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {

/// Peers may be this process's own server, under any of its addresses. The test's thread is the main one.
class SocketFixture : public HostFixture {
 protected:
  /// For a machine under load; nobody waits that long where all is well.
  static constexpr std::chrono::seconds longTime{30};

  SocketFixture() {
    loop_.runPending();
    LocalServiceDirectory::setServiceLookup([this](const std::string& id) { return known(id); });
    FRXWebsocket::acceptUpgrades(loop_);
    server_->republishBonjourWithServiceName("OWN-MTI=/HOST");
    start();
  }
  ~SocketFixture() override {
    manager_->stop();
    manager_.reset();
    server_->stop();
    LocalServiceDirectory::setServiceLookup(nullptr);
  }

  std::shared_ptr<FRXNetService> known(const std::string& id) const {
    const auto found =
        std::find_if(peers_.begin(), peers_.end(), [&](const auto& peer) { return peer->serviceId() == id; });
    return found == peers_.end() ? nullptr : *found;
  }
  std::string addPeer(const std::string& host, std::uint16_t port) {
    peers_.push_back(std::make_shared<FRXNetService>(host, port, "PEER-" + host));
    return peers_.back()->serviceId();
  }
  std::string addOwnServer(const std::string& host = "127.0.0.1") { return addPeer(host, server_->port()); }
  void connectAll() {
    WebSocketClientRequest settings;
    settings.pingInterval = std::chrono::milliseconds(0);
    manager_->setConnectionSettings(settings);
    for (const auto& peer : peers_) {
      clock_.advance(std::chrono::seconds(1), loop_);  // dials of one moment would be spread in time
      manager_->connectToService(peer);
      const auto isOpen = [&] { return manager_->isConnectedToService(peer->serviceId()); };
      ASSERT_TRUE(waitFor(loop_, isOpen, longTime));
    }
  }

  const LogRecording log_{LogLevel::Warn};
  ScriptedResolver resolver_;
  std::vector<std::shared_ptr<FRXNetService>> peers_;
  std::shared_ptr<FRXWebsocketConnectionManager> manager_ = FRXWebsocketConnectionManager::make(
      {.mainLoop = &loop_,
       .makeClient = [this](
                         const WebSocketClientRequest& request,
                         FRXError* error) { return WebSocketClient::make(request, resolver_, loop_, error); },
       .currentServices = [this] { return peers_; },
       .idForServiceName = [](const std::string&) { return std::nullopt; },
       .localFRXService = [] { return nullptr; },
       .refreshDiscovery = {}});
};

}  // namespace ferrox::test
