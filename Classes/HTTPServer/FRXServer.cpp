#include "Classes/HTTPServer/FRXServer.h"

#include <cassert>
#include <chrono>
#include <string_view>
#include <utility>
#include <vector>

#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/Messaging.h"
#include "Classes/WebSockets/PeerConnector.h"
#include "Platform/HTTP/Server/HTTPServer.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"
#include "Platform/PlatformServices.h"

namespace ferrox {
namespace {

constexpr std::string_view appName = "Vantle";
/// Peers tell a heartbeat from the other two forms of the record by this name.
constexpr std::string_view heartbeatAppName = "Alpha";
constexpr auto heartbeatInterval = std::chrono::seconds(5);

struct Shared {
  std::mutex mutex;
  std::shared_ptr<FRXServer> server;
  std::once_flag once;
};

// Never destroyed: background threads may still ask while the process ends.
Shared& shared() {
  static Shared& instance = *new Shared;
  return instance;
}

std::optional<LocalServiceDirectory::LocalServer> describeSharedServer() {
  std::shared_ptr<FRXServer> server;
  {
    const std::lock_guard lock(shared().mutex);
    server = shared().server;
  }
  if (!server) return std::nullopt;
  return LocalServiceDirectory::LocalServer{server->frxServerId(), server->port()};
}

void registerServer(const std::shared_ptr<FRXServer>& server) {
  RoutingHTTPConnection::setCapabilitiesDelegate(server);
  LocalServiceDirectory::setServerSource(describeSharedServer);
}

std::shared_ptr<HTTPServer> makeHTTPServer(const PlatformServices& services) {
  FRX_LOG_VERBOSE("Initializing FRXServer");
  auto httpServer = std::make_shared<HTTPServer>(services.discovery);
  httpServer->setType("_ferrox._tcp");
  return httpServer;
}

std::vector<std::string_view> splitAtBlanks(std::string_view text) {
  std::vector<std::string_view> words;
  for (std::size_t blank = text.find(' '); blank != std::string_view::npos; blank = text.find(' ')) {
    words.push_back(text.substr(0, blank));
    text.remove_prefix(blank + 1);
  }
  words.push_back(text);
  return words;
}

}  // namespace

struct FRX_HIDDEN FRXServer::Publication {
  std::weak_ptr<HTTPServer> httpServer;
  const Clock& clock;
  std::mutex mutex;
  std::optional<std::string> hostName;

  Publication(const std::shared_ptr<HTTPServer>& server, const Clock& clockInUse)
      : httpServer(server), clock(clockInUse) {}

  void setHostName(std::string name) {
    const std::lock_guard lock(mutex);
    hostName = std::move(name);
  }

  std::optional<std::string> currentHostName() {
    const std::lock_guard lock(mutex);
    return hostName;
  }

  TXTDictionary makeTXT(std::string_view app) {
    const FRXDate now = clock.calendarNow();
    return {{"RegisteredAt", std::to_string(FRXUtilities::secondsSinceReferenceDate(now))},
            {"DeviceId", FRXUtilities::currentDeviceUUID().value_or(std::string())},
            {"FriendlyName", currentHostName().value_or(std::string())},
            {"Heartbeat", FRXUtilities::dateToString(now).value_or(std::string())},
            {"App", std::string(app)}};
  }

  void beat() {
    if (const auto server = httpServer.lock()) server->setTXTRecordDictionary(makeTXT(heartbeatAppName));
  }

