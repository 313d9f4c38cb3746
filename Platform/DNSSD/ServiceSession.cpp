#include "Platform/DNSSD/ServiceSession.h"

#include <algorithm>

#include "Platform/DNSSD/AvahiSupport.h"
#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/HostNameText.h"
#include "Platform/Log/Log.h"

namespace ferrox::dnssd {
namespace {

SightingWatch::Opener recordOpener(const ServiceIdentity& identity, std::uint16_t recordType) {
  const auto fullName = escapedServiceName(identity.name, identity.type, identity.domain);
  return [fullName, recordType](BackEnd& backEnd, BackEnd::LookupHandler handler) -> std::unique_ptr<Lookup> {
    if (!fullName) return nullptr;
    return backEnd.watchRecord(*fullName, recordType, std::move(handler));
  };
}

}  // namespace

std::optional<std::pair<std::string, std::uint16_t>> locationFromSRV(const std::string& rdata) {
  const auto data = readSRVData(rdata);
  if (!data || data->port == 0) return std::nullopt;
  auto hostName = hostNameText(data->target);
  if (!hostName) return std::nullopt;
  return std::pair{std::move(*hostName), data->port};
}

ServiceSession::ServiceSession(DiscoveryContext& context, ServiceIdentity identity, Sinks sinks)
    : context_(context),
      identity_(std::move(identity)),
      sinks_(std::move(sinks)),
      location_(context, recordOpener(identity_, recordTypeSRV), [this] { reportLocation(); }),
      txt_(context, recordOpener(identity_, recordTypeTXT), [this] { reportTXT(); }) {}

void ServiceSession::locate() {
  locating_ = true;
  reportedLocation_.reset();
  location_.open();
  reportLocation();
}

void ServiceSession::stopLocating() {
  locating_ = false;
  location_.close();
}

void ServiceSession::watchTXT() {
  watchingTXT_ = true;
  reportedTXT_.reset();
  txt_.open();
  reportTXT();
}

void ServiceSession::stopWatchingTXT() {
  watchingTXT_ = false;
  txt_.close();
}

void ServiceSession::lookupsStarted() {
  if (locating_) location_.open();
  if (watchingTXT_) txt_.open();
}

void ServiceSession::lookupsStopped() {
  location_.suspend();
  txt_.suspend();
}

void ServiceSession::interfacesChanged() {
  if (locating_) reportLocation();
  if (watchingTXT_) reportTXT();
}

void ServiceSession::close() {
  stopLocating();
  stopWatchingTXT();
  sinks_ = {};
}

std::vector<std::pair<std::uint16_t, std::string>> ServiceSession::recordsAt(const Place& place) const {
  std::vector<std::pair<std::uint16_t, std::string>> records;
  const auto collect = [&](const SightingWatch& watch, std::uint16_t type) {
    for (const Sighting& sighting : watch.sightings().inOrder(context_.interfaces)) {
      if (sighting.place == place) records.emplace_back(type, sighting.what);
    }
  };
  collect(location_, recordTypeSRV);
  collect(txt_, recordTypeTXT);
  return records;
}

std::vector<int> ServiceSession::interfacesOfHost(const std::string& hostName) const {
  std::vector<int> interfaces;
  for (const Sighting& sighting : location_.sightings().inOrder(context_.interfaces)) {
    const auto location = locationFromSRV(sighting.what);
    if (location && lowerCaseHostName(location->first) == hostName) {
      interfaces.push_back(sighting.place.interfaceIndex);
    }
  }
  return interfaces;
}

void ServiceSession::reportLocation() {
  const auto sightings = location_.sightings().inOrder(context_.interfaces);
  // The newest one counts: after a restart elsewhere the old record lingers for a second.
  for (auto sighting = sightings.rbegin(); sighting != sightings.rend(); ++sighting) {
    const auto location = locationFromSRV(sighting->what);
    if (!location) {
      FRX_LOG_DEBUG("Ignoring an SRV record without a usable host name or port, of service " +
                    Log::escaped(identity_.name));
      continue;
    }
    if (reportedLocation_ == sighting->what) return;
    reportedLocation_ = sighting->what;
    if (sinks_.located) sinks_.located(location->first, location->second);
    return;
  }
}

void ServiceSession::reportTXT() {
  const auto sightings = txt_.sightings().inOrder(context_.interfaces);
  if (sightings.empty() || reportedTXT_ == sightings.back().what) return;
  reportedTXT_ = sightings.back().what;
  if (sinks_.txtChanged) sinks_.txtChanged(*reportedTXT_);
}

}  // namespace ferrox::dnssd
