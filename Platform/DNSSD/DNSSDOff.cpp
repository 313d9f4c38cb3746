#include "Platform/DNSSD/DNSSDOff.h"

namespace ferrox::dnssd {
namespace {

class SilentBrowser final : public NetServiceBrowser {
 public:
  void setDelegate(std::weak_ptr<NetServiceBrowserListener>) override {}
  void searchForServices(const std::string&, const std::string&) override {}
  void stop() override {}
};

class SilentPublication final : public NetServicePublication {
 public:
  void setTXTRecord(TXTDictionary) override {}
};

}  // namespace

DNSSDOff::DNSSDOff() : thread_(DiscoveryThread::make()) {}

DNSSDOff::~DNSSDOff() {
  thread_->finish([] {}, std::chrono::seconds(3));
}

std::unique_ptr<NetServiceBrowser> DNSSDOff::makeBrowser() { return std::make_unique<SilentBrowser>(); }

std::unique_ptr<NetServicePublication> DNSSDOff::publish(PublicationRequest) {
  return std::make_unique<SilentPublication>();
}

int DNSSDOff::reconfirmRecord(std::uint32_t, std::uint32_t, const std::string&, std::uint16_t, std::uint16_t,
                              std::string) {
  return 0;
}

void DNSSDOff::resolveHostName(const std::string&, std::chrono::milliseconds,
                               std::function<void(std::vector<SocketAddress>)> completion) {
  thread_->post([completion = std::move(completion)] { completion({}); });
}

}  // namespace ferrox::dnssd
