// What a running node tells whoever shows it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Apps/ferrox/Copy/CopyJob.h"
#include "Apps/ferrox/Node/Peer.h"

namespace ferrox {
class FRXNotification;
class FRXWebsocketMessage;
}  // namespace ferrox

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

/// Something happened to this node's own connection to a peer.
struct ConnectionEvent {
  enum class Change { Connected, Failed, Disconnected };
  Change change = Change::Connected;
  /// As posted by the library: "frxId" (the peer's service id), "frxURL", and how it ended.
  FRXDictionary userInfo;
  /// Absent when the peer is not known any more.
  std::optional<Peer> peer;
};

/// A notification that is observed here.
struct SeenNotification {
  std::string name;
  std::optional<std::string> filter;
  /// The published name of the node that posted it.
  std::string sender;
  std::chrono::system_clock::time_point timestamp;
  FRXDictionary userInfo;
  /// Posted in this process and sent to nobody.
  bool local = false;
};

/// Thread: main
class NodeListener : public CopyListener {
 public:
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
  virtual void connectionChanged(const ConnectionEvent&) {}
  virtual void notificationSeen(const SeenNotification&) {}
  /// A known peer sent a notification, observed here or not.
  virtual void messageReceived(const FRXNotification&, const FRXNetService& /*sender*/,
                               const std::string& /*sessionId*/) {}
  virtual void messageSent(const FRXWebsocketMessage&, const FRXNetService& /*recipient*/) {}
};

}  // namespace ferrox::command
