#include "Classes/Discovery/FRXBrowser.h"

#include <cassert>
#include <chrono>
#include <exception>
#include <utility>

#include "Classes/Discovery/FRXAnnouncements.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Discovery/FRXPeerAddress.h"
#include "Classes/Discovery/FRXPeerCheck.h"
#include "Classes/Discovery/FRXPeerTable.h"
#include "Classes/Discovery/FRXRecordReconfirmation.h"
#include "Classes/Discovery/FRXServiceRequest.h"
#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Classes/Monitor/FRXServiceMonitor.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/PeerConnector.h"
#include "Platform/Base/Counter.h"
#include "Platform/Base/Mutex.h"
#include "Platform/DNSSD/TXTRecord.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"
#include "Platform/Net/HostName.h"
#include "Platform/Net/HostNameResolver.h"
#include "Platform/Notifications/NotificationDispatcher.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox {
namespace {

using Selectors = FRXBrowserRespondingSelectors;

constexpr std::chrono::seconds resolutionTimeout{15};

void callSafely(const std::function<void()>& callListener) {
  try {
    callListener();
  } catch (const std::exception& problem) {
    FRX_LOG_ERROR(std::string("The browser's listener threw: ") + problem.what());
  } catch (...) {
    FRX_LOG_ERROR("The browser's listener threw");
  }
}

/// Records that do not come from an announcement name their host with or without the final dot; under two
/// keys the same peer would be two.
std::shared_ptr<FRXNetService> inAnnouncedForm(std::shared_ptr<FRXNetService> record) {
  if (!record || !record->hostName()) return record;
  std::string hostName = withAnnouncedForm(*record->hostName());
  if (hostName == *record->hostName()) return record;
  return std::make_shared<FRXNetService>(std::move(hostName), record->port(), record->name());
}

std::string describe(const TXTDictionary& entries) {
  std::string text = "{";
  for (const auto& [key, value] : entries) {
    if (text.size() > 1) text += ", ";
    text.append(key).append(" = ").append(value);
  }
  return text + "}";
}

}  // namespace

struct FRX_HIDDEN FRXBrowser::State {
  State(const PlatformServices& platform, FRXBrowserParts given)
      : services(platform),
        parts(std::move(given)),
        local(parts.localServer ? parts.localServer : sharedServerInfo),
        browser(services.discovery->makeBrowser()) {}

  bool isMainThread() const { return services.mainLoop->isCurrentThread(); }

  const PlatformServices services;
  const FRXBrowserParts parts;
  FRXPeerTable peers;
  Counter refusedServices;
  FRXLocalServiceRecord local;

  mutable Mutex sessionMutex;
  std::string serviceSessionId FRX_GUARDED_BY(sessionMutex);

  // Main thread only
  std::unique_ptr<NetServiceBrowser> browser;
  FRXAnnouncements announcements;
  std::shared_ptr<NetService> localService;
  std::shared_ptr<FRXServiceMonitor> serviceMonitor;
  std::shared_ptr<FRXNetService> unreadLocalFRXService;
  double addressResolutionTimeout = 15.0;
  bool checksNewServicesAtOnce = false;
};

// Construction

const std::shared_ptr<FRXBrowser>& FRXBrowser::sharedInstance() {
  // Never destroyed: callbacks may arrive while the process ends.
  static const auto& instance = *new std::shared_ptr<FRXBrowser>(make(PlatformServices::shared()));
  return instance;
}

std::shared_ptr<FRXBrowser> FRXBrowser::make(const PlatformServices& services, FRXBrowserParts parts) {
  std::shared_ptr<FRXBrowser> browser(new FRXBrowser(services, std::move(parts)));
  browser->state_->browser->setDelegate(browser);
  return browser;
}

FRXBrowser::FRXBrowser(const PlatformServices& services, FRXBrowserParts parts)
    : state_(std::make_unique<State>(services, std::move(parts))) {}

FRXBrowser::~FRXBrowser() = default;

/// Calls one of the operations that take a record, if the listener implements it.
void FRXBrowser::tellDelegate(Selector selector, ServiceEvent event,
                              const std::shared_ptr<FRXNetService>& record) const {
  delegate_.notify(selector,
                   [&](FRXBrowserDelegate& listener) { callSafely([&] { (listener.*event)(record); }); });
}

