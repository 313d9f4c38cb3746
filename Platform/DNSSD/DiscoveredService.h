// The handle of an instance that a browser found.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Platform/DNSSD/DiscoveryCore.h"
#include "Platform/DNSSD/NetService.h"
#include "Platform/DNSSD/ServiceSession.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox::dnssd {

/// Thread: main
class DiscoveredService final : public NetService, public std::enable_shared_from_this<DiscoveredService> {
 public:
  static std::shared_ptr<DiscoveredService> make(std::shared_ptr<DiscoveryCore> core,
                                                 ServiceIdentity identity);
  ~DiscoveredService() override;

  const std::string& name() const override { return identity_.name; }
  const std::string& type() const override { return identity_.type; }
  const std::string& domain() const override { return shownDomain_; }
  std::optional<std::string> hostName() const override { return hostName_; }
  std::uint16_t port() const override { return port_; }

  void setDelegate(std::weak_ptr<NetServiceListener> listener) override { listener_ = std::move(listener); }
  void resolveWithTimeout(std::chrono::milliseconds timeout) override;
  void startMonitoring() override;
  void stopMonitoring() override;
  void stop() override;

 private:
  DiscoveredService(std::shared_ptr<DiscoveryCore> core, ServiceIdentity identity);
  void ensureSession();
  void endSessionWhenUnused();
  void endSession();
  void located(const std::string& hostName, std::uint16_t port);
  void txtChanged(const std::string& rdata);
  void resolutionTimedOut();

  std::shared_ptr<DiscoveryCore> core_;
  ServiceIdentity identity_;
  std::string shownDomain_;
  std::optional<std::string> hostName_;
  std::uint16_t port_ = 0;
  std::weak_ptr<NetServiceListener> listener_;
  bool resolving_ = false;
  bool toldThisResolution_ = false;
  bool monitoring_ = false;
  std::unique_ptr<Timer> timeout_;
  /// Filled and used on the discovery thread.
  std::shared_ptr<std::shared_ptr<ServiceSession>> session_;
};

}  // namespace ferrox::dnssd
