#include "Platform/DNSSD/DNSSDStack.h"

#include <chrono>

#include "Platform/DNSSD/DNSSDOff.h"
#include "Platform/DNSSD/DiscoveryBrowser.h"
#include "Platform/DNSSD/DiscoveryPublication.h"
#include "Platform/DNSSD/EmbeddedBackEnd.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace dnssd {

using namespace std::chrono_literals;

namespace {

constexpr auto stopPatience = 3s;
constexpr auto decisionPatience = 2s;

struct ChosenBackEnd {
  std::unique_ptr<BackEnd> backEnd;
  std::string_view name;
};

ChosenBackEnd chooseBackEnd(DiscoveryThread& thread, const DNSSDConfiguration& configuration) {
  return {std::make_unique<EmbeddedBackEnd>(thread, configuration.hostName), "embedded"};
}

}  // namespace

DNSSDStack::DNSSDStack(RunLoop& mainLoop, const DNSSDConfiguration& configuration)
    : core_(std::make_shared<DiscoveryCore>(mainLoop, DiscoveryThread::make())) {
  const auto decision = std::make_shared<std::promise<std::string_view>>();
  backEndName_ = decision->get_future();
  core_->thread->post([core = core_, configuration, decision] {
    auto chosen = chooseBackEnd(*core->thread, configuration);
    decision->set_value(chosen.name);
    core->engine = std::make_unique<DiscoveryEngine>(*core->thread, configuration, std::move(chosen.backEnd));
    core->engine->start();
  });
}

DNSSDStack::~DNSSDStack() {
  core_->toMain->close();
  const bool ended = core_->thread->finish(
      [core = core_] {
        if (core->engine) core->engine->stop();
        core->engine.reset();
      },
      stopPatience);
  if (!ended) FRX_LOG_WARN(std::string("The discovery thread hangs in a call and is left behind"));
}

std::unique_ptr<NetServiceBrowser> DNSSDStack::makeBrowser() {
  return std::make_unique<DiscoveryBrowser>(core_);
}

std::unique_ptr<NetServicePublication> DNSSDStack::publish(PublicationRequest request) {
  return std::make_unique<DiscoveryPublication>(core_, std::move(request));
}

int DNSSDStack::reconfirmRecord(std::uint32_t, std::uint32_t, const std::string&, std::uint16_t,
                                std::uint16_t, std::string) {
  return 0;
}

void DNSSDStack::resolveHostName(const std::string& name, std::chrono::milliseconds timeout,
                                 std::function<void(std::vector<SocketAddress>)> completion) {
  core_->thread->post([core = core_, name, timeout, completion = std::move(completion)] {
    if (core->engine) {
      core->engine->resolveHostName(name, timeout, completion);
    } else {
      completion({});
    }
  });
}

void DNSSDStack::refresh() {
  DiscoveryCore::post(core_, [](DiscoveryEngine& engine) { engine.refresh(); });
}

std::string_view DNSSDStack::backEndName() const {
  if (backEndName_.wait_for(decisionPatience) != std::future_status::ready) return "avahi";
  return backEndName_.get();
}

}  // namespace dnssd

std::unique_ptr<DNSSD> DNSSD::make(RunLoop& mainLoop, const DNSSDConfiguration& configuration) {
  if (configuration.backEnd == DNSSDConfiguration::BackEnd::Off) {
    return std::make_unique<dnssd::DNSSDOff>();
  }
  return std::make_unique<dnssd::DNSSDStack>(mainLoop, configuration);
}

}  // namespace ferrox