// Browsing

void FRXBrowser::startBrowsingForServicesOfType(const std::string& type, const std::string& inDomain) {
  assert(state_->isMainThread());
  state_->browser->searchForServices(type, inDomain);
  state_->serviceMonitor = state_->parts.makeMonitor
                               ? state_->parts.makeMonitor(weak_from_this())
                               : std::make_shared<FRXServiceMonitor>(weak_from_this(), state_->services);
  RoutingHTTPConnection::setConnectionRequestDelegate(shared_from_this());
  LocalServiceDirectory::setServiceLookup(
      [weak = weak_from_this()](const std::string& serviceId) -> std::shared_ptr<FRXNetService> {
        const auto browser = weak.lock();
        return browser ? browser->serviceWithId(serviceId) : nullptr;
      });
  LocalServiceDirectory::setSessionSource([weak = weak_from_this()] {
    const auto browser = weak.lock();
    return browser ? browser->serviceSessionId() : std::string();
  });
}

void FRXBrowser::stopBrowsingForServices() {
  assert(state_->isMainThread());
  state_->browser->stop();
  state_->announcements.clear();
  state_->peers.removeAll();
  state_->localService.reset();
  state_->local.forgetAnnounced();
}

void FRXBrowser::refresh() {
  assert(state_->isMainThread());
  state_->services.discovery->refresh();
  for (const auto& record : currentServices()) checkAtOnce(*record);
}

bool FRXBrowser::checksNewServicesAtOnce() const { return state_->checksNewServicesAtOnce; }
void FRXBrowser::setChecksNewServicesAtOnce(bool checks) { state_->checksNewServicesAtOnce = checks; }

double FRXBrowser::addressResolutionTimeout() const { return state_->addressResolutionTimeout; }
void FRXBrowser::setAddressResolutionTimeout(double seconds) {
  if (seconds >= 0) state_->addressResolutionTimeout = seconds;
}

// Known peers

std::vector<std::shared_ptr<FRXNetService>> FRXBrowser::currentServices() const {
  return state_->peers.services();
}

std::shared_ptr<FRXNetService> FRXBrowser::serviceWithId(std::string_view serviceId) const {
  return state_->peers.serviceWithId(serviceId);
}

std::optional<std::string> FRXBrowser::idForServiceName(std::string_view name) const {
  return state_->peers.idForServiceName(name);
}

std::uint64_t FRXBrowser::refusedServiceCount() const { return state_->refusedServices.value(); }

// This instance

std::shared_ptr<FRXNetService> FRXBrowser::localFRXService() const { return state_->local.record(); }
void FRXBrowser::setLocalFRXService(std::shared_ptr<FRXNetService> service) {
  state_->unreadLocalFRXService = std::move(service);
}
std::string FRXBrowser::serviceSessionId() const {
  const MutexLock lock(state_->sessionMutex);
  return state_->serviceSessionId;
}
void FRXBrowser::setServiceSessionId(std::string sessionId) {
  const MutexLock lock(state_->sessionMutex);
  state_->serviceSessionId = std::move(sessionId);
}

// Finding and resolving

void FRXBrowser::netServiceBrowserDidFindService(const std::shared_ptr<NetService>& service,
                                                 bool moreComing) {
  assert(state_->isMainThread());
  if (!service) return;
  service->setDelegate(weak_from_this());
  state_->announcements.addFound(service);
  if (!moreComing) resolveFoundServices();
}

void FRXBrowser::resolveFoundServices() {
  for (const auto& handle : state_->announcements.beginResolving()) {
    handle->resolveWithTimeout(resolutionTimeout);
  }
}

void FRXBrowser::netServiceDidResolveAddress(const std::shared_ptr<NetService>& service) {
  assert(state_->isMainThread());
  if (!service || !service->hostName()) return;
  const auto previous = state_->announcements.setResolved(service);
  // A peer that came back elsewhere under its name without having been withdrawn: nobody will ever withdraw
  // its former address.
  if (previous && (previous->hostName != service->hostName() || previous->port != service->port())) {
    withdrawAnnouncement(previous->hostName, previous->port);
  }
  const auto record = std::make_shared<FRXNetService>(service->hostName(), service->port(), service->name());
  if (FRXUtilities::isLocalDeviceService(service->name())) {
    localServiceResolved(service);
  } else {
    remoteServiceResolved(service, record);
  }
  service->stop();
}

