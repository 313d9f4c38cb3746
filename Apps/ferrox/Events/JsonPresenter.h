// A node's life as newline-delimited JSON events.
#pragma once

#include "Apps/ferrox/Node/NodeListener.h"

namespace ferrox::command {

class EventWriter;

/// Thread: main
class JsonPresenter final : public NodeListener {
 public:
  explicit JsonPresenter(EventWriter& writer) : writer_(writer) {}

  void nodeStarted(const NodeIdentity& node) override;
  void nodeFailed(const std::string& reason) override;
  void localServiceStarted(const std::string& sessionId) override;
  void localServiceEnded(const std::string& sessionId) override;
  void peerDiscovered(const Peer& peer) override;
  void peerRemoved(const Peer& peer) override;
  void peerChangedState(const Peer& peer) override;
  void peerRejoined(const std::string& frxId) override;
  void connectionChanged(const ConnectionEvent& event) override;
  void notificationSeen(const SeenNotification& notification) override;
  void messageReceived(const FRXNotification& notification, const FRXNetService& sender,
                       const std::string& sessionId) override;
  void messageSent(const FRXWebsocketMessage& message, const FRXNetService& recipient) override;
  void copyProgressed(const CopyJob& job, std::uint64_t bytes, std::uint64_t totalBytes) override;
  void copyMetLowStorage(const CopyJob& job, bool goesOn) override;
  void copyCancelled(const CopyJob& job) override;
  void copyEnded(const CopyJob& job, const std::optional<FRXError>& error) override;

 private:
  EventWriter& writer_;
};

}  // namespace ferrox::command
