#include "Platform/DNSSD/DiscoveredService.h"

#include <cassert>

namespace ferrox::dnssd {

std::shared_ptr<DiscoveredService> DiscoveredService::make(std::shared_ptr<DiscoveryCore> core,
                                                           ServiceIdentity identity) {
  return std::shared_ptr<DiscoveredService>(new DiscoveredService(std::move(core), std::move(identity)));
}

DiscoveredService::DiscoveredService(std::shared_ptr<DiscoveryCore> core, ServiceIdentity identity)
    : core_(std::move(core)), identity_(std::move(identity)), shownDomain_(identity_.domain + ".") {}

DiscoveredService::~DiscoveredService() { endSession(); }

void DiscoveredService::resolveWithTimeout(std::chrono::milliseconds timeout) {
  assert(core_->mainLoop.isCurrentThread());
  resolving_ = true;
  toldThisResolution_ = false;
  timeout_ = Timer::scheduleOnce(core_->mainLoop, timeout, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->resolutionTimedOut();
  });
  ensureSession();
  DiscoveryCore::post(core_, [place = session_](DiscoveryEngine&) { (*place)->locate(); });
}

void DiscoveredService::startMonitoring() {
  assert(core_->mainLoop.isCurrentThread());
  if (monitoring_) return;
  monitoring_ = true;
  ensureSession();
  DiscoveryCore::post(core_, [place = session_](DiscoveryEngine&) { (*place)->watchTXT(); });
}

void DiscoveredService::stopMonitoring() {
  if (!monitoring_) return;
  monitoring_ = false;
  DiscoveryCore::post(core_, [place = session_](DiscoveryEngine&) { (*place)->stopWatchingTXT(); });
  endSessionWhenUnused();
}

void DiscoveredService::stop() {
  resolving_ = false;
  timeout_.reset();
  endSessionWhenUnused();
}

void DiscoveredService::ensureSession() {
  if (session_) return;
  ServiceSession::Sinks sinks;
  const auto toMain = core_->toMain;
  sinks.located = [toMain, weak = weak_from_this()](const std::string& hostName, std::uint16_t port) {
    toMain->post([weak, hostName, port] {
      if (const auto self = weak.lock()) self->located(hostName, port);
    });
  };
  sinks.txtChanged = [toMain, weak = weak_from_this()](const std::string& rdata) {
    toMain->post([weak, rdata] {
      if (const auto self = weak.lock()) self->txtChanged(rdata);
    });
  };
  session_ = std::make_shared<std::shared_ptr<ServiceSession>>();
  DiscoveryCore::post(
      core_, [place = session_, identity = identity_, sinks = std::move(sinks)](DiscoveryEngine& engine) {
        *place = std::make_shared<ServiceSession>(engine.context(), identity, sinks);
        engine.add(*place);
      });
}

// As long as TXT is monitored the location is followed too: a peer that restarts under its name elsewhere
// causes no other event.
void DiscoveredService::endSessionWhenUnused() {
  if (!resolving_ && !monitoring_) endSession();
}

void DiscoveredService::endSession() {
  if (!session_) return;
  DiscoveryCore::post(core_, [place = std::move(session_)](DiscoveryEngine& engine) {
    engine.remove(*place);
    place->reset();
  });
  session_.reset();
}

void DiscoveredService::located(const std::string& hostName, std::uint16_t port) {
  if (!resolving_ && !monitoring_) return;
  const bool isNew = hostName_ != hostName || port_ != port;
  if (!resolving_ && !isNew) return;
  timeout_.reset();
  // Told once for each resolution, and again for each real change.
  if (!isNew && toldThisResolution_) return;
  toldThisResolution_ = true;
  hostName_ = hostName;
  port_ = port;
  if (const auto listener = listener_.lock()) listener->netServiceDidResolveAddress(shared_from_this());
}

void DiscoveredService::txtChanged(const std::string& rdata) {
  if (!monitoring_) return;
  if (const auto listener = listener_.lock()) {
    listener->netServiceDidUpdateTXTRecordData(shared_from_this(), rdata);
  }
}

// The question stays open: on a network that loses packets the answer may come with a later announcement, and
// nobody would ask for this instance again.
void DiscoveredService::resolutionTimedOut() {
  if (!resolving_) return;
  timeout_.reset();
  if (const auto listener = listener_.lock()) listener->netServiceDidNotResolve(shared_from_this());
}

}  // namespace ferrox::dnssd
