// The embedded HTTP/1.1 server, published by DNS-SD while it runs.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/HTTP/Server/HTTPServerLimits.h"
#include "Platform/HTTP/Server/HTTPServerStatistics.h"

namespace ferrox {

class HTTPConnection;

/// Listens on all interfaces, IPv4 and IPv6. Published only when a type is set.
/// Thread: any, unless said otherwise; configuration other than name, TXT record and publication takes
/// effect at the next `start`.
class FRX_EXPORT HTTPServer {
 public:
  using ConnectionClass = std::function<std::unique_ptr<HTTPConnection>()>;

  /// `discovery` may be null (nothing is published then) and must outlive the server.
  explicit HTTPServer(DNSSD* discovery);
  virtual ~HTTPServer();
  HTTPServer(const HTTPServer&) = delete;
  HTTPServer& operator=(const HTTPServer&) = delete;

  void setType(std::string type);
  void setName(std::string name);
  /// The configured name; after a conflict on the network, the one under which the service is visible.
  std::string name() const;
  /// 0 means any free port.
  void setPort(std::uint16_t port);
  /// The configured port; while running, the bound one.
  std::uint16_t port() const;
  void setConnectionClass(ConnectionClass makeConnection);
  void setLimits(const HTTPServerLimits& limits);
  const HTTPServerLimits& limits() const;
  void setWebSocketAccess(WebSocketAccess access);
  /// Threads that move connections' bytes; 1 is enough for a small machine. Default 1.
  void setNetworkThreadCount(unsigned count);

  /// False with `error` when no address can be bound (the system's error code).
  [[nodiscard]] virtual bool start(FRXError* error = nullptr);
  /// Withdraws the service and closes every connection before it returns.
  virtual void stop();
  virtual bool isRunning() const;

  /// What it has done so far: a few loads, no lock. The numbers are not taken in one instant.
  HTTPServerStatistics statistics() const;

  /// Kept, and pushed to DNS-SD while published.
  virtual void setTXTRecordDictionary(TXTDictionary txt);
  TXTDictionary txtRecordDictionary() const;
  /// Withdraws and publishes again under the current name, type and port.
  virtual void republishBonjour();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ferrox