void FRXBrowser::localServiceResolved(const std::shared_ptr<NetService>& service) {
  FRX_LOG_VERBOSE("Ignoring local FRX service: " + service->name());
  state_->localService = service;
  state_->local.setAnnounced(service->hostName().value_or(""), service->port(), service->name());
  state_->announcements.forget(*service);
  // Without a listener that would learn of it the session stays the old one.
  delegate_.notify(&Selectors::localFRXServiceStarted, [this](FRXBrowserDelegate& listener) {
    const std::string sessionId = text::randomUUID();
    setServiceSessionId(sessionId);
    callSafely([&] { listener.localFRXServiceStarted(sessionId); });
  });
}

void FRXBrowser::remoteServiceResolved(const std::shared_ptr<NetService>& service,
                                       const std::shared_ptr<FRXNetService>& record) {
  forgetGuess(*record);
  const bool wasKnown = state_->peers.contains(*record);
  if (!remember(record)) return;
  service->startMonitoring();
  if (FRXUtilities::isUWPService(record.get())) {
    if (const auto connector = PeerConnector::registered()) connector->connectToService(record);
  } else if (!wasKnown) {
    notifyServiceDiscovered(record);
    tellDelegate(&Selectors::remoteFRXServiceDiscovered, &FRXBrowserDelegate::remoteFRXServiceDiscovered,
                 record);
  }
}

/// A name stands for one running instance. What was known of it before its announcement, from itself, may
/// have named another host; both together would be two connections to one peer.
void FRXBrowser::forgetGuess(const FRXNetService& announced) {
  const auto guess = instanceNamed(announced.name());
  if (!guess || guess->isEqual(announced) ||
      state_->announcements.isAnnounced(guess->hostName().value_or(""),
                                        static_cast<std::uint16_t>(guess->port()))) {
    return;
  }
  if (const auto connector = PeerConnector::registered()) connector->disconnectFromService(guess);
  forget(guess);
}

/// Takes a record from the network into the table, if it can be true and there is room.
bool FRXBrowser::remember(const std::shared_ptr<FRXNetService>& record) {
  std::optional<std::string> objection = whyNotAPeer(*record);
  if (!objection && !state_->peers.add(record)) objection = "too many services";
  if (objection) {
    state_->refusedServices.add();
    FRX_LOG_WARN("Ignoring FRX service " + record->serviceId() + ": " + *objection);
    return false;
  }
  state_->peers.mapName(*record);
  return true;
}

// Removal

void FRXBrowser::netServiceBrowserDidRemoveService(const std::shared_ptr<NetService>& service, bool) {
  assert(state_->isMainThread());
  if (!service) return;
  if (state_->localService && state_->localService->name() == service->name()) {
    delegate_.notify(&Selectors::localFRXServiceEnded, [this](FRXBrowserDelegate& listener) {
      callSafely([&] { listener.localFRXServiceEnded(serviceSessionId()); });
    });
    return;
  }
  if (const auto removed = state_->announcements.withdraw(*service)) {
    withdrawAnnouncement(removed->hostName, removed->port);
  }
}

void FRXBrowser::withdrawAnnouncement(const std::string& hostName, std::uint16_t port) {
  if (state_->announcements.isAnnounced(hostName, port)) return;
  if (const auto record = serviceWithId(hostName + ":" + std::to_string(port))) forget(record);
}

void FRXBrowser::forget(const std::shared_ptr<FRXNetService>& record) {
  record->setIsAvailable(false);
  tellDelegate(&Selectors::remoteFRXServiceRemoved, &FRXBrowserDelegate::remoteFRXServiceRemoved, record);
  state_->peers.remove(*record);
  FRX_LOG_VERBOSE("FRX service removed: " + record->serviceId());
  notifyServiceDisappeared(record);
}

// TXT records

