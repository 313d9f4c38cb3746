#include "Apps/ferrox/Node/Node.h"

#include <algorithm>
#include <utility>

#include "Classes/Discovery/FRXAddressSearch.h"
#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/WebSockets/PeerConnector.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/Host/HostIdentity.h"
#include "Platform/PlatformServices.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox::command {
namespace {

constexpr const char* serviceType = "_ferrox._tcp";
constexpr std::chrono::seconds heartbeatInterval{5};
constexpr std::chrono::seconds offersInterval{30};

PeerTable::Time now() { return std::chrono::system_clock::now(); }

}  // namespace

std::shared_ptr<Node> Node::make(NodeSetup setup, NodeListener& listener) {
  return std::shared_ptr<Node>(new Node(std::move(setup), listener));
}

Node::Node(NodeSetup setup, NodeListener& listener)
    : setup_(std::move(setup)),
      listener_(listener),
      services_(PlatformServices::shared()),
      messaging_(NodeMessaging::make(
          listener, {[this](ConnectionEvent::Change change, const FRXDictionary& userInfo) {
                       connectionChanged(change, userInfo);
                     },
                     [this](const FRXNotification& notification, const FRXNetService& sender) {
                       offersTold(notification, sender);
                     }})) {}

Node::~Node() = default;

void Node::start() {
  running_ = true;
  if (!setup_.publishes) return startBrowsing();
  server_ = FRXServer::sharedInstance();
  server_->setPort(setup_.options.port);
  messaging_->start();
  for (const Observation& observation : setup_.observations) messaging_->observe(observation);
  createName([this](const std::string& name) { startServer(name); });
}

void Node::finish(std::chrono::milliseconds atMost, std::function<void()> completion) {
  if (!running_ || !server_) {
    stop();
    return services_.mainLoop->post(std::move(completion));
  }
  // First, or peers that are still found would be connected to.
  stopBrowsing();
  messaging_->closeConnections(atMost, [weak = weak_from_this(), completion = std::move(completion)] {
    if (const auto self = weak.lock()) self->stop();
    completion();
  });
}

void Node::stop() {
  if (!std::exchange(running_, false)) return;
  stopBrowsing();
  if (!server_) return;
  server_->stop();
  messaging_->stop();
  // The browser would see it only a second later, when the loop runs no more.
  if (const auto sessionId = std::exchange(sessionId_, std::nullopt)) listener_.localServiceEnded(*sessionId);
}

void Node::createName(std::function<void(std::string)> completion) {
  server_->createNewServiceName(
      [weak = weak_from_this(), completion = std::move(completion)](const std::string& name) {
        RunLoop::main().post([weak, completion, name] {
          const auto self = weak.lock();
          if (self && self->running_) completion(name);
        });
      });
}

void Node::startServer(const std::string& serviceName) {
  server_->republishBonjourWithServiceName(serviceName);
  FRXError error;
  if (!server_->start(&error)) {
    running_ = false;
    return listener_.nodeFailed(error.localizedDescription);
  }
  // Offers take the server's port, which is known only now.
  offers_.emplace(*server_);
  offers_->addAll(setup_.offers);
  server_->startHeartbeatTimer();
  listener_.nodeStarted({server_->frxServerId(), server_->port(), HostIdentity::current()->computerName(),
                         FRXUtilities::currentDeviceUUID().value_or(""),
                         std::string(services_.discovery->backEndName())});
  // The record is empty until it is written for the first time; peers should not wait for a heartbeat.
  std::string problem;
  if (!setStatus(setup_.status.value_or(""), problem)) listener_.nodeFailed(problem);
  startBrowsing();
}

void Node::startBrowsing() {
  const auto& browser = FRXBrowser::sharedInstance();
  browser->setDelegate(shared_from_this());
  browser->setChecksNewServicesAtOnce(true);
  rejoined_ = services_.notifications->addObserver(
      FRXServiceRejoinedNetworkNotification, browser.get(), [this](const LocalNotification& notification) {
        const auto id = notification.userInfo.find(FRXServiceRejoinedNetworkFRXIdKey);
        if (id != notification.userInfo.end() && id->second.asText()) {
          listener_.peerRejoined(*id->second.asText());
        }
      });
  browser->startBrowsingForServicesOfType(serviceType, "");
  for (const FRXPeerAddress& address : setup_.options.peers) {
    searches_.push_back(std::make_shared<FRXAddressSearch>(*browser, *services_.mainLoop, address));
    searches_.back()->start();
  }
  offersTimer_ = Timer::scheduleRepeating(*services_.mainLoop, offersInterval, [this] { askAllForOffers(); });
}

void Node::stopBrowsing() {
  searches_.clear();
  statusTimer_.reset();
  offersTimer_.reset();
  rejoined_.reset();
  FRXBrowser::sharedInstance()->stopBrowsingForServices();
  FRXBrowser::sharedInstance()->setDelegate(nullptr);
}

std::vector<Peer> Node::peers() const {
  const auto connector = PeerConnector::registered();
  std::vector<Peer> peers = peers_.sorted();
  for (Peer& peer : peers) {
    // A connection that is being closed is none any more, long before its end is confirmed.
    if (!connector || !connector->isConnectedToService(peer.service->serviceId()))
      peer.connectedSince.reset();
  }
  return peers;
}

bool Node::isAnnounced() const {
  return setup_.publishes && setup_.options.discovery != DNSSDConfiguration::BackEnd::Off;
}

bool Node::isSearching() const {
  return std::any_of(searches_.begin(), searches_.end(),
                     [](const auto& search) { return search->isStarted() && !search->foundServiceId(); });
}

