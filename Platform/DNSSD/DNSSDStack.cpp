#include "Platform/DNSSD/DNSSDStack.h"

#include <chrono>
#include <optional>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/DNSSDOff.h"
#include "Platform/DNSSD/DaemonBackEnd.h"
#include "Platform/DNSSD/DiscoveryBrowser.h"
#include "Platform/DNSSD/DiscoveryPublication.h"
#include "Platform/DNSSD/EmbeddedBackEnd.h"
#include "Platform/DNSSD/ServiceSession.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace dnssd {

using namespace std::chrono_literals;

namespace {

constexpr auto stopPatience = 3s;
constexpr auto decisionPatience = 2s;
constexpr int unsupportedRecord = 1;
constexpr int malformedRecord = 2;

struct ChosenBackEnd {
  std::unique_ptr<BackEnd> backEnd;
  std::string_view name;
};

ChosenBackEnd chooseBackEnd(DiscoveryThread& thread, const DNSSDConfiguration& configuration) {
  using Choice = DNSSDConfiguration::BackEnd;
  if (configuration.backEnd != Choice::Embedded) {
    auto daemon = std::make_unique<DaemonBackEnd>(thread);
    if (configuration.backEnd == Choice::Daemon || daemon->connectIfRunning()) {
      return {std::move(daemon), "avahi"};
    }
  }
  return {std::make_unique<EmbeddedBackEnd>(thread, configuration.hostName), "embedded"};
}

// A pointer record's owner is "type.domain", and its data that name with the instance's label in front.
std::optional<ServiceIdentity> identityFromPointer(const std::string& fullName, const std::string& rdata) {
  const auto owner = dnsNameFromText(fullName);
  const auto target = readPTRData(rdata);
  if (!owner || !target || owner->size() < 3 || target->size() != owner->size() + 1) return std::nullopt;
  if (!sameDNSName(*owner, DNSName(target->begin() + 1, target->end()))) return std::nullopt;
  ServiceIdentity identity{target->front(), (*owner)[0] + "." + (*owner)[1], {}};
  for (std::size_t i = 2; i < owner->size(); ++i) {
    if (i > 2) identity.domain += ".";
    identity.domain += (*owner)[i];
  }
  return identity;
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

int DNSSDStack::reconfirmRecord(std::uint32_t, std::uint32_t interfaceIndex, const std::string& fullName,
                                std::uint16_t recordType, std::uint16_t recordClass, std::string rdata) {
  if (recordType != recordTypePTR || recordClass != recordClassIN) return unsupportedRecord;
  const auto identity = identityFromPointer(fullName, rdata);
  if (!identity) return malformedRecord;
  DiscoveryCore::post(core_, [identity = *identity, interfaceIndex](DiscoveryEngine& engine) {
    engine.reconfirm(identity, static_cast<int>(interfaceIndex));
  });
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
