#include "Platform/DNSSD/DiscoveryEngine.h"

#include <algorithm>
#include <string>

#include "Platform/DNSSD/BrowseSession.h"
#include "Platform/DNSSD/HostNameText.h"
#include "Platform/DNSSD/Reconfirmation.h"
#include "Platform/DNSSD/Requery.h"
#include "Platform/DNSSD/ServiceSession.h"
#include "Platform/Log/Log.h"

namespace ferrox::dnssd {

using namespace std::chrono_literals;

namespace {
constexpr auto hostNameIdleTime = 60s;
constexpr std::size_t maxFollowedHostNames = 512;
}  // namespace

DiscoveryEngine::DiscoveryEngine(DiscoveryThread& thread, const DNSSDConfiguration& configuration,
                                 std::unique_ptr<BackEnd> backEnd)
    : backEnd_(std::move(backEnd)),
      context_{thread, *backEnd_, {}},
      policy_(configuration),
      interfaceWatch_(thread, [this] { interfacesChanged(); }) {}

DiscoveryEngine::~DiscoveryEngine() = default;

void DiscoveryEngine::start() {
  running_ = true;
  interfaceWatch_.start();
  context_.interfaces = policy_.select(currentNetworkInterfaces());
  backEnd_->start(*this, context_.interfaces);
}

void DiscoveryEngine::stop() {
  if (!running_) return;
  running_ = false;
  interfaceWatch_.stop();
  idleSweep_.reset();
  reconfirmations_.clear();
  requeries_.clear();
  forEachSession([](Session& session) { session.close(); });
  sessions_.clear();
  hostNames_.clear();
  backEnd_->stop();
}

void DiscoveryEngine::add(const std::shared_ptr<Session>& session) {
  if (!running_) {
    session->close();
    return;
  }
  sessions_.push_back(session);
  if (context_.canLookUp) session->lookupsStarted();
  if (context_.canPublish) session->publishingStarted();
}

void DiscoveryEngine::remove(const std::shared_ptr<Session>& session) {
  session->close();
  std::erase(sessions_, session);
}

void DiscoveryEngine::resolveHostName(const std::string& name, std::chrono::milliseconds timeout,
                                      HostNameSession::Completion completion) {
  const auto normalized = normalizedHostName(name);
  if (!running_ || !normalized) {
    completion({});
    return;
  }
  dropIdleHostNames();
  const auto known = std::find_if(hostNames_.begin(), hostNames_.end(),
                                  [&](const auto& session) { return session->name() == *normalized; });
  if (known != hostNames_.end()) {
    (*known)->ask(timeout, std::move(completion));
    return;
  }
  if (hostNames_.size() >= maxFollowedHostNames) {
    FRX_LOG_WARN(std::string("Too many host names are being looked up at once"));
    completion({});
    return;
  }
  auto session = std::make_shared<HostNameSession>(
      context_, *normalized, [this, host = *normalized] { return interfacesOfHost(host); });
  hostNames_.push_back(session);
  session->ask(timeout, std::move(completion));
}

void DiscoveryEngine::dropIdleHostNames() {
  const auto now = std::chrono::steady_clock::now();
  std::erase_if(hostNames_, [now](const std::shared_ptr<HostNameSession>& session) {
    if (session->hasWaiting() || now - session->lastAsked() < hostNameIdleTime) return false;
    session->close();
    return true;
  });
  if (!idleSweep_) {
    idleSweep_ = context_.thread.after(hostNameIdleTime, [this] {
      idleSweep_.reset();
      if (!hostNames_.empty()) dropIdleHostNames();
    });
  }
}

void DiscoveryEngine::refresh() {
  forEachSession([](Session& session) { session.refresh(); });
}

void DiscoveryEngine::backEndDidStart() {
  context_.canLookUp = true;
  forEachSession([](Session& session) { session.lookupsStarted(); });
}

void DiscoveryEngine::backEndWillStop() {
  context_.canLookUp = false;
  forEachSession([](Session& session) { session.lookupsStopped(); });
}

void DiscoveryEngine::publishingDidStart() {
  context_.canPublish = true;
  forEachSession([](Session& session) { session.publishingStarted(); });
}

void DiscoveryEngine::publishingWillStop() {
  context_.canPublish = false;
  forEachSession([](Session& session) { session.publishingStopped(); });
}

void DiscoveryEngine::interfacesChanged() {
  auto selection = policy_.select(currentNetworkInterfaces());
  if (!running_ || selection == context_.interfaces) return;
  context_.interfaces = std::move(selection);
  FRX_LOG_DEBUG(std::string("The network interfaces in use changed"));
  backEnd_->interfacesChanged(context_.interfaces);
  forEachSession([](Session& session) { session.interfacesChanged(); });
}

void DiscoveryEngine::forEachSession(const std::function<void(Session&)>& visit) {
  // Copies, because what a session does may end it.
  const auto sessions = sessions_;
  for (const auto& session : sessions) visit(*session);
  const auto hostNames = hostNames_;
  for (const auto& session : hostNames) visit(*session);
}

void DiscoveryEngine::reconfirm(const ServiceIdentity& identity, int interfaceIndex) {
  const auto isThisOne = [&](const auto& running) { return running->identity() == identity; };
  if (std::any_of(reconfirmations_.begin(), reconfirmations_.end(), isThisOne)) return;
  auto places = placesOf(identity);
  if (interfaceIndex > 0) {
    std::erase_if(places, [&](const Place& place) { return place.interfaceIndex != interfaceIndex; });
  }
  if (!running_ || places.empty()) return;
  reconfirmations_.push_back(std::make_unique<Reconfirmation>(
      context_, identity, places, [this, identity](const Place& place) { return recordsAt(identity, place); },
      [this, identity](bool buried) { reconfirmed(identity, buried); }));
}

void DiscoveryEngine::reconfirmed(const ServiceIdentity& identity, bool buried) {
  std::erase_if(reconfirmations_, [&](const auto& running) { return running->identity() == identity; });
  if (!buried || !running_) return;
  auto requery = std::find_if(requeries_.begin(), requeries_.end(), [&](const auto& known) {
    return known->type() == identity.type && known->domain() == identity.domain;
  });
  if (requery == requeries_.end()) {
    auto made = std::make_unique<Requery>(
        context_, identity.type, identity.domain,
        [this, type = identity.type, domain = identity.domain](const std::string& name) {
          return !placesOf({name, type, domain}).empty();
        });
    requery = requeries_.insert(requeries_.end(), std::move(made));
  }
  (*requery)->lost(identity.name);
}

std::vector<Place> DiscoveryEngine::placesOf(const ServiceIdentity& identity) const {
  std::vector<Place> places;
  for (const auto& session : sessions_) {
    const auto* browse = dynamic_cast<const BrowseSession*>(session.get());
    if (browse == nullptr || browse->type() != identity.type || browse->domain() != identity.domain) continue;
    for (const Place& place : browse->placesOf(identity.name)) {
      if (std::find(places.begin(), places.end(), place) == places.end()) places.push_back(place);
    }
  }
  return places;
}

std::vector<std::pair<std::uint16_t, std::string>> DiscoveryEngine::recordsAt(const ServiceIdentity& identity,
                                                                              const Place& place) const {
  for (const auto& session : sessions_) {
    const auto* service = dynamic_cast<const ServiceSession*>(session.get());
    if (service == nullptr || service->identity() != identity) continue;
    auto records = service->recordsAt(place);
    if (!records.empty()) return records;
  }
  return {};
}

std::vector<int> DiscoveryEngine::interfacesOfHost(const std::string& name) const {
  std::vector<int> interfaces;
  for (const auto& session : sessions_) {
    const auto* service = dynamic_cast<const ServiceSession*>(session.get());
    if (service == nullptr) continue;
    const auto found = service->interfacesOfHost(name);
    interfaces.insert(interfaces.end(), found.begin(), found.end());
  }
  return interfaces;
}

}  // namespace ferrox::dnssd
