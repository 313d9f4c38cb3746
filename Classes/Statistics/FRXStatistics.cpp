#include "Classes/Statistics/FRXStatistics.h"

#include <algorithm>

#include "Classes/Copy/CopyCounters.h"
#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/Statistics/StatisticsSources.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Classes/WebSockets/InboundSockets.h"
#include "Platform/HTTP/Server/HTTPServer.h"

namespace ferrox {

FRXStatistics FRXStatistics::current() {
  const auto server = FRXServer::sharedInstance();
  return gatherStatistics({.browser = *FRXBrowser::sharedInstance(),
                           .manager = *FRXWebsocketConnectionManager::sharedManager(),
                           .inbound = *InboundSockets::shared(),
                           .center = *FRXNotificationCenter::sharedCenter(),
                           .server = server ? server->httpServer().get() : nullptr,
                           .copies = *CopyCounters::shared()});
}

FRXStatistics gatherStatistics(const StatisticsSources& sources) {
  const FRXOutboundStatistics outbound = sources.manager.statistics();
  const InboundStatistics inbound = sources.inbound.statistics();
  const auto services = sources.browser.currentServices();
  FRXStatistics all;
  all.peers = {
      .known = services.size(),
      .responsive = static_cast<std::size_t>(std::count_if(
          services.begin(), services.end(), [](const auto& service) { return service->isAvailable(); })),
      .connectedOutbound = outbound.openSockets,
      .connectedInbound = inbound.peers,
      .refused = sources.browser.refusedServiceCount()};
  all.connections = outbound.connections;
  all.messages = outbound.messages;
  all.messages += inbound.messages;
  all.notifications = sources.center.statistics();
  if (sources.server != nullptr) all.http = sources.server->statistics();
  all.copies = sources.copies.statistics();
  all.queues = {.notificationsWaiting = all.notifications.waiting,
                .notificationsKept = all.notifications.kept,
                .awaitedReplies = outbound.awaitedReplies,
                .outboundBytes = outbound.unsentBytes,
                .inboundBytes = inbound.unsentBytes,
                .undeliveredBytes = inbound.undeliveredBytes};
  return all;
}

}  // namespace ferrox
