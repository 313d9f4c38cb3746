// A search for service instances, as its main-thread owner sees it.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "Platform/DNSSD/BrowseSession.h"
#include "Platform/DNSSD/DiscoveryCore.h"

namespace ferrox::dnssd {

class DiscoveredService;

/// Thread: main
class DiscoveryBrowser final : public NetServiceBrowser {
 public:
  explicit DiscoveryBrowser(std::shared_ptr<DiscoveryCore> core);
  ~DiscoveryBrowser() override;

  void setDelegate(std::weak_ptr<NetServiceBrowserListener> listener) override;
  void searchForServices(const std::string& type, const std::string& domain) override;
  void stop() override;

 private:
  struct Search;
  std::shared_ptr<DiscoveryCore> core_;
  std::weak_ptr<NetServiceBrowserListener> listener_;
  std::shared_ptr<Search> search_;
};

}  // namespace ferrox::dnssd
