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

 private:
  EventWriter& writer_;
};

}  // namespace ferrox::command
