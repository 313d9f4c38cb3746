#include "Platform/DNSSD/DiscoveryEngine.h"

#include <algorithm>
#include <string>

#include "Platform/DNSSD/BrowseSession.h"
#include "Platform/DNSSD/HostNameText.h"
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
  forEachSession([](Session& session) { session.close(); });
  sessions_.clear();
  hostNames_.clear();
  backEnd_->stop();
}

void DiscoveryEngine::add(std::shared_ptr<Session> session) {
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
