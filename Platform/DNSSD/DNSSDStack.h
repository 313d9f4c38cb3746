// The DNS-SD service over an Avahi back end.
#pragma once

#include <future>
#include <memory>

#include "Platform/DNSSD/DNSSD.h"
#include "Platform/DNSSD/DiscoveryCore.h"

namespace ferrox::dnssd {

class DNSSDStack final : public DNSSD {
 public:
  DNSSDStack(RunLoop& mainLoop, const DNSSDConfiguration& configuration);
  /// Sends the goodbyes. Where a hung daemon holds the discovery thread, waits three seconds and then leaves
  /// the thread to end by itself; look-ups still pending are answered only then.
  ~DNSSDStack() override;

  std::unique_ptr<NetServiceBrowser> makeBrowser() override;
  std::unique_ptr<NetServicePublication> publish(PublicationRequest request) override;
  int reconfirmRecord(std::uint32_t flags, std::uint32_t interfaceIndex, const std::string& fullName,
                      std::uint16_t recordType, std::uint16_t recordClass, std::string rdata) override;
  void resolveHostName(const std::string& name, std::chrono::milliseconds timeout,
                       std::function<void(std::vector<SocketAddress>)> completion) override;
  void refresh() override;
  std::string_view backEndName() const override;

 private:
  std::shared_ptr<DiscoveryCore> core_;
  std::shared_future<std::string_view> backEndName_;
};

}  // namespace ferrox::dnssd
