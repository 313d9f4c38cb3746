#include "Classes/Utilities/LocalServiceDirectory.h"

#include <mutex>
#include <utility>

namespace ferrox {
namespace {

struct Directory {
  std::mutex mutex;
  LocalServiceDirectory::ServerSource serverSource;
  LocalServiceDirectory::ServiceLookup serviceLookup;
  LocalServiceDirectory::SessionSource sessionSource;
};

// Never destroyed: background threads may still ask while the process ends.
Directory& directory() {
  static Directory& instance = *new Directory;
  return instance;
}

std::optional<LocalServiceDirectory::LocalServer> localServer() {
  LocalServiceDirectory::ServerSource source;
  {
    const std::lock_guard lock(directory().mutex);
    source = directory().serverSource;
  }
  return source ? source() : std::nullopt;
}

}  // namespace

void LocalServiceDirectory::setServerSource(ServerSource source) {
  const std::lock_guard lock(directory().mutex);
  directory().serverSource = std::move(source);
}

void LocalServiceDirectory::setServiceLookup(ServiceLookup lookup) {
  const std::lock_guard lock(directory().mutex);
  directory().serviceLookup = std::move(lookup);
}

void LocalServiceDirectory::setSessionSource(SessionSource source) {
  const std::lock_guard lock(directory().mutex);
  directory().sessionSource = std::move(source);
}

std::optional<std::string> LocalServiceDirectory::frxServerId() {
  auto server = localServer();
  if (!server) return std::nullopt;
  return std::move(server->frxServerId);
}

std::uint16_t LocalServiceDirectory::serverPort() {
  const auto server = localServer();
  return server ? server->port : std::uint16_t{0};
}

std::shared_ptr<FRXNetService> LocalServiceDirectory::serviceWithId(const std::string& serviceId) {
  ServiceLookup lookup;
  {
    const std::lock_guard lock(directory().mutex);
    lookup = directory().serviceLookup;
  }
  return lookup ? lookup(serviceId) : nullptr;
}

std::string LocalServiceDirectory::serviceSessionId() {
  SessionSource source;
  {
    const std::lock_guard lock(directory().mutex);
    source = directory().sessionSource;
  }
  return source ? source() : std::string();
}

}  // namespace ferrox
