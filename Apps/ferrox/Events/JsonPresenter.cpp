#include "Apps/ferrox/Events/JsonPresenter.h"

#include "Apps/ferrox/Events/EventWriter.h"
#include "Apps/ferrox/Version.h"
#include "Classes/Discovery/FRXNetService.h"

namespace ferrox::command {

void JsonPresenter::nodeStarted(const NodeIdentity& node) {
  writer_.write("started", {{"serviceName", node.serviceName},
                            {"port", node.port},
                            {"computerName", node.computerName},
                            {"deviceId", node.deviceId},
                            {"discovery", node.discovery},
                            {"version", version}});
}

void JsonPresenter::nodeFailed(const std::string& reason) { writer_.write("error", {{"message", reason}}); }

void JsonPresenter::localServiceStarted(const std::string& sessionId) {
  writer_.write("localServiceStarted", {{"sessionId", sessionId}});
}

void JsonPresenter::localServiceEnded(const std::string& sessionId) {
  writer_.write("localServiceEnded", {{"sessionId", sessionId}});
}

void JsonPresenter::peerDiscovered(const Peer& peer) {
  writer_.write("peerDiscovered", {{"service", recordOf(*peer.service)}});
}

void JsonPresenter::peerRemoved(const Peer& peer) {
  writer_.write("peerRemoved", {{"service", recordOf(*peer.service)}});
}

void JsonPresenter::peerChangedState(const Peer& peer) {
  const bool responsive = peer.state == PeerState::Responsive;
  writer_.write(responsive ? "peerResponsive" : "peerUnresponsive", {{"service", recordOf(*peer.service)}});
}

void JsonPresenter::peerRejoined(const std::string& frxId) { writer_.write("rejoined", {{"frxId", frxId}}); }

}  // namespace ferrox::command
