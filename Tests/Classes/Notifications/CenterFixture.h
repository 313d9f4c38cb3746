// A notification center with parts that a test can look into.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Notifications/FRXNotification.h"
#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Classes/WebSockets/MessageBroadcaster.h"
#include "Platform/Notifications/NotificationDispatcher.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Tests/Support/ManualClock.h"
#include "Tests/Support/ScopedLocalServices.h"

namespace ferrox::test {

/// Keeps what was sent to whom; nobody stands for everybody.
class RecordingBroadcaster : public MessageBroadcaster {
 public:
  struct Sent {
    FRXWebsocketMessage message;
    std::optional<std::string> toService;
  };

  void broadcastMessage(const FRXWebsocketMessage& message) override {
    sent.push_back({message, std::nullopt});
    if (onSend) onSend(message);
  }
  void broadcastMessage(const FRXWebsocketMessage& message, const std::string& toService) override {
    sent.push_back({message, toService});
    if (onSend) onSend(message);
  }
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const Sent& one : sent) result.push_back(one.message.subject().value_or("-"));
    return result;
  }

  std::vector<Sent> sent;
  std::function<void(const FRXWebsocketMessage&)> onSend;
};

/// Keeps what it was called with.
class Ear {
 public:
  void hear(const LocalNotification& notification) { heard.push_back(notification); }
  void hearToo(const LocalNotification& notification) { heard.push_back(notification); }
  std::vector<LocalNotification> heard;
};

/// The test's thread is the main one from the beginning.
struct CenterFixture {
  CenterFixture() {
    loop.runPending();
    FRXNotificationCenterParts parts;
    parts.mainLoop = &loop;
    parts.dispatcher = &dispatcher;
    parts.broadcaster = [this] { return broadcaster; };
    parts.serviceWithId = [this](const std::string& serviceId) {
      const auto found = peers.find(serviceId);
      return found == peers.end() ? nullptr : found->second;
    };
    center = FRXNotificationCenter::make(std::move(parts));
  }

  const ScopedLocalServices local;
  ManualClock clock;
  RunLoop loop{clock};
  NotificationDispatcher dispatcher;
  std::shared_ptr<RecordingBroadcaster> broadcaster = std::make_shared<RecordingBroadcaster>();
  std::map<std::string, std::shared_ptr<FRXNetService>> peers;
  std::shared_ptr<FRXNotificationCenter> center;
  std::shared_ptr<Ear> ear = std::make_shared<Ear>();
};

}  // namespace ferrox::test
