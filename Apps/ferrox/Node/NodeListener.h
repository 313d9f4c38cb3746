// What a running node tells whoever shows it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Apps/ferrox/Node/Peer.h"

namespace ferrox::command {

/// The node as it is visible once it runs.
struct NodeIdentity {
  std::string serviceName;
  std::uint16_t port = 0;
  std::string computerName;
  std::string deviceId;
  /// "embedded", "avahi" or "off".
  std::string discovery;
};

/// Thread: main
class NodeListener {
 public:
  virtual ~NodeListener() = default;
  virtual void nodeStarted(const NodeIdentity&) {}
  /// The node could not start; nothing else follows.
  virtual void nodeFailed(const std::string& /*reason*/) {}
  virtual void localServiceStarted(const std::string& /*sessionId*/) {}
  virtual void localServiceEnded(const std::string& /*sessionId*/) {}
  virtual void peerDiscovered(const Peer&) {}
  virtual void peerRemoved(const Peer&) {}
  /// Responsive or unresponsive, as the peer says.
  virtual void peerChangedState(const Peer&) {}
  /// Something else about a peer is known now, for example how much it offers.
  virtual void peersChanged() {}
  /// A peer rewrote its TXT record, as it does with every heartbeat.
  virtual void peerRejoined(const std::string& /*frxId*/) {}
};

}  // namespace ferrox::command
