// Connects to the given peers, asks all of them what they offer, once or several times one after another, and
// prints each result as one line of JSON.
//   listing_probe SECONDS TIMES HOST:PORT...
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Classes/Capabilities/FRXCapabilitiesListing.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Platform/Base/Json.h"
#include "Platform/PlatformServices.h"
#include "Platform/RunLoop/RunLoop.h"

namespace {

using namespace ferrox;
using Services = std::vector<std::shared_ptr<FRXNetService>>;

Services servicesFrom(int count, char** addresses) {
  Services services;
  for (int i = 0; i < count; ++i) {
    const std::string address = addresses[i];
    const std::size_t colon = address.rfind(':');
    services.push_back(std::make_shared<FRXNetService>(address.substr(0, colon),
                                                       std::stoi(address.substr(colon + 1)), "PEER"));
  }
  return services;
}

std::shared_ptr<FRXWebsocketConnectionManager> managerOf(const Services& services) {
  LocalServiceDirectory::setServerSource([] {
    return LocalServiceDirectory::LocalServer{"PROBE-MTI=/PROBE", 1};
  });
  LocalServiceDirectory::setServiceLookup([services](const std::string& id) {
    for (const auto& service : services) {
      if (service->serviceId() == id) return service;
    }
    return std::shared_ptr<FRXNetService>();
  });
  auto parts = FRXWebsocketConnectionManagerParts::usual(PlatformServices::shared());
  parts.currentServices = [services] { return services; };
  parts.idForServiceName = [](const std::string&) { return std::nullopt; };
  parts.localFRXService = [] { return nullptr; };
  parts.refreshDiscovery = [] {};
  return FRXWebsocketConnectionManager::make(std::move(parts));
}

FRXValue jsonOf(const FRXCapabilitiesListing::Result& result) {
  FRXDictionary kinds;
  for (const auto& [kind, byService] : result) {
    FRXDictionary services;
    for (const auto& [serviceId, accessors] : byService) {
      FRXArray array;
      for (const auto& accessor : accessors) {
        array.push_back(FRXDictionary{{"name", accessor.name()}, {"url", accessor.accessURL()}});
      }
      services.emplace(serviceId, std::move(array));
    }
    kinds.emplace(kind, std::move(services));
  }
  return kinds;
}

/// Lists until it was done that many times; then the process ends.
void list(const FRXCapabilitiesListing& listing, int times) {
  if (times == 0) std::_Exit(0);
  listing.listCapabilities([&listing, times](const FRXCapabilitiesListing::Result& result) {
    std::cout << writeJson(jsonOf(result)).value_or("not JSON") << std::endl;
    list(listing, times - 1);
  });
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) return 2;
  const Services services = servicesFrom(count - 3, arguments + 3);
  const auto manager = managerOf(services);
  RunLoop& loop = RunLoop::main();

  auto parts = FRXCapabilitiesListingParts::usual();
  parts.currentServices = [&services] { return services; };
  parts.broadcastMessage = [&manager](const FRXWebsocketMessage& message, const std::string& toService,
                                      const auto& onResponse, const auto& onError) {
    manager->broadcastMessage(message, toService, onResponse, onError);
  };
  parts.forgetReply = [&manager](const std::string& id) { manager->forgetReply(id); };
  FRXCapabilitiesListing listing(std::move(parts));
  listing.setResponseTimeout(std::chrono::seconds(std::stoi(arguments[1])));

  std::size_t open = 0;
  const auto connected = FRXNotificationCenter::sharedCenter()->addObserver(
      FRXConnectedNotification, std::nullopt, [&](const LocalNotification&) {
        if (++open == services.size()) list(listing, std::stoi(arguments[2]));
      });
  manager->start();
  loop.run();
}
