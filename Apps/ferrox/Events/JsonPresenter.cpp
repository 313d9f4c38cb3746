#include "Apps/ferrox/Events/JsonPresenter.h"

#include "Apps/ferrox/Events/CopyEvents.h"
#include "Apps/ferrox/Events/EventWriter.h"
#include "Apps/ferrox/Version.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Notifications/FRXNotification.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"

namespace ferrox::command {
namespace {

const char* nameOf(ConnectionEvent::Change change) {
  switch (change) {
    case ConnectionEvent::Change::Connected:
      return "connected";
    case ConnectionEvent::Change::Failed:
      return "connectionFailed";
    case ConnectionEvent::Change::Disconnected:
      return "disconnected";
  }
  return "";
}

FRXValue textOrNull(const std::optional<std::string>& text) { return text ? FRXValue(*text) : FRXValue(); }

}  // namespace

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

void JsonPresenter::connectionChanged(const ConnectionEvent& event) {
  writer_.write(nameOf(event.change), {{"userInfo", event.userInfo}});
}

void JsonPresenter::notificationSeen(const SeenNotification& notification) {
  FRXDictionary members{{"name", notification.name},
                        {"filter", textOrNull(notification.filter)},
                        {"sender", notification.sender},
                        {"timestamp", millisecondsSince1970(notification.timestamp)},
                        {"userInfo", notification.userInfo}};
  if (notification.local) members["local"] = true;
  writer_.write("notification", std::move(members));
}

void JsonPresenter::messageReceived(const FRXNotification& notification, const FRXNetService& sender,
                                    const std::string& sessionId) {
  writer_.write(
      "messageReceived",
      {{"name", textOrNull(notification.name())}, {"service", recordOf(sender)}, {"sessionId", sessionId}});
}

void JsonPresenter::messageSent(const FRXWebsocketMessage& message, const FRXNetService& recipient) {
  writer_.write("messageSent", {{"id", textOrNull(message.id())},
                                {"subject", textOrNull(message.subject())},
                                {"type", static_cast<std::int64_t>(message.messageType())},
                                {"service", recordOf(recipient)}});
}

void JsonPresenter::copyProgressed(const CopyJob& job, std::uint64_t bytes, std::uint64_t totalBytes) {
  writer_.write("copyProgress", copyProgressMembers(job, bytes, totalBytes));
}

void JsonPresenter::copyMetLowStorage(const CopyJob& job, bool) {
  writer_.write("copyLowStorage", copyMembers(job));
}

void JsonPresenter::copyCancelled(const CopyJob& job) { writer_.write("copyCancelled", copyMembers(job)); }

void JsonPresenter::copyEnded(const CopyJob& job, const std::optional<FRXError>& error) {
  writer_.write("copyCompleted", copyCompletedMembers(job, error));
}

}  // namespace ferrox::command
