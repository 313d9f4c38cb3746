#include "Platform/DNSSD/DiscoveryPublication.h"

#include <chrono>
#include <future>
#include <utility>

#include "Platform/DNSSD/HostNameText.h"
#include "Platform/DNSSD/TXTRecord.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"

namespace ferrox::dnssd {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t maxInstanceNameSize = 63;
/// Far more than a living stack needs, and bearable when a daemon hangs.
constexpr auto goodbyePatience = 300ms;
constexpr auto goodbyeTurn = 10ms;

std::string publishableName(const std::string& name) {
  std::string cut(text::prefixOfBytes(name, maxInstanceNameSize));
  if (cut != name) {
    FRX_LOG_WARN("The service name " + Log::escaped(name) + " is too long; publishing it as " +
                 Log::escaped(cut));
  }
  return cut;
}

ServiceRecords recordsOf(const PublicationRequest& request, std::string txt) {
  ServiceRecords records;
  records.name = publishableName(request.name);
  records.type = request.type.ends_with('.') ? request.type.substr(0, request.type.size() - 1) : request.type;
  records.domain = request.domain.empty() ? "local" : lowerCaseHostName(request.domain);
  records.port = request.port;
  records.txt = std::move(txt);
  return records;
}

// What the host's callbacks do belongs on the main thread.
template <class... Arguments>
std::function<void(const Arguments&...)> onMain(const std::shared_ptr<MainLoopLink>& toMain,
                                                std::function<void(const Arguments&...)> callback,
                                                std::weak_ptr<const void> alive) {
  if (!callback) return nullptr;
  return [toMain, callback = std::move(callback), alive = std::move(alive)](const Arguments&... arguments) {
    toMain->post([callback, alive, arguments...] {
      if (!alive.expired()) callback(arguments...);
    });
  };
}

}  // namespace

DiscoveryPublication::DiscoveryPublication(std::shared_ptr<DiscoveryCore> core, PublicationRequest request)
    : core_(std::move(core)), session_(std::make_shared<std::shared_ptr<PublishSession>>()) {
  PublishSession::Sinks sinks;
  sinks.published = onMain(core_->toMain, std::move(request.onPublished), session_);
  sinks.failed = onMain(core_->toMain, std::move(request.onFailed), session_);
  auto txt = encodeTXTRecord(request.txt);
  if (!txt) {
    FRX_LOG_ERROR("The TXT record of service " + Log::escaped(request.name) +
                  " cannot be published: a key is not valid or it is too long");
    if (sinks.failed)
      sinks.failed({"FRXDiscoveryErrorDomain", 2, "The TXT record is not valid or too long."});
    return;
  }
  DiscoveryCore::post(core_, [place = session_, records = recordsOf(request, std::move(*txt)),
                              sinks = std::move(sinks)](DiscoveryEngine& engine) {
    *place = std::make_shared<PublishSession>(engine.context(), records, sinks);
    engine.add(*place);
  });
}

DiscoveryPublication::~DiscoveryPublication() {
  const auto withdrawn = std::make_shared<std::promise<void>>();
  const auto done = withdrawn->get_future();
  const auto goodbye = std::make_shared<std::unique_ptr<Pending>>();
  DiscoveryCore::post(core_, [place = std::move(session_), withdrawn, goodbye,
                              thread = core_->thread](DiscoveryEngine& engine) {
    if (*place) engine.remove(*place);
    place->reset();
    // The stack sends from a timer that is due at once; a process that ended before that would leave
    // without a goodbye. A timer that is due later fires after it.
    *goodbye = thread->after(goodbyeTurn, [withdrawn] { withdrawn->set_value(); });
  });
  if (core_->thread->isCurrent()) return;
  (void)done.wait_for(goodbyePatience);
  DiscoveryCore::post(core_, [goodbye](DiscoveryEngine&) { goodbye->reset(); });
}

void DiscoveryPublication::setTXTRecord(TXTDictionary txt) {
  auto rdata = encodeTXTRecord(txt);
  if (!rdata) {
    FRX_LOG_ERROR(std::string("A TXT record was refused: a key is not valid or it is too long"));
    return;
  }
  DiscoveryCore::post(core_, [place = session_, rdata = std::move(*rdata)](DiscoveryEngine&) {
    if (*place) (*place)->setTXT(rdata);
  });
}

}  // namespace ferrox::dnssd
