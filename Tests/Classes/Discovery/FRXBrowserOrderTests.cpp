// Thousands of random sequences of events, each step compared with a model of a few lines.
#include <random>
#include <set>

#include "Tests/Classes/Discovery/BrowserFixture.h"

namespace ferrox::test {
namespace {

constexpr int instances = 6;
constexpr int hosts = 3;

/// Which names are announced where, and which peers follow from that and from adoption.
struct Model {
  std::map<std::string, std::string> announced;  // name -> record key
  std::set<std::string> known;

  void resolve(const std::string& name, const std::string& key) {
    if (const auto before = announced.find(name); before != announced.end() && before->second != key) {
      const std::string former = before->second;
      announced.erase(before);
      withdraw(former);
    }
    announced[name] = key;
    known.insert(key);
  }
  void remove(const std::string& name) {
    const auto before = announced.find(name);
    if (before == announced.end()) return;
    const std::string former = before->second;
    announced.erase(before);
    withdraw(former);
  }
  void adopt(const std::string& key) { known.insert(key); }
  void stop() {
    announced.clear();
    known.clear();
  }

 private:
  void withdraw(const std::string& key) {
    for (const auto& [name, other] : announced) {
      if (other == key) return;
    }
    known.erase(key);
  }
};

class FRXBrowserOrderTest : public BrowserFixture, public ::testing::WithParamInterface<unsigned> {
 protected:
  int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); }

  void step() {
    const int instance = pick(instances);
    const std::string name = "DEV" + std::to_string(instance) + "-1/N";
    const std::string host = "H" + std::to_string(pick(hosts)) + ".LOCAL.";
    const auto port = static_cast<std::uint16_t>(1 + pick(2));
    const std::string key = host + ":" + std::to_string(port);
    switch (pick(12)) {
      case 0:
      case 1:
      case 2:
        handles[name] = std::make_shared<FakeNetService>(name);
        dnssd.find(handles[name], pick(3) == 0);
        break;
      case 3:
      case 4:
      case 5:
      case 6:
        if (!handles.contains(name)) break;
        // A handle that browsing dropped has no listener any more and reports nothing.
        if (handles[name]->hasDelegate()) model.resolve(name, key);
        handles[name]->resolve(host, port);
        break;
      case 7:
      case 8:
        dnssd.remove(pick(2) == 0 && handles.contains(name) ? handles[name]
                                                            : std::make_shared<FakeNetService>(name));
        model.remove(name);
        break;
      case 9:
        // Peers that announce nothing have names of their own.
        browser->monitorService(record(host, port, "SILENT-1/" + key));
        settle();
        model.adopt(key);
        break;
      case 10:
        if (handles.contains(name)) handles[name]->updateTXT("\3a=b");
        break;
      case 11:
        if (pick(20) != 0) break;
        browser->stopBrowsingForServices();
        model.stop();
        startBrowsing();
        break;
    }
  }

  void compare() {
    std::set<std::string> known;
    for (const auto& service : browser->currentServices()) {
      EXPECT_TRUE(known.insert(service->serviceId()).second) << "twice: " << service->serviceId();
      EXPECT_EQ(browser->serviceWithId(service->serviceId()), service);
      EXPECT_TRUE(monitor->monitoredServices().contains(service->serviceId()));
    }
    ASSERT_EQ(known, model.known);
    for (const auto& [name, key] : model.announced) EXPECT_NE(browser->serviceWithId(key), nullptr) << name;
  }

  /// Discovered and removed alternate for each peer, except that stopping removes silently.
  void compareEvents() {
    std::map<std::string, bool> reported;
    for (const std::string& event : listener->events()) {
      if (event.starts_with("removed ")) {
        EXPECT_TRUE(reported[event.substr(8)]) << event << " without discovery";
        reported[event.substr(8)] = false;
      } else if (event.starts_with("discovered ")) {
        reported[event.substr(11)] = true;
      }
    }
    for (const std::string& key : model.known) EXPECT_TRUE(reported[key]) << key << " never reported";
  }

  std::mt19937 random{GetParam()};
  std::map<std::string, std::shared_ptr<FakeNetService>> handles;
  Model model;
};

TEST_P(FRXBrowserOrderTest, KnownPeersFollowFromTheEventsInWhateverOrderTheyCome) {
  startBrowsing();
  for (int i = 0; i < 2000 && !HasFatalFailure(); ++i) {
    step();
    compare();
  }
  compareEvents();
}

INSTANTIATE_TEST_SUITE_P(Seeds, FRXBrowserOrderTest, ::testing::Range(1U, 9U));

// Other threads read while the main thread changes everything.
class FRXBrowserThreadsTest : public BrowserFixture {};

TEST_F(FRXBrowserThreadsTest, ReadersOnOtherThreadsSeeWholeRecordsOnly) {
  startBrowsing();
  std::atomic<bool> done{false};
  std::atomic<int> reads{0};
  const auto readAll = [&] {
    while (!done) {
      for (const auto& service : browser->currentServices()) {
        if (!service->serviceId().starts_with("H")) ADD_FAILURE() << service->serviceId();
      }
      const auto own = browser->localFRXService();
      if (!own || !own->hostName() || !own->name()) ADD_FAILURE() << "half an own record";
      (void)browser->serviceWithId("H1.LOCAL.:1");
      (void)browser->idForServiceName("DEV1-1/N");
      (void)browser->serviceSessionId();
      browser->monitorService(record("H9.LOCAL.", 9, "DEV9-1/N"));
      ++reads;
    }
  };
  std::thread first(readAll);
  std::thread second(readAll);
  for (int i = 0; i < 300 || reads < 100; ++i) {
    const std::string number = std::to_string(i % 3);
    const auto handle = announce("DEV" + number + "-1/N", "h" + number + ".local.", 1);
    announce(ownServerId, "me" + number + ".local.", 1);
    browser->setDelegate(listener);
    if (i % 2 == 0) dnssd.remove(handle);
    if (i % 50 == 0) browser->stopBrowsingForServices();
    if (i % 50 == 0) startBrowsing();
    settle();
  }
  done = true;
  first.join();
  second.join();
  settle();
  EXPECT_GE(reads, 100);
}

}  // namespace
}  // namespace ferrox::test
