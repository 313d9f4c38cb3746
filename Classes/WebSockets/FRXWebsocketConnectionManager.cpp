#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"

#include <cassert>
#include <utility>

#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Notifications/NotificationSink.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/ConnectionTally.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Classes/WebSockets/PeerSocketURL.h"
#include "Platform/Host/HostIdentity.h"
#include "Platform/Log/Log.h"
#include "Platform/PlatformServices.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/SleepWatch.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox {

namespace {

constexpr std::chrono::seconds monitorInterval{15};
constexpr std::chrono::seconds connectTimeout{10};

std::shared_ptr<FRXNetService> knownService(const std::string& serviceId) {
  return LocalServiceDirectory::serviceWithId(serviceId);
}

}  // namespace

FRXWebsocketConnectionManagerParts FRXWebsocketConnectionManagerParts::usual(
    const PlatformServices& services) {
  return {
      .mainLoop = services.mainLoop,
      .makeClient = [resolver = services.resolver, loop = services.mainLoop](
                        const WebSocketClientRequest& request,
                        FRXError* error) { return WebSocketClient::make(request, *resolver, *loop, error); },
      .currentServices = [] { return FRXBrowser::sharedInstance()->currentServices(); },
      .idForServiceName =
          [](const std::string& name) { return FRXBrowser::sharedInstance()->idForServiceName(name); },
      .localFRXService =
          [] {
            return reachableRecord(FRXBrowser::sharedInstance()->localFRXService(), *HostIdentity::current());
          },
      .refreshDiscovery = [] { FRXBrowser::sharedInstance()->refresh(); },
  };
}

const std::shared_ptr<FRXWebsocketConnectionManager>& FRXWebsocketConnectionManager::sharedManager() {
  // Never destroyed: its sockets may report while the process ends.
  static const auto& manager = *new std::shared_ptr<FRXWebsocketConnectionManager>(
      make(FRXWebsocketConnectionManagerParts::usual(PlatformServices::shared())));
  return manager;
}

std::shared_ptr<FRXWebsocketConnectionManager> FRXWebsocketConnectionManager::make(
    FRXWebsocketConnectionManagerParts parts) {
  return std::shared_ptr<FRXWebsocketConnectionManager>(new FRXWebsocketConnectionManager(std::move(parts)));
}

FRXWebsocketConnectionManager::FRXWebsocketConnectionManager(FRXWebsocketConnectionManagerParts parts)
    : parts_(std::move(parts)),
      tally_(std::make_unique<ConnectionTally>()),
      dialSpread_(parts_.mainLoop->clock()) {
  settings_.connectTimeout = connectTimeout;
}

FRXWebsocketConnectionManager::~FRXWebsocketConnectionManager() = default;

bool FRXWebsocketConnectionManager::isMain() const { return parts_.mainLoop->isCurrentThread(); }

void FRXWebsocketConnectionManager::onMain(std::function<void(FRXWebsocketConnectionManager&)> work) {
  parts_.mainLoop->postOrRun([weak = weak_from_this(), work = std::move(work)] {
    if (const auto manager = weak.lock()) work(*manager);
  });
}

// Connections

void FRXWebsocketConnectionManager::start() {
  onMain([](FRXWebsocketConnectionManager& manager) { manager.startOnMain(); });
}

void FRXWebsocketConnectionManager::startOnMain() {
  for (const auto& service : parts_.currentServices()) {
    FRX_LOG_VERBOSE("Startup - opening WebSocket with " + service->serviceId());
    openSocket(service->serviceId());
  }
  // A second start leaves the former monitor running beside the new one.
  if (connectionMonitor_) formerMonitors_.push_back(std::move(connectionMonitor_));
  connectionMonitor_ =
      Timer::scheduleRepeating(*parts_.mainLoop, monitorInterval, [this] { monitorConnections(); });
  sleepWatch_ = std::make_unique<SleepWatch>(*parts_.mainLoop, [this](Clock::Duration) { machineDidWake(); });
}

void FRXWebsocketConnectionManager::stop() {
  onMain([](FRXWebsocketConnectionManager& manager) { manager.stopOnMain(); });
}

