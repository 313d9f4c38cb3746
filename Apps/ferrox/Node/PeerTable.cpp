#include "Apps/ferrox/Node/PeerTable.h"

#include <string.h>

#include <algorithm>
#include <utility>

#include "Classes/Discovery/FRXNetService.h"

namespace ferrox::command {

bool PeerTable::add(const std::shared_ptr<FRXNetService>& service, Time now) {
  const auto known = peers_.find(service->serviceId());
  if (known != peers_.end() && known->second.service->name() == service->name()) return false;
  Peer peer{service, PeerState::Found, now, {}, {}, {}};
  // The connection is to the address, which the new name did not change.
  if (known != peers_.end()) peer.connectedSince = known->second.connectedSince;
  peers_.insert_or_assign(service->serviceId(), std::move(peer));
  return true;
}

bool PeerTable::remove(const FRXNetService& service) { return peers_.erase(service.serviceId()) > 0; }

bool PeerTable::setState(const FRXNetService& service, PeerState state, Time now) {
  const auto known = peers_.find(service.serviceId());
  if (known == peers_.end() || known->second.state == state) return false;
  known->second.state = state;
  known->second.since = now;
  return true;
}

bool PeerTable::setConnected(const std::string& serviceId, std::optional<Time> since) {
  const auto known = peers_.find(serviceId);
  if (known == peers_.end() || known->second.connectedSince == since) return false;
  known->second.connectedSince = since;
  return true;
}

void PeerTable::setOffers(const FRXNetService& service, std::optional<std::size_t> streams,
                          std::optional<std::size_t> projects) {
  const auto known = peers_.find(service.serviceId());
  if (known == peers_.end()) return;
  if (streams) known->second.streams = streams;
  if (projects) known->second.projects = projects;
}

std::optional<Peer> PeerTable::find(const FRXNetService& service) const { return find(service.serviceId()); }

std::optional<Peer> PeerTable::find(const std::string& serviceId) const {
  const auto known = peers_.find(serviceId);
  return known == peers_.end() ? std::nullopt : std::optional(known->second);
}

std::vector<Peer> PeerTable::sorted() const {
  std::vector<std::pair<std::string, Peer>> named;
  for (const auto& [id, peer] : peers_) named.emplace_back(displayName(*peer.service), peer);
  // As people count: "Suite 9" before "Suite 10". Those of one name stay in the order of their addresses.
  std::stable_sort(named.begin(), named.end(), [](const auto& a, const auto& b) {
    return strverscmp(a.first.c_str(), b.first.c_str()) < 0;
  });
  std::vector<Peer> out;
  for (auto& [name, peer] : named) out.push_back(std::move(peer));
  return out;
}

}  // namespace ferrox::command
