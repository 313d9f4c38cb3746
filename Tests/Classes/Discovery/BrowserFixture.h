// A browser over a scripted network, with a listener, a connector and a checker that remember.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Classes/Monitor/FRXServiceMonitor.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Classes/WebSockets/PeerConnector.h"
#include "Platform/Notifications/NotificationDispatcher.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Tests/Support/FakeDNSSD.h"
#include "Tests/Support/ManualClock.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/ScriptedHTTPClient.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {

inline constexpr const char* ownServerId = "0123ABCD-MTIZNDU=/OWN MACHINE";

/// Everything a listener is told, in order, as "operation argument".
class RecordingBrowserListener final : public FRXBrowserDelegate {
 public:
  void localFRXServiceStarted(const std::string& sessionId) override { add("started " + sessionId); }
  void localFRXServiceEnded(const std::string& sessionId) override { add("ended " + sessionId); }
  void remoteFRXServiceDiscovered(const std::shared_ptr<FRXNetService>& service) override {
    add("discovered " + service->serviceId());
  }
  void remoteFRXServiceRemoved(const std::shared_ptr<FRXNetService>& service) override {
    if (onRemoved) onRemoved(*service);
    add("removed " + service->serviceId());
  }
  void remoteFRXServiceBecameResponsive(const std::shared_ptr<FRXNetService>& service) override {
    add("responsive " + service->serviceId());
  }
  void remoteFRXServiceBecameUnresponsive(const std::shared_ptr<FRXNetService>& service) override {
    add("unresponsive " + service->serviceId());
  }

  std::vector<std::string> events() const {
    const std::lock_guard lock(mutex_);
    return events_;
  }
  std::size_t count(const std::string& event) const {
    const auto all = events();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), event));
  }
  std::vector<std::thread::id> threads() const {
    const std::lock_guard lock(mutex_);
    return threads_;
  }

  std::function<void(const FRXNetService&)> onRemoved;

 private:
  void add(std::string event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    threads_.push_back(std::this_thread::get_id());
  }
  mutable std::mutex mutex_;
  std::vector<std::string> events_;
  std::vector<std::thread::id> threads_;
};

class RecordingConnector : public PeerConnector {
 public:
  void start() override {}
  void stop() override {}
  void connectToService(const std::shared_ptr<FRXNetService>& service) override {
    calls.push_back("connect " + service->serviceId());
  }
  void disconnectFromService(const std::shared_ptr<FRXNetService>& service) override {
    calls.push_back("disconnect " + service->serviceId());
  }
  bool isConnectedToService(const std::string&) const override { return false; }

  std::vector<std::string> calls;  // main thread only
};

/// Answers every check at once, on the asking thread, with what was set for the peer.
class ScriptedChecker : public FRXServiceChecker {
 public:
  void set(const std::string& serviceId, FRXServiceCheckResult result) {
    const std::lock_guard lock(mutex_);
    results_[serviceId] = result;
  }
  /// How many checks of the peer have been answered.
  int checks(const std::string& serviceId) const {
    const std::lock_guard lock(mutex_);
    const auto found = checks_.find(serviceId);
    return found == checks_.end() ? 0 : found->second;
  }
  void checkServiceForResponse(const std::shared_ptr<FRXNetService>& service,
                               Completion completion) override {
    completion(resultFor(service->serviceId()));
    const std::lock_guard lock(mutex_);
    ++checks_[service->serviceId()];
  }

 private:
  FRXServiceCheckResult resultFor(const std::string& serviceId) const {
    const std::lock_guard lock(mutex_);
    const auto found = results_.find(serviceId);
    return found == results_.end() ? FRXServiceCheckResult::Cancelled : found->second;
  }
  mutable std::mutex mutex_;
  std::map<std::string, FRXServiceCheckResult> results_;
  std::map<std::string, int> checks_;
};

class BrowserFixture : public ::testing::Test {
 protected:
  using Strings = std::vector<std::string>;

  void SetUp() override {
    LocalServiceDirectory::setServerSource([] {
      return LocalServiceDirectory::LocalServer{ownServerId, 16654};
    });
    PeerConnector::setRegistered(connector);
    services.mainLoop = &loop;
    services.background = background.get();
    services.notifications = &notifications;
    services.discovery = &dnssd;
    services.httpClient = &http;
    FRXBrowserParts parts;
    parts.makeMonitor = [this](std::weak_ptr<FRXServiceMonitorDelegate> delegate) {
      monitor = std::make_shared<FRXServiceMonitor>(std::move(delegate), checker, services);
      return monitor;
    };
    parts.localServer = [this] { return serverInfo; };
    browser = FRXBrowser::make(services, std::move(parts));
    browser->setDelegate(listener);
  }

  void TearDown() override {
    background.reset();  // what was posted there runs to its end first
    settle();
    RoutingHTTPConnection::forgetDelegates();
    LocalServiceDirectory::setServiceLookup({});
    LocalServiceDirectory::setSessionSource({});
    LocalServiceDirectory::setServerSource({});
    PeerConnector::setRegistered(nullptr);
  }

  void startBrowsing() { browser->startBrowsingForServicesOfType("_ferrox._tcp", ""); }

  std::shared_ptr<FakeNetService> announce(const std::string& name, const std::string& hostName,
                                           std::uint16_t port) {
    auto handle = std::make_shared<FakeNetService>(name);
    dnssd.find(handle);
    handle->resolve(hostName, port);
    return handle;
  }

  static std::shared_ptr<FRXNetService> record(const std::string& hostName, std::int64_t port,
                                               const std::string& name) {
    return std::make_shared<FRXNetService>(hostName, port, name);
  }

  /// Runs what was posted to the main loop so far.
  void settle() {
    while (loop.runPending() > 0) {
    }
  }
  bool eventually(const std::function<bool()>& done) { return waitFor(loop, done); }
  /// Lets the monitor's next pass happen and its result for that peer arrive.
  void nextMonitorPass(const std::string& serviceId) {
    const int before = checker->checks(serviceId);
    clock.advance(FRXServiceMonitor::checkInterval, loop);
    ASSERT_TRUE(eventually([&] { return checker->checks(serviceId) > before; }));
    settle();
  }

  ManualClock clock;
  RunLoop loop{clock};
  FakeDNSSD dnssd{loop};
  NotificationDispatcher notifications;
  std::unique_ptr<BackgroundQueue> background = BackgroundQueue::makePool(2);
  ScriptedHTTPClient http;
  PlatformServices services;
  FRXLocalServerInfo serverInfo{"Own Machine", 16654, ownServerId};
  std::shared_ptr<ScriptedChecker> checker = std::make_shared<ScriptedChecker>();
  std::shared_ptr<RecordingConnector> connector = std::make_shared<RecordingConnector>();
  std::shared_ptr<RecordingBrowserListener> listener = std::make_shared<RecordingBrowserListener>();
  std::shared_ptr<FRXServiceMonitor> monitor;
  std::shared_ptr<FRXBrowser> browser;
};

}  // namespace ferrox::test
