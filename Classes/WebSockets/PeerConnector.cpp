#include "Classes/WebSockets/PeerConnector.h"

#include <mutex>
#include <utility>

namespace ferrox {
namespace {

struct Registry {
  std::mutex mutex;
  std::shared_ptr<PeerConnector> connector;
};

// Never destroyed, so that what ends late in the process may still ask.
Registry& registry() {
  static Registry& instance = *new Registry;
  return instance;
}

}  // namespace

std::shared_ptr<PeerConnector> PeerConnector::registered() {
  const std::lock_guard lock(registry().mutex);
  return registry().connector;
}

void PeerConnector::setRegistered(std::shared_ptr<PeerConnector> connector) {
  // Swapped, so that the former connector is destroyed outside the lock.
  const std::lock_guard lock(registry().mutex);
  registry().connector.swap(connector);
}

}  // namespace ferrox
