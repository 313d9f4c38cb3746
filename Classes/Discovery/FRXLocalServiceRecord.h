// This instance's own record as other threads read it: made when something changed, not when it is asked for.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/Mutex.h"

namespace ferrox {

class FRXNetService;

/// What the local server knows about itself.
struct FRXLocalServerInfo {
  std::optional<std::string> hostName;
  std::uint16_t port = 0;
  std::string serviceName;

  bool operator==(const FRXLocalServerInfo&) const = default;
};

/// Of the process's shared `FRXServer`. Thread: any
FRX_EXPORT FRXLocalServerInfo sharedServerInfo();

/// Thread: any
class FRX_EXPORT FRXLocalServiceRecord {
 public:
  using ServerSource = std::function<FRXLocalServerInfo()>;

  explicit FRXLocalServiceRecord(ServerSource server) : server_(std::move(server)) {}

  void setAnnounced(const std::string& hostName, std::uint16_t port, const std::string& serviceName);
  void forgetAnnounced();
  /// From this instance's own announcement; empty until one was seen.
  std::shared_ptr<FRXNetService> announced() const;
  /// From the announcement, else from the server; empty while the server has no host name. The same object
  /// as long as nothing changed.
  std::shared_ptr<FRXNetService> record() const;

 private:
  std::shared_ptr<FRXNetService> recordFromServer() const;

  const ServerSource server_;
  mutable Mutex mutex_;
  std::shared_ptr<FRXNetService> announced_ FRX_GUARDED_BY(mutex_);
  mutable FRXLocalServerInfo lastInfo_ FRX_GUARDED_BY(mutex_);
  mutable std::shared_ptr<FRXNetService> fromServer_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox
