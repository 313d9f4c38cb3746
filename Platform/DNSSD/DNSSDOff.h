// Discovery switched off.
#pragma once

#include "Platform/DNSSD/DNSSD.h"
#include "Platform/DNSSD/DiscoveryThread.h"

namespace ferrox::dnssd {

/// Nothing is found or published, and no name resolves. Thread: any
class DNSSDOff final : public DNSSD {
 public:
  DNSSDOff();
  ~DNSSDOff() override;

  std::unique_ptr<NetServiceBrowser> makeBrowser() override;
  std::unique_ptr<NetServicePublication> publish(PublicationRequest request) override;
  int reconfirmRecord(std::uint32_t flags, std::uint32_t interfaceIndex, const std::string& fullName,
                      std::uint16_t recordType, std::uint16_t recordClass, std::string rdata) override;
  void resolveHostName(const std::string& name, std::chrono::milliseconds timeout,
                       std::function<void(std::vector<SocketAddress>)> completion) override;
  void refresh() override {}
  std::string_view backEndName() const override { return "off"; }

 private:
  /// Completions may not run inside the call that asked.
  std::shared_ptr<DiscoveryThread> thread_;
};

}  // namespace ferrox::dnssd