void FRXWebsocketConnectionManager::stopOnMain() {
  connectionMonitor_.reset();
  formerMonitors_.clear();
  sleepWatch_.reset();
  // Those that are still dialling would open after the stop.
  const auto dialling = std::exchange(unfiled_, {});
  for (const auto& socket : dialling) {
    socket->detach();
    socket->client()->close();
  }
  const auto sockets = std::exchange(websockets_, {});
  for (const auto& [serviceId, socket] : sockets) {
    FRX_LOG_VERBOSE("Shutdown - closing WebSocket connection with " + serviceId);
    if (socket->client()->readyState() != WebSocketReadyState::Closed) unfiled_.insert(socket);
    socket->client()->close();
  }
  noteOpenSockets();
}

void FRXWebsocketConnectionManager::connectToService(const std::shared_ptr<FRXNetService>& service) {
  if (!service) return;
  onMain([serviceId = service->serviceId()](FRXWebsocketConnectionManager& manager) {
    manager.connect(serviceId);
  });
}

void FRXWebsocketConnectionManager::connect(const std::string& serviceId) {
  if (const auto socket = filed(serviceId); socket && socket->isOpen()) {
    FRX_LOG_VERBOSE("Discovered service " + serviceId +
                    ", but websocket connection was already open...closing connection and attempting to "
                    "re-establish on next monitor interval");
    socket->client()->close();
    return noteOpenSockets();
  }
  FRX_LOG_VERBOSE("FRX discovered - opening WebSocket connection with " + serviceId);
  openSocket(serviceId);
}

void FRXWebsocketConnectionManager::disconnectFromService(const std::shared_ptr<FRXNetService>& service) {
  if (!service) return;
  onMain([serviceId = service->serviceId()](FRXWebsocketConnectionManager& manager) {
    const auto socket = manager.filed(serviceId);
    if (socket && socket->isOpen()) manager.close(serviceId);
  });
}

void FRXWebsocketConnectionManager::closeWebsocket(const std::string& serviceId) {
  onMain([serviceId](FRXWebsocketConnectionManager& manager) { manager.close(serviceId); });
}

void FRXWebsocketConnectionManager::close(const std::string& serviceId) {
  FRX_LOG_VERBOSE("Closing and removing reference to websocket connection with service " + serviceId);
  const auto socket = filed(serviceId);
  if (!socket) return;
  unfile(socket);
  socket->client()->close();
  noteOpenSockets();
}

void FRXWebsocketConnectionManager::openWebsocketConnectionWithService(
    const std::optional<std::string>& serviceId) {
  if (!serviceId) return;
  onMain([id = *serviceId](FRXWebsocketConnectionManager& manager) { manager.openSocket(id); });
}

void FRXWebsocketConnectionManager::openSocket(const std::string& serviceId) {
  assert(isMain());
  if (const auto former = filed(serviceId);
      former && former->client()->readyState() != WebSocketReadyState::Closed) {
    former->client()->close();
    noteOpenSockets();
  }
  const auto address = FRXUtilities::addressForSender(serviceId);
  if (!address) {
    FRX_LOG_VERBOSE("Attempted to open WebSocket connection to service that is no longer available: " +
                    serviceId);
    return;
  }
  const auto local = parts_.localFRXService();
  const auto url =
      peerSocketURL(*address, LocalServiceDirectory::frxServerId().value_or(std::string()), local.get());
  WebSocketClientRequest request = settings_;
  request.url = url.value_or(std::string());
  request.dialDelay = dialSpread_.next();
  const auto client = url ? parts_.makeClient(request, nullptr) : nullptr;
  tally_->didAttempt();
  if (!client) {
    tally_->didFailToBegin();
    FRX_LOG_WARN("Failed request to get WebSocket connection with service " + serviceId);
    return;
  }
  const auto socket = PeerSocket::make(client, serviceId, *address, *this);
  unfiled_.insert(socket);
  client->open();
}

bool FRXWebsocketConnectionManager::connectionIsOpenForService(const std::string& serviceName) const {
  const auto serviceId = parts_.idForServiceName(serviceName);
  return serviceId && isConnectedToService(*serviceId);
}

bool FRXWebsocketConnectionManager::isConnectedToService(const std::string& serviceId) const {
  const MutexLock lock(openMutex_);
  return openIds_.contains(serviceId);
}

