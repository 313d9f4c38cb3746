#include "Platform/PlatformServices.h"

#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/Net/HostNameResolver.h"
#include "Platform/Notifications/NotificationDispatcher.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/TCP/TCPClientSocket.h"

namespace ferrox {
namespace {

DNSSDConfiguration& discoveryConfiguration() {
  static DNSSDConfiguration configuration;
  return configuration;
}

PlatformServices bind() {
  PlatformServices services;
  services.mainLoop = &RunLoop::main();
  services.background = &BackgroundQueue::shared();
  services.notifications = &NotificationDispatcher::defaultCenter();
  services.discovery = DNSSD::make(*services.mainLoop, discoveryConfiguration()).release();
  services.resolver = HostNameResolver::make(*services.discovery).release();
  services.httpClient = HTTPClient::make(*services.resolver).release();
  services.makeTCPSocket = [resolver = services.resolver, loop = services.mainLoop] {
    return TCPClientSocket::make(*resolver, *loop);
  };
  return services;
}

}  // namespace

// Never destroyed: the shared instances that hold the services live until the process ends, and the order in
// which statics are destroyed at exit is nobody's to rely on.
const PlatformServices& PlatformServices::shared() {
  static const PlatformServices& services = *new PlatformServices(bind());
  return services;
}

void PlatformServices::configureDiscovery(const DNSSDConfiguration& configuration) {
  discoveryConfiguration() = configuration;
}

}  // namespace ferrox
