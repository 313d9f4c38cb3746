// A connection manager among peers that a test makes up.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Notifications/FRXNotification.h"
#include "Classes/Notifications/NotificationSink.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Tests/Support/FakeWebSocketClient.h"
#include "Tests/Support/ManualClock.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox::test {

struct RecordingNotificationSink : NotificationSink {
  struct Local {
    std::string name;
    FRXDictionary userInfo;
    std::optional<std::string> filter;
    bool operator==(const Local&) const = default;
  };

  void postLocalNotification(const std::string& name, const FRXDictionary& userInfo,
                             const std::optional<std::string>& notificationFilter) override {
    local.push_back({name, userInfo, notificationFilter});
  }
  void postIncomingNotification(const FRXNotification& notification,
                                const std::string& withServiceSessionId) override {
    incoming.emplace_back(notification, withServiceSessionId);
  }
  void repostNotificationsToService(const std::string& serviceId) override { reposted.push_back(serviceId); }

  std::vector<Local> local;
  std::vector<std::pair<FRXNotification, std::string>> incoming;
  std::vector<std::string> reposted;
};

class RecordingSentListener final : public FRXMessageSentDelegate {
 public:
  void frxMessageWasSent(const FRXWebsocketMessage& message,
                         const std::shared_ptr<FRXNetService>& toRecipient) override {
    sent.push_back(message.id().value_or("") + " to " + toRecipient->serviceId());
  }
  std::vector<std::string> sent;
};

class ManagerFixture : public testing::Test {
 protected:
  using Manager = FRXWebsocketConnectionManager;

  ManagerFixture() {
    NotificationSink::setRegistered(sink);
    LocalServiceDirectory::setServerSource([] {
      return LocalServiceDirectory::LocalServer{"0123-MTI=/OWN MACHINE", 16654};
    });
    LocalServiceDirectory::setServiceLookup([this](const std::string& id) { return serviceWithId(id); });
    loop.runPending();
  }
  ~ManagerFixture() override {
    NotificationSink::setRegistered(nullptr);
    LocalServiceDirectory::setServerSource(nullptr);
    LocalServiceDirectory::setServiceLookup(nullptr);
  }

  std::shared_ptr<FRXNetService> addPeer(const std::string& host) {
    auto service = std::make_shared<FRXNetService>(host, 16654, "DEV" + host + "-1/" + host);
    peers.push_back(service);
    return service;
  }
  void forgetPeers() { peers.clear(); }
  /// The client that was made last, its dialling begun.
  FakeWebSocketClient& last() { return *clients.back(); }
  FakeWebSocketClient& connect(const std::shared_ptr<FRXNetService>& service) {
    manager->connectToService(service);
    last().peerAccepts();
    return last();
  }
  void tick() { clock.advance(std::chrono::seconds(15), loop); }
  static FRXWebsocketMessage notification(const std::string& name) {
    return {FRXMessageType::FRXMessageTypeNotification, name, std::nullopt, std::nullopt};
  }

  std::shared_ptr<FRXNetService> serviceWithId(const std::string& id) const {
    for (const auto& peer : peers) {
      if (peer->serviceId() == id || peer->name() == id) return peer;
    }
    return nullptr;
  }

  ManualClock clock;
  RunLoop loop{clock};
  LogRecording log;
  std::shared_ptr<RecordingNotificationSink> sink = std::make_shared<RecordingNotificationSink>();
  std::vector<std::shared_ptr<FRXNetService>> peers;
  std::vector<std::shared_ptr<FakeWebSocketClient>> clients;
  std::shared_ptr<FRXNetService> local;
  int refreshed = 0;
  int framed = 0;
  std::shared_ptr<Manager> manager = Manager::make({
      .mainLoop = &loop,
      .makeClient =
          [this](const WebSocketClientRequest& request, FRXError*) {
            clients.push_back(std::make_shared<FakeWebSocketClient>(request));
            return clients.back();
          },
      .broadcast =
          [this](std::span<const std::shared_ptr<WebSocketClient>> all, std::string_view text) {
            ++framed;
            return static_cast<std::size_t>(std::count_if(
                all.begin(), all.end(), [text](const auto& client) { return client->send(text); }));
          },
      .currentServices = [this] { return peers; },
      .idForServiceName = [this](const std::string& name) -> std::optional<std::string> {
        for (const auto& peer : peers) {
          if (peer->name() == name) return peer->serviceId();
        }
        return std::nullopt;
      },
      .localFRXService = [this] { return local; },
      .refreshDiscovery = [this] { ++refreshed; },
  });
};

}  // namespace ferrox::test
