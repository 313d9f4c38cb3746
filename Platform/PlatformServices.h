// The one place where the platform's services are bound to their implementations.
#pragma once

#include <functional>
#include <memory>

#include "Platform/Base/Export.h"
#include "Platform/DNSSD/DNSSD.h"

namespace ferrox {

class BackgroundQueue;
class HTTPClient;
class HostNameResolver;
class NotificationDispatcher;
class RunLoop;
class TCPClientSocket;

/// Everything the system asks of its host. The classes take it at construction, so a test can hand in its
/// own; the shared instances use `shared()`. Members are borrowed and outlive their users.
struct FRX_EXPORT PlatformServices {
  RunLoop* mainLoop = nullptr;
  BackgroundQueue* background = nullptr;
  NotificationDispatcher* notifications = nullptr;
  DNSSD* discovery = nullptr;
  HostNameResolver* resolver = nullptr;
  HTTPClient* httpClient = nullptr;
  std::function<std::shared_ptr<TCPClientSocket>()> makeTCPSocket;

  /// The real services, made on first use.
  static const PlatformServices& shared();
  /// How discovery is to be set up; takes effect only before the first call of `shared()`. Thread: main
  static void configureDiscovery(const DNSSDConfiguration& configuration);
};

}  // namespace ferrox
