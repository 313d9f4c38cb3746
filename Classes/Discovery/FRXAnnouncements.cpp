#include "Classes/Discovery/FRXAnnouncements.h"

#include <algorithm>
#include <utility>

#include "Classes/Discovery/FRXNetService.h"
#include "Platform/DNSSD/NetService.h"
#include "Platform/Host/Text.h"

namespace ferrox {
namespace {

void silence(NetService& handle) {
  handle.setDelegate({});
  handle.stop();
  handle.stopMonitoring();
}

}  // namespace

void FRXAnnouncements::addFound(std::shared_ptr<NetService> handle) {
  unresolvedServices_.push_back(std::move(handle));
}

std::vector<std::shared_ptr<NetService>> FRXAnnouncements::beginResolving() {
  std::vector<std::shared_ptr<NetService>> found = std::exchange(unresolvedServices_, {});
  resolvingServices_.insert(resolvingServices_.end(), found.begin(), found.end());
  return found;
}

std::optional<FRXResolvedAnnouncement> FRXAnnouncements::setResolved(
    const std::shared_ptr<NetService>& handle) {
  std::optional<FRXResolvedAnnouncement> previous = takeResolved(*handle);
  if (previous && previous->handle != handle) silence(*previous->handle);
  std::erase_if(resolvingServices_, [&handle](const auto& other) { return other->isEqual(*handle); });
  resolvedServices_.push_back({handle, handle->hostName().value_or(""), handle->port()});
  return previous;
}

void FRXAnnouncements::forget(const NetService& handle) {
  takeResolved(handle);
  std::erase_if(resolvingServices_, [&handle](const auto& other) { return other->isEqual(handle); });
}

std::optional<FRXResolvedAnnouncement> FRXAnnouncements::withdraw(const NetService& handle) {
  std::optional<FRXResolvedAnnouncement> removed = takeResolved(handle);
  if (removed) silence(*removed->handle);
  return removed;
}

std::optional<FRXResolvedAnnouncement> FRXAnnouncements::takeResolved(const NetService& handle) {
  const auto found = std::find_if(resolvedServices_.begin(), resolvedServices_.end(),
                                  [&handle](const auto& other) { return other.handle->isEqual(handle); });
  if (found == resolvedServices_.end()) return std::nullopt;
  FRXResolvedAnnouncement taken = std::move(*found);
  resolvedServices_.erase(found);
  return taken;
}

bool FRXAnnouncements::isAnnounced(const std::string& hostName, std::uint16_t port) const {
  return std::any_of(resolvedServices_.begin(), resolvedServices_.end(),
                     [&](const auto& other) { return other.hostName == hostName && other.port == port; });
}

std::vector<std::string> FRXAnnouncements::namesBelongingTo(const FRXNetService& peer) const {
  const std::string hostName = peer.hostName().value_or("");
  const std::string firstLabel = hostName.substr(0, hostName.find('.'));
  std::vector<std::string> names;
  // Every name ends with an empty text; a host name without a first label belongs to nobody.
  if (firstLabel.empty()) return names;
  for (const FRXResolvedAnnouncement& resolved : resolvedServices_) {
    const bool sameAddress =
        resolved.port == peer.port() && text::equalsIgnoringCase(resolved.hostName, hostName);
    if (sameAddress || resolved.handle->name().ends_with(firstLabel))
      names.push_back(resolved.handle->name());
  }
  return names;
}

void FRXAnnouncements::clear() {
  for (const auto& handle : unresolvedServices_) silence(*handle);
  for (const auto& handle : resolvingServices_) silence(*handle);
  for (const auto& resolved : resolvedServices_) silence(*resolved.handle);
  unresolvedServices_.clear();
  resolvingServices_.clear();
  resolvedServices_.clear();
}

}  // namespace ferrox
