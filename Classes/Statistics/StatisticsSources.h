// Whose numbers make up the statistics.
#pragma once

#include "Classes/Statistics/FRXStatistics.h"

namespace ferrox {

class FRXBrowser;
class FRXNotificationCenter;
class FRXWebsocketConnectionManager;
class HTTPServer;
class InboundSockets;
struct CopyCounters;

/// Borrowed. Without a server its numbers are 0.
struct StatisticsSources {
  const FRXBrowser& browser;
  const FRXWebsocketConnectionManager& manager;
  const InboundSockets& inbound;
  const FRXNotificationCenter& center;
  const HTTPServer* server;
  const CopyCounters& copies;
};

/// Thread: main
FRXStatistics gatherStatistics(const StatisticsSources& sources);

}  // namespace ferrox
