// What all connections of one running server share.
#pragma once

#include "Platform/HTTP/Server/ConnectionCounts.h"
#include "Platform/HTTP/Server/DiskPool.h"
#include "Platform/HTTP/Server/HTTPServer.h"
#include "Platform/HTTP/Server/HTTPServerLimits.h"
#include "Platform/HTTP/Server/ServerCounters.h"

namespace ferrox {

/// Fixed while the server runs. Thread: any
struct ServerContext {
  ServerContext(const HTTPServerLimits& serverLimits, WebSocketAccess webSocketAccess,
                HTTPServer::ConnectionClass connectionClass, std::shared_ptr<ServerCounters> serverCounters)
      : limits(serverLimits),
        access(std::move(webSocketAccess)),
        makeConnection(std::move(connectionClass)),
        counters(std::move(serverCounters)),
        counts(limits.connections, limits.connectionsPerAddress, counters),
        disk(diskThreads) {}

  /// Enough that one stuck disk leaves room for others.
  static constexpr std::size_t diskThreads = 4;

  const HTTPServerLimits limits;
  const WebSocketAccess access;
  const HTTPServer::ConnectionClass makeConnection;
  const std::shared_ptr<ServerCounters> counters;
  ConnectionCounts counts;
  DiskPool disk;
};

}  // namespace ferrox
