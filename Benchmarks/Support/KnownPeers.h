// The whole sending side of the library, among peers that are known by address instead of by discovery.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"

namespace ferrox::bench {

/// Puts a connection manager of its own behind the shared notification center. Thread: main
class KnownPeers {
 public:
  /// `count` peers at 127.0.0.1, 127.0.0.2 and so on, all on one port.
  KnownPeers(std::size_t count, std::uint16_t port);

  /// Connects to all and calls `whenAll` once every connection is open.
  void connect(std::function<void()> whenAll);

  const std::vector<std::shared_ptr<FRXNetService>>& services() const { return peers_; }
  const std::shared_ptr<FRXWebsocketConnectionManager>& manager() const { return manager_; }

 private:
  void peerConnected();

  std::vector<std::shared_ptr<FRXNetService>> peers_;
  std::shared_ptr<FRXWebsocketConnectionManager> manager_;
  FRXNotificationCenter::Observation connected_;
  std::function<void()> whenAll_;
  std::size_t open_ = 0;
};

/// The text that makes a notification of `name` with the user info {"note": text} `size` bytes on the wire.
std::string noteForMessageOfSize(const std::string& name, std::size_t size);

}  // namespace ferrox::bench