std::vector<std::shared_ptr<WebSocketClient>> FRXWebsocketConnectionManager::websockets() const {
  assert(isMain());
  std::vector<std::shared_ptr<WebSocketClient>> sockets;
  sockets.reserve(websockets_.size());
  for (const auto& [serviceId, socket] : websockets_) sockets.push_back(socket->client());
  return sockets;
}

void FRXWebsocketConnectionManager::setConnectionSettings(const WebSocketClientRequest& settings) {
  onMain([settings](FRXWebsocketConnectionManager& manager) { manager.settings_ = settings; });
}

std::shared_ptr<PeerSocket> FRXWebsocketConnectionManager::filed(const std::string& serviceId) const {
  const auto found = websockets_.find(serviceId);
  return found == websockets_.end() ? nullptr : found->second;
}

void FRXWebsocketConnectionManager::file(const std::shared_ptr<PeerSocket>& socket) {
  unfiled_.erase(socket);
  websockets_.insert_or_assign(socket->lookupId(), socket);
  noteOpenSockets();
}

void FRXWebsocketConnectionManager::unfile(const std::shared_ptr<PeerSocket>& socket) {
  websockets_.erase(socket->lookupId());
  if (socket->client()->readyState() != WebSocketReadyState::Closed) unfiled_.insert(socket);
}

void FRXWebsocketConnectionManager::noteOpenSockets() {
  std::set<std::string, std::less<>> ids;
  openSockets_.clear();
  openClients_.clear();
  for (const auto& [serviceId, socket] : websockets_) {
    if (!socket->isOpen()) continue;
    openSockets_.push_back(socket);
    openClients_.push_back(socket->client());
    ids.insert(serviceId);
  }
  const MutexLock lock(openMutex_);
  openIds_.swap(ids);
}

// Upkeep

void FRXWebsocketConnectionManager::monitorConnections() {
  assert(isMain());
  if (websockets_.empty()) FRX_LOG_VERBOSE("No websocket connections to give a status report on.");
  const auto snapshot = websockets_;
  for (const auto& entry : snapshot) {
    const std::string& serviceId = entry.first;
    const auto socket = filed(serviceId);
    if (!socket) continue;
    switch (socket->client()->readyState()) {
      case WebSocketReadyState::Connecting:
        FRX_LOG_VERBOSE("websocket is currently connecting: " + serviceId);
        break;
      case WebSocketReadyState::Open:
        FRX_LOG_VERBOSE("websocket connection is open: " + serviceId);
        break;
      case WebSocketReadyState::Closing:
        FRX_LOG_VERBOSE("websocket is currently closing: " + serviceId);
        break;
      case WebSocketReadyState::Closed:
        FRX_LOG_VERBOSE("websocket  connection is closed: " + serviceId);
        if (!knownService(serviceId)) break;
        FRX_LOG_VERBOSE("connection to service " + serviceId +
                        " is closed, but is still listed as an available service...attempting to "
                        "re-establish connection");
        openSocket(serviceId);
        break;
    }
  }
}

void FRXWebsocketConnectionManager::machineDidWake() {
  FRX_LOG_VERBOSE("The machine slept: checking all connections");
  if (parts_.refreshDiscovery) parts_.refreshDiscovery();
  for (const auto& client : openClients_) client->checkNow();
  monitorConnections();
}

FRXOutboundStatistics FRXWebsocketConnectionManager::statistics() const {
  assert(isMain());
  FRXOutboundStatistics statistics{.connections = tally_->connections(),
                                   .messages = tally_->messages.statistics(),
                                   .awaitedReplies = messageResponseCallbacks_.size()};
  for (const auto& [serviceId, socket] : websockets_) {
    if (!socket->isOpen()) continue;
    ++statistics.openSockets;
    statistics.unsentBytes += socket->client()->unsentBytes();
  }
  return statistics;
}

std::string FRXWebsocketConnectionManager::connectionStatusToString(int state) {
  switch (state) {
    case static_cast<int>(WebSocketReadyState::Connecting):
      return "CONNECTING";
    case static_cast<int>(WebSocketReadyState::Open):
      return "OPEN";
    case static_cast<int>(WebSocketReadyState::Closing):
      return "CLOSING";
    case static_cast<int>(WebSocketReadyState::Closed):
      return "CLOSED";
    default:
      return "UNKNOWN";
  }
}

}  // namespace ferrox
