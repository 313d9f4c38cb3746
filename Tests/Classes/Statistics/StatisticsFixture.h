// Everything that statistics are gathered from, with real sockets between this process and itself.
#pragma once

#include <memory>
#include <string>

#include "Classes/Copy/CopyCounters.h"
#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/Statistics/StatisticsSources.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Classes/WebSockets/InboundSockets.h"
#include "Tests/Classes/Capabilities/SocketFixture.h"

namespace ferrox::test {

class StatisticsFixture : public SocketFixture {
 protected:
  StatisticsFixture() {
    RoutingHTTPConnection::setWebSocketFactory([this](const HTTPRequest* request, const std::string& frxId,
                                                      std::shared_ptr<WebSocketTransport> transport) {
      return FRXWebsocket::initWithRequest(request, frxId, std::move(transport), loop_, inbound_);
    });
    NotificationSink::setRegistered(center_);
  }
  ~StatisticsFixture() override {
    server_->stop();
    NotificationSink::setRegistered(nullptr);
  }

  FRXStatistics now() const {
    return gatherStatistics({.browser = *browser_,
                             .manager = *manager_,
                             .inbound = *inbound_,
                             .center = *center_,
                             .server = httpServer_.get(),
                             .copies = *copies_});
  }
  /// Drives the loop until the numbers are so.
  bool waitUntil(const std::function<bool(const FRXStatistics&)>& isSo) {
    return waitFor(
        loop_, [&] { return isSo(now()); }, longTime);
  }
  static FRXWebsocketMessage notification(const std::string& name, FRXDictionary userInfo = {}) {
    return {FRXMessageType::FRXMessageTypeNotification, name, std::nullopt, std::move(userInfo)};
  }
  static FRXWebsocketMessage query(const std::string& text = "{ __typename }") {
    return {FRXMessageType::FRXMessageTypeQuery, "q", text, std::nullopt};
  }

  const std::shared_ptr<InboundSockets> inbound_ = std::make_shared<InboundSockets>();
  const std::shared_ptr<CopyCounters> copies_ = std::make_shared<CopyCounters>();
  const std::shared_ptr<FRXBrowser> browser_ = FRXBrowser::make(services());
  NotificationDispatcher dispatcher_;
  const std::shared_ptr<FRXNotificationCenter> center_ =
      FRXNotificationCenter::make({.mainLoop = &loop_,
                                   .dispatcher = &dispatcher_,
                                   .broadcaster = [this] { return manager_; },
                                   .serviceWithId = {}});
};

}  // namespace ferrox::test