void FRXBrowser::netServiceDidUpdateTXTRecordData(const std::shared_ptr<NetService>& service,
                                                  const std::string& txtData) {
  assert(state_->isMainThread());
  if (!service) return;
  FRX_LOG_DEBUG("Received DNS TXT record update from service " + service->name() + ": " +
                describe(parseTxtRecordValues(txtData)));
  state_->services.notifications->post({FRXServiceRejoinedNetworkNotification, this,
                                        FRXDictionary{{FRXServiceRejoinedNetworkFRXIdKey, service->name()}}});
}

TXTDictionary FRXBrowser::parseTxtRecordValues(std::string_view txtData) {
  TXTDictionary values;
  if (txtData.empty()) return values;
  for (auto& [key, value] : decodeTXTRecord(txtData)) {
    if (text::isValidUtf8(value)) values.emplace(key, std::move(value));
  }
  return values;
}

// Search by address and adoption

void FRXBrowser::searchForServiceAtAddress(const std::string& address, SearchHandler completionHandler) {
  searchForServiceAtAddress(address, FRXDefaultPort, std::move(completionHandler));
}

void FRXBrowser::searchForServiceAtAddress(const std::string& address, std::uint16_t port,
                                           SearchHandler completionHandler) {
  lookUpServiceAtAddress(address, port,
                         [completionHandler = std::move(completionHandler)](
                             const std::shared_ptr<FRXNetService>& service, std::optional<FRXError> error) {
                           if (completionHandler) completionHandler(service != nullptr, std::move(error));
                         });
}

void FRXBrowser::lookUpServiceAtAddress(const std::string& address, std::uint16_t port,
                                        LookUpHandler handler) {
  requestServiceRecord(*state_->services.httpClient, *state_->services.background, address, port,
                       [weak = weak_from_this(), handler = std::move(handler)](FRXServiceAnswer answer) {
                         answer.service = inAnnouncedForm(std::move(answer.service));
                         if (const auto browser = weak.lock(); browser && answer.service) {
                           browser->rememberRoute(*answer.service, answer.host);
                           browser->monitorService(answer.service);
                           browser->tellDelegate(&Selectors::remoteFRXServiceDiscovered,
                                                 &FRXBrowserDelegate::remoteFRXServiceDiscovered,
                                                 answer.service);
                         }
                         if (handler) handler(std::move(answer.service), std::move(answer.error));
                       });
}

/// Where multicast does not reach, the name in a record means nothing here, but the address that answered
/// does.
void FRXBrowser::rememberRoute(const FRXNetService& record, const std::string& host) const {
  if (state_->services.resolver == nullptr || !record.hostName()) return;
  state_->services.resolver->setAlternative(*record.hostName(), host);
}

void FRXBrowser::monitorServiceAtAddress(std::shared_ptr<FRXNetService> service, const std::string& address) {
  service = inAnnouncedForm(std::move(service));
  // The route to a peer that is known already is not changed by whoever connects under its name.
  if (service && !address.empty() && !isKnown(*service) && !isThisInstance(*service)) {
    rememberRoute(*service, address);
  }
  monitorService(std::move(service));
}

void FRXBrowser::monitorService(std::shared_ptr<FRXNetService> service) {
  service = inAnnouncedForm(std::move(service));
  if (!service || isKnown(*service) || isThisInstance(*service)) return;
  if (const auto objection = whyNotAPeer(*service)) {
    state_->refusedServices.add();
    FRX_LOG_WARN("Ignoring FRX service " + service->serviceId() + ": " + *objection);
    return;
  }
  state_->services.mainLoop->post([weak = weak_from_this(), service = std::move(service)] {
    if (const auto browser = weak.lock(); browser && !browser->isKnown(*service)) browser->adopt(service);
  });
}

/// By address, or as the instance of that name under another one.
bool FRXBrowser::isKnown(const FRXNetService& record) const {
  return state_->peers.contains(record) || instanceNamed(record.name()) != nullptr;
}

/// A name keeps pointing to the address it had last, where another instance may be by now.
std::shared_ptr<FRXNetService> FRXBrowser::instanceNamed(const std::optional<std::string>& name) const {
  const auto found = name ? serviceWithId(*name) : nullptr;
  return found && found->name() == name ? found : nullptr;
}