FRXDictionary Node::describe(const Peer& peer) const {
  const auto connector = PeerConnector::registered();
  FRXDictionary members = recordOf(*peer.service);
  members["connected"] = connector && connector->isConnectedToService(peer.service->serviceId());
  members["state"] = std::string(toString(peer.state));
  return members;
}

void Node::search(const FRXPeerAddress& address, std::function<void(FetchedService)> completion) {
  fetchService(*services_.httpClient, address,
               [weak = weak_from_this(), completion = std::move(completion)](const FetchedService& fetched) {
                 RunLoop::main().post([weak, completion, fetched] {
                   const auto self = weak.lock();
                   if (!self || !self->running_) return;
                   if (fetched.service) FRXBrowser::sharedInstance()->monitorService(fetched.service);
                   completion(fetched);
                 });
               });
}

bool Node::setStatus(const std::string& text, std::string& problem) {
  if (text.size() > maxStatusSize) {
    problem = "a status has at most " + std::to_string(maxStatusSize) + " bytes";
    return false;
  }
  status_ = text;
  server_->updateTxtRecordWithStatus(status_);
  repeatStatus();
  return true;
}

// A heartbeat rewrites the record without the status, so the status follows each heartbeat for as long as
// there is one.
void Node::repeatStatus() {
  statusTimer_.reset();
  if (status_.empty()) return;
  statusTimer_ = Timer::scheduleRepeating(*services_.mainLoop, heartbeatInterval,
                                          [this] { server_->updateTxtRecordWithStatus(status_); });
}

void Node::rename(std::function<void(std::string)> completion) {
  createName([this, completion = std::move(completion)](const std::string& name) {
    server_->republishBonjourWithServiceName(name);
    completion(name);
  });
}

void Node::localFRXServiceStarted(const std::string& sessionId) {
  sessionId_ = sessionId;
  listener_.localServiceStarted(sessionId);
}

void Node::localFRXServiceEnded(const std::string& sessionId) {
  sessionId_.reset();
  listener_.localServiceEnded(sessionId);
}

// A search by address reports from a callback thread.
void Node::remoteFRXServiceDiscovered(const std::shared_ptr<FRXNetService>& service) {
  services_.mainLoop->postOrRun([weak = weak_from_this(), service] {
    if (const auto self = weak.lock()) self->peerDiscovered(service);
  });
}

void Node::peerDiscovered(const std::shared_ptr<FRXNetService>& service) {
  if (!running_ || FRXUtilities::isLocalDeviceService(service->name())) return;
  if (!peers_.add(service, now())) return;
  if (const auto peer = peers_.find(*service)) listener_.peerDiscovered(*peer);
  if (service->isAvailable()) peerChangedState(service, PeerState::Responsive);
}

void Node::remoteFRXServiceRemoved(const std::shared_ptr<FRXNetService>& service) {
  const auto peer = peers_.find(*service);
  if (!peer || !peers_.remove(*service)) return;
  listener_.peerRemoved(*peer);
}

void Node::remoteFRXServiceBecameResponsive(const std::shared_ptr<FRXNetService>& service) {
  peerChangedState(service, PeerState::Responsive);
}

void Node::remoteFRXServiceBecameUnresponsive(const std::shared_ptr<FRXNetService>& service) {
  peerChangedState(service, PeerState::Unresponsive);
}

void Node::peerChangedState(const std::shared_ptr<FRXNetService>& service, PeerState state) {
  if (!running_ || !peers_.setState(*service, state, now())) return;
  if (const auto peer = peers_.find(*service)) listener_.peerChangedState(*peer);
  if (state == PeerState::Responsive) askForOffers(service);
}

void Node::connectionChanged(ConnectionEvent::Change change, const FRXDictionary& userInfo) {
  const auto id = userInfo.find("frxId");
  const std::string* serviceId = id == userInfo.end() ? nullptr : id->second.asText();
  ConnectionEvent event{change, userInfo, {}};
  if (serviceId != nullptr) {
    const auto connector = PeerConnector::registered();
    const bool connected = connector && connector->isConnectedToService(*serviceId);
    // One of two attempts may fail or end while the other stands.
    if (change == ConnectionEvent::Change::Connected) {
      peers_.setConnected(*serviceId, now());
    } else if (!connected) {
      peers_.setConnected(*serviceId, std::nullopt);
    }
    event.peer = peers_.find(*serviceId);
  }
  listener_.connectionChanged(event);
}

// Peers tell of changes; what they had before is asked for.
void Node::offersTold(const FRXNotification& notification, const FRXNetService& sender) {
  const auto counts = countsInBroadcast(notification);
  if (!counts) return;
  peers_.setOffers(sender, counts->streams, counts->projects);
  listener_.peersChanged();
}

void Node::list(std::chrono::milliseconds patience,
                std::function<void(const FRXCapabilitiesListing::Result&)> completion) {
  FRXCapabilitiesListing listing;
  listing.setResponseTimeout(patience);
  listing.listCapabilities([weak = weak_from_this(), completion = std::move(completion)](
                               const FRXCapabilitiesListing::Result& result) {
    const auto self = weak.lock();
    if (self && self->running_) completion(result);
  });
}

void Node::askForOffers(const std::shared_ptr<FRXNetService>& service) {
  fetchOfferCounts(*services_.httpClient, *service,
                   [weak = weak_from_this(), service](std::optional<OfferCounts> counts) {
                     if (!counts) return;
                     RunLoop::main().post([weak, service, counts] {
                       const auto self = weak.lock();
                       if (!self || !self->running_) return;
                       self->peers_.setOffers(*service, counts->streams, counts->projects);
                       self->listener_.peersChanged();
                     });
                   });
}

void Node::askAllForOffers() {
  for (const Peer& peer : peers_.sorted()) {
    if (peer.state == PeerState::Responsive) askForOffers(peer.service);
  }
}

}  // namespace ferrox::command
