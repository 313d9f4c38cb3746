#include "Classes/Discovery/FRXPeerTable.h"

#include <iterator>

#include "Classes/Discovery/FRXNetService.h"
#include "Platform/Host/Text.h"

namespace ferrox {

std::shared_ptr<FRXNetService> FRXPeerTable::find(const FRXNetService& service) const {
  const MutexLock lock(mutex_);
  const auto found = frxServices_.find(service.serviceId());
  return found == frxServices_.end() ? nullptr : found->second;
}

void FRXPeerTable::mapName(const FRXNetService& service) {
  const std::optional<std::string> name = service.name();
  if (!name) return;
  const MutexLock lock(mutex_);
  if (serviceNameToIdMappings_.size() >= maxNames) forgetUnusedNames();
  serviceNameToIdMappings_[*name] = service.serviceId();
}

bool FRXPeerTable::add(const std::shared_ptr<FRXNetService>& service) {
  const MutexLock lock(mutex_);
  if (frxServices_.size() >= maxServices && !frxServices_.contains(service->serviceId())) return false;
  frxServices_.emplace(service->serviceId(), service);
  return true;
}

void FRXPeerTable::remove(const FRXNetService& service) {
  const MutexLock lock(mutex_);
  frxServices_.erase(service.serviceId());
}

void FRXPeerTable::removeAll() {
  const MutexLock lock(mutex_);
  frxServices_.clear();
}

std::vector<std::shared_ptr<FRXNetService>> FRXPeerTable::services() const {
  const MutexLock lock(mutex_);
  std::vector<std::shared_ptr<FRXNetService>> services;
  services.reserve(frxServices_.size());
  for (const auto& [serviceId, service] : frxServices_) services.push_back(service);
  return services;
}

std::shared_ptr<FRXNetService> FRXPeerTable::serviceWithId(std::string_view serviceId) const {
  if (serviceId.empty()) return nullptr;
  const std::string wanted = text::upperCased(serviceId);
  const MutexLock lock(mutex_);
  const auto mapping = serviceNameToIdMappings_.find(wanted);
  const auto found = frxServices_.find(mapping == serviceNameToIdMappings_.end() ? wanted : mapping->second);
  return found == frxServices_.end() ? nullptr : found->second;
}

std::optional<std::string> FRXPeerTable::idForServiceName(std::string_view name) const {
  if (name.empty()) return std::nullopt;
  const std::string wanted = text::upperCased(name);
  const MutexLock lock(mutex_);
  const auto mapping = serviceNameToIdMappings_.find(wanted);
  if (mapping == serviceNameToIdMappings_.end()) return std::nullopt;
  return mapping->second;
}

void FRXPeerTable::forgetUnusedNames() {
  for (auto mapping = serviceNameToIdMappings_.begin(); mapping != serviceNameToIdMappings_.end();) {
    const bool isUsed = frxServices_.contains(mapping->second);
    mapping = isUsed ? std::next(mapping) : serviceNameToIdMappings_.erase(mapping);
  }
}

}  // namespace ferrox