/// By host name and port of the own announcement; while that is not known, by the port alone, which is 0
/// then. And by the device that published the record.
bool FRXBrowser::isThisInstance(const FRXNetService& record) const {
  const std::shared_ptr<FRXNetService> own = state_->local.announced();
  const bool sameHost =
      !own || text::equalsIgnoringCase(own->hostName().value_or(""), record.hostName().value_or(""));
  const std::int64_t ownPort = own ? own->port() : 0;
  return (sameHost && record.port() == ownPort) || FRXUtilities::isLocalDeviceService(record.name());
}

void FRXBrowser::adopt(const std::shared_ptr<FRXNetService>& record) {
  if (!remember(record)) return;
  if (FRXUtilities::isUWPService(record.get())) {
    if (const auto connector = PeerConnector::registered()) connector->connectToService(record);
  } else {
    notifyServiceDiscovered(record);
  }
  tellDelegate(&Selectors::remoteFRXServiceDiscovered, &FRXBrowserDelegate::remoteFRXServiceDiscovered,
               record);
}

// Liveness

void FRXBrowser::notifyServiceDiscovered(const std::shared_ptr<FRXNetService>& record) {
  if (state_->serviceMonitor) state_->serviceMonitor->startMonitoringService(record);
  FRX_LOG_VERBOSE("Notifying service discovered: " + record->serviceId());
  if (state_->checksNewServicesAtOnce) checkAtOnce(*record);
}

void FRXBrowser::notifyServiceDisappeared(const std::shared_ptr<FRXNetService>& record) {
  if (state_->serviceMonitor) state_->serviceMonitor->stopMonitoringService(record);
  FRX_LOG_VERBOSE("Notifying service lost: " + record->serviceId());
}

void FRXBrowser::checkAtOnce(const FRXNetService& record) {
  if (!state_->serviceMonitor) return;
  state_->services.background->post([monitor = state_->serviceMonitor, serviceId = record.serviceId()] {
    monitor->checkServiceForResponse(serviceId);
  });
}

void FRXBrowser::frxServiceMonitorServiceBecameResponsive(FRXServiceMonitor&,
                                                          const std::shared_ptr<FRXNetService>& service) {
  state_->services.mainLoop->postOrRun([weak = weak_from_this(), service] {
    if (const auto browser = weak.lock()) browser->becameResponsive(service);
  });
}

void FRXBrowser::frxServiceMonitorServiceBecameUnresponsive(FRXServiceMonitor&,
                                                            const std::shared_ptr<FRXNetService>& service) {
  state_->services.mainLoop->postOrRun([weak = weak_from_this(), service] {
    if (const auto browser = weak.lock()) browser->becameUnresponsive(service);
  });
}

void FRXBrowser::becameResponsive(const std::shared_ptr<FRXNetService>& service) {
  const auto known = state_->peers.find(*service);
  if (known) known->setIsAvailable(true);
  if (const auto connector = PeerConnector::registered()) connector->connectToService(service);
  if (!known) return;
  tellDelegate(&Selectors::remoteFRXServiceBecameResponsive,
               &FRXBrowserDelegate::remoteFRXServiceBecameResponsive, known);
}

void FRXBrowser::becameUnresponsive(const std::shared_ptr<FRXNetService>& service) {
  const auto known = state_->peers.find(*service);
  if (known) known->setIsAvailable(false);
  if (const auto connector = PeerConnector::registered()) connector->disconnectFromService(service);
  reconfirmFRXService(service);
  if (!known) return;
  tellDelegate(&Selectors::remoteFRXServiceBecameUnresponsive,
               &FRXBrowserDelegate::remoteFRXServiceBecameUnresponsive, known);
}

// Reconfirmation

void FRXBrowser::reconfirmFRXService(const std::shared_ptr<FRXNetService>& service) {
  assert(state_->isMainThread());
  if (!service) return;
  for (const std::string& name : state_->announcements.namesBelongingTo(*service)) reconfirmDNSRecord(name);
}

void FRXBrowser::reconfirmDNSRecord(const std::string& serviceName) {
  reconfirmPointerRecord(*state_->services.discovery, serviceName);
}

}  // namespace ferrox
