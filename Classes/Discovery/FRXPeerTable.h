// The known peers, by record key and by published name; the one thing of discovery that every thread reads.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Platform/Base/Mutex.h"

namespace ferrox {

class FRXNetService;

/// Records are the same when host name and port are, which is when their record keys are.
/// Thread: any
class FRXPeerTable {
 public:
  /// More peers than this are not taken in: a flood of invented announcements must not fill the memory.
  static constexpr std::size_t maxServices = 4096;
  /// Beyond this, names of which nobody is known any more are forgotten.
  static constexpr std::size_t maxNames = 4 * maxServices;

  /// The record that is known under the same key; empty when there is none.
  std::shared_ptr<FRXNetService> find(const FRXNetService& service) const;
  bool contains(const FRXNetService& service) const { return find(service) != nullptr; }
  /// Notes name and key of the record. Names are kept when their record is removed.
  void mapName(const FRXNetService& service);
  /// False when the table is full. A record that is known already stays as it is.
  bool add(const std::shared_ptr<FRXNetService>& service);
  void remove(const FRXNetService& service);
  /// Forgets the records, not the names.
  void removeAll();

  std::vector<std::shared_ptr<FRXNetService>> services() const;
  std::shared_ptr<FRXNetService> serviceWithId(std::string_view serviceId) const;
  std::optional<std::string> idForServiceName(std::string_view name) const;

 private:
  void forgetUnusedNames() FRX_REQUIRES(mutex_);

  mutable Mutex mutex_;
  std::unordered_map<std::string, std::shared_ptr<FRXNetService>> frxServices_ FRX_GUARDED_BY(mutex_);
  std::unordered_map<std::string, std::string> serviceNameToIdMappings_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox
