// A service record as any address may answer it, from the answer's body to the adopted peer.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Monitor/FRXServiceMonitor.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/Log/Log.h"
#include "Platform/Notifications/NotificationDispatcher.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Tests/Support/FakeDNSSD.h"
#include "Tests/Support/ManualClock.h"

namespace {

using namespace ferrox;

/// Answers every request with the present input.
class InputHTTPClient : public HTTPClient {
 public:
  explicit InputHTTPClient(RunLoop& loop) : loop_(loop) {}
  std::string body;

  std::shared_ptr<HTTPClientTask> send(HTTPClientRequest, HTTPClientCallbacks callbacks) override {
    loop_.post([this, callbacks = std::move(callbacks)] {
      HTTPClientResponse response;
      response.status = 200;
      response.body = body;
      callbacks.onCompletion(std::nullopt, std::move(response));
    });
    return nullptr;
  }

 private:
  RunLoop& loop_;
};

/// Nobody is ever checked: time stands still.
class NoChecker : public FRXServiceChecker {
  void checkServiceForResponse(const std::shared_ptr<FRXNetService>&, Completion) override {}
};

struct World {
  World() {
    Log::setLevel(LogLevel::Verbose);
    Log::setSink(std::make_shared<NullSink>());
    services.mainLoop = &loop;
    services.background = background.get();
    services.notifications = &notifications;
    services.discovery = &dnssd;
    services.httpClient = &http;
    FRXBrowserParts parts;
    parts.makeMonitor = [this](std::weak_ptr<FRXServiceMonitorDelegate> delegate) {
      return std::make_shared<FRXServiceMonitor>(std::move(delegate), checker, services);
    };
    browser = FRXBrowser::make(services, std::move(parts));
    browser->startBrowsingForServicesOfType("_ferrox._tcp", "");
  }

  struct NullSink : LogSink {
    void write(const LogEntry& entry) override { (void)Log::escaped(entry.message); }
    void writeAudit(const AuditEntry&) override {}
  };

  test::ManualClock clock;
  RunLoop loop{clock};
  test::FakeDNSSD dnssd{loop};
  NotificationDispatcher notifications;
  std::unique_ptr<BackgroundQueue> background = BackgroundQueue::makePool(1);
  InputHTTPClient http{loop};
  std::shared_ptr<NoChecker> checker = std::make_shared<NoChecker>();
  PlatformServices services;
  std::shared_ptr<FRXBrowser> browser;
};

void checkAdopted(FRXBrowser& browser, const FRXNetService& service) {
  if (!service.hostName() || service.hostName()->empty() || service.port() < 1 || service.port() > 65535) {
    std::abort();
  }
  for (const char character : *service.hostName() + *service.name()) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) std::abort();
  }
  const auto json = service.toJson();
  if (!json) std::abort();
  const auto again = FRXNetService::fromJson(*json);
  if (!again || !again->isEqual(service) || again->name() != service.name()) std::abort();
  if (!browser.serviceWithId(service.serviceId())) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static World& world = *new World;
  world.http.body.assign(reinterpret_cast<const char*>(data), size);
  std::optional<bool> outcome;
  world.browser->searchForServiceAtAddress("192.0.2.1", [&](bool success, const std::optional<FRXError>&) {
    if (outcome) std::abort();
    outcome = success;
  });
  while (world.loop.runPending() > 0) {
  }
  if (!outcome) std::abort();
  const auto peers = world.browser->currentServices();
  if (peers.size() != (*outcome ? 1U : 0U)) std::abort();
  for (const auto& peer : peers) checkAdopted(*world.browser, *peer);
  world.browser->stopBrowsingForServices();
  return 0;
}