  void publishStatus(const std::optional<std::string>& status) {
    const auto server = httpServer.lock();
    if (!server) return;
    auto txt = makeTXT(appName);
    txt.emplace("Status", status.value_or(std::string()));
    server->setTXTRecordDictionary(std::move(txt));
  }
};

std::shared_ptr<FRXServer> FRXServer::sharedInstance() {
  std::call_once(shared().once, [] {
    std::shared_ptr<FRXServer> server;
    {
      const std::lock_guard lock(shared().mutex);
      if (!shared().server) shared().server = std::make_shared<FRXServer>();
      server = shared().server;
    }
    registerServer(server);
    installMessaging();
  });
  const std::lock_guard lock(shared().mutex);
  return shared().server;
}

void FRXServer::setSharedInstance(std::shared_ptr<FRXServer> server) {
  const std::shared_ptr<FRXServer> present = server;
  {
    // The former one goes with the parameter, outside the lock.
    const std::lock_guard lock(shared().mutex);
    shared().server.swap(server);
  }
  registerServer(present);
}

FRXServer::FRXServer() : FRXServer(PlatformServices::shared()) {}

FRXServer::FRXServer(const PlatformServices& services)
    : FRXServer(makeHTTPServer(services), *services.mainLoop) {}

std::shared_ptr<FRXServer> FRXServer::initWithServer(std::shared_ptr<HTTPServer> httpServer, RunLoop& loop) {
  if (!httpServer) return nullptr;
  return std::shared_ptr<FRXServer>(new FRXServer(std::move(httpServer), loop));
}

FRXServer::FRXServer(std::shared_ptr<HTTPServer> httpServer, RunLoop& loop)
    : httpServer_(std::move(httpServer)),
      loop_(loop),
      publication_(std::make_shared<Publication>(httpServer_, loop.clock())) {
  if (httpServer_) {
    httpServer_->setConnectionClass([] { return std::make_unique<RoutingHTTPConnection>(); });
  }
}

FRXServer::~FRXServer() = default;

std::uint16_t FRXServer::port() const { return httpServer_ ? httpServer_->port() : std::uint16_t{0}; }

void FRXServer::setPort(std::uint16_t port) {
  if (httpServer_) httpServer_->setPort(port);
}

FRXCapabilities FRXServer::capabilities() const {
  const std::lock_guard lock(capabilitiesMutex_);
  return internalCapabilities_;
}

bool FRXServer::addCapability(std::shared_ptr<FRXCapability> capability) {
  if (!capability) return false;
  std::string name = capability->name();
  const std::lock_guard lock(capabilitiesMutex_);
  return internalCapabilities_.emplace(std::move(name), std::move(capability)).second;
}

bool FRXServer::removeCapabilityWithName(const std::string& name) {
  std::shared_ptr<FRXCapability> removed;  // destroyed after the lock is given back
  const std::lock_guard lock(capabilitiesMutex_);
  const auto found = internalCapabilities_.find(name);
  if (found == internalCapabilities_.end()) return false;
  removed = std::move(found->second);
  internalCapabilities_.erase(found);
  return true;
}

void FRXServer::createNewServiceName(ServiceNameCallback callback) {
  FRXUtilities::getHostNameWithCallback(
      [publication = publication_, callback = std::move(callback)](const std::string& hostName) {
        publication->setHostName(hostName);
        if (callback) callback(text::upperCased(createServiceNameWithHostname(hostName)));
      });
}

std::string FRXServer::createServiceNameWithHostname(std::string_view hostName) {
  // Characters, not bytes: the discovery layer shortens what then exceeds a DNS label.
  constexpr std::size_t longestName = 62;
  constexpr std::size_t separators = 2;
  const std::string uuid = FRXUtilities::currentDeviceUUIDWithDashesRemoved().value_or(std::string());
  const std::string version = FRXUtilities::createAndEncodeServiceVersion();
  std::string device = formatDeviceNameString(hostName);
  const std::size_t taken = text::characterCount(uuid) + version.size() + separators;
  if (taken <= longestName) device = text::prefix(device, longestName - taken);
  return uuid + "-" + version + "/" + device;
}

std::string FRXServer::formatDeviceNameString(std::string_view name) {
  std::string formatted;
  for (const std::string_view word : splitAtBlanks(name)) {
    formatted += text::alphanumericOnly(word);
    formatted += ' ';
  }
  return text::trimmed(formatted);
}

void FRXServer::republishBonjourWithServiceName(const std::string& serviceName) {
  if (!httpServer_) return;
  httpServer_->setName(serviceName);
  if (!httpServer_->isRunning()) return;
  httpServer_->setTXTRecordDictionary(publication_->makeTXT(appName));
  httpServer_->republishBonjour();
}

void FRXServer::updateTxtRecordWithStatus(std::optional<std::string> status) {
  FRXUtilities::getHostNameWithCallback([publication = publication_, status = std::move(status)](
                                            const std::string&) { publication->publishStatus(status); });
}

std::string FRXServer::frxServerId() const { return httpServer_ ? httpServer_->name() : std::string(); }

std::optional<std::string> FRXServer::hostName() const { return publication_->currentHostName(); }

bool FRXServer::start(FRXError* error) {
  FRX_LOG_VERBOSE("Starting FRXServer");
  if (!httpServer_) {
    if (error != nullptr) {
      FRX_LOG_ERROR("HTTPServer reference was not set during initialization and is nil.");
      *error = {std::string(FRXGeneralErrorDomain), 0, "FRX's internal HTTPServer reference was nil."};
    }
    return false;
  }
  if (const auto connector = PeerConnector::registered()) connector->start();
  return httpServer_->start(error);
}

void FRXServer::stop() {
  if (const auto connector = PeerConnector::registered()) connector->stop();
  FRX_LOG_VERBOSE("Stopping FRXServer");
  stopHeartbeatTimer();
  if (httpServer_) httpServer_->stop();
}

void FRXServer::startHeartbeatTimer() {
  assert(loop_.isCurrentThread());
  stopHeartbeatTimer();
  heartbeatTimer_ = Timer::scheduleRepeating(loop_, heartbeatInterval,
                                             [publication = publication_] { publication->beat(); });
}

void FRXServer::stopHeartbeatTimer() {
  assert(loop_.isCurrentThread());
  heartbeatTimer_.reset();
}

void FRXServer::broadcastHeartbeat() { publication_->beat(); }

}  // namespace ferrox
