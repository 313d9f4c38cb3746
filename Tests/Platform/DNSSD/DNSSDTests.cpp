// Whole stacks of this process that meet over loopback multicast.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>

#include "Platform/DNSSD/DNSSD.h"
#include "Platform/DNSSD/TXTRecord.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

/// Of this process alone, so that nobody else on the machine takes part.
std::string serviceType() {
  static std::atomic<int> serial{0};
  return "_t" + std::to_string(getpid() % 100000) + "x" + std::to_string(serial++) + "._tcp";
}

class Watcher : public NetServiceBrowserListener,
                public NetServiceListener,
                public std::enable_shared_from_this<Watcher> {
 public:
  void netServiceBrowserDidFindService(const std::shared_ptr<NetService>& service, bool) override {
    handles.push_back(service);
    names.insert(service->name());
    service->setDelegate(weak_from_this());
    service->resolveWithTimeout(patience);
  }
  void netServiceBrowserDidRemoveService(const std::shared_ptr<NetService>& service, bool) override {
    names.erase(service->name());
    removed.push_back(service);
  }
  void netServiceDidResolveAddress(const std::shared_ptr<NetService>& service) override {
    ports[service->name()] = service->port();
    if (monitors) service->startMonitoring();
    service->stop();
  }
  void netServiceDidNotResolve(const std::shared_ptr<NetService>& service) override {
    unresolved.insert(service->name());
  }
  void netServiceDidUpdateTXTRecordData(const std::shared_ptr<NetService>& service,
                                        const std::string& data) override {
    txt[service->name()] = decodeTXTRecord(data);
  }

  std::chrono::milliseconds patience = 15s;
  bool monitors = true;
  std::vector<std::shared_ptr<NetService>> handles;
  std::vector<std::shared_ptr<NetService>> removed;
  std::set<std::string> names;
  std::set<std::string> unresolved;
  std::map<std::string, std::uint16_t> ports;
  std::map<std::string, TXTDictionary> txt;
};

class DNSSDTest : public testing::Test {
 protected:
  DNSSDTest() { loopback_.backEnd = DNSSDConfiguration::BackEnd::Embedded; }

  std::unique_ptr<DNSSD> stack() { return DNSSD::make(loop_, loopback_); }
  std::unique_ptr<NetServiceBrowser> browse(DNSSD& stack, const std::shared_ptr<Watcher>& watcher) {
    auto browser = stack.makeBrowser();
    browser->setDelegate(watcher);
    browser->searchForServices(type_, "");
    return browser;
  }
  PublicationRequest request(const std::string& name, std::uint16_t port, TXTDictionary txt = {}) {
    PublicationRequest request;
    request.name = name;
    request.type = type_;
    request.port = port;
    request.txt = std::move(txt);
    request.onPublished = [this](const std::string& final) { published_.push_back(final); };
    request.onFailed = [this](const FRXError& error) { failed_.push_back(error.localizedDescription); };
    return request;
  }
  bool wait(const std::function<bool()>& done) { return test::waitFor(loop_, done, 15s); }

  RunLoop loop_;
  DNSSDConfiguration loopback_ = [] {
    DNSSDConfiguration configuration;
    configuration.allowedInterfaces = {"lo"};
    return configuration;
  }();
  std::string type_ = serviceType();
  std::vector<std::string> published_;
  std::vector<std::string> failed_;
};

TEST_F(DNSSDTest, TwoStacksFindEachOtherSeeTXTAndSayGoodbye) {
  auto one = stack();
  auto two = stack();
  EXPECT_EQ(one->backEndName(), "embedded");
  auto seenByOne = std::make_shared<Watcher>();
  auto seenByTwo = std::make_shared<Watcher>();
  auto browserOne = browse(*one, seenByOne);
  auto browserTwo = browse(*two, seenByTwo);
  auto publicationOne = one->publish(request("ONE/1", 4001, {{"Heartbeat", "0"}}));
  auto publicationTwo = two->publish(request("TWO/2", 4002));

  const std::map<std::string, std::uint16_t> both{{"ONE/1", 4001}, {"TWO/2", 4002}};
  ASSERT_TRUE(wait([&] { return seenByOne->ports == both && seenByTwo->ports == both; }));
  EXPECT_TRUE(wait([&] { return published_.size() == 2; }));
  const auto& handle = seenByTwo->handles.front();
  EXPECT_EQ(handle->type(), type_);
  EXPECT_EQ(handle->domain(), "local.");
  EXPECT_TRUE(handle->hostName() && handle->hostName()->ends_with(".local."));

  publicationOne->setTXTRecord({{"Heartbeat", "1"}});
  EXPECT_TRUE(wait([&] { return seenByTwo->txt["ONE/1"] == TXTDictionary{{"Heartbeat", "1"}}; }));

  publicationOne.reset();
  one.reset();
  ASSERT_TRUE(wait([&] { return seenByTwo->names == std::set<std::string>{"TWO/2"}; }));
  EXPECT_EQ(seenByTwo->removed.front()->port(), 4001);
}

TEST_F(DNSSDTest, AddressesOfTheOtherAreFound) {
  auto one = stack();
  auto two = stack();
  auto watcher = std::make_shared<Watcher>();
  auto browser = browse(*one, watcher);
  auto publication = two->publish(request("TWO", 4002));
  ASSERT_TRUE(wait([&] { return !watcher->ports.empty(); }));

  std::mutex mutex;
  std::optional<std::vector<SocketAddress>> answer;
  one->resolveHostName(*watcher->handles.front()->hostName(), 5s, [&](std::vector<SocketAddress> addresses) {
    const std::lock_guard lock(mutex);
    answer = std::move(addresses);
  });
  ASSERT_TRUE(wait([&] {
    const std::lock_guard lock(mutex);
    return answer.has_value();
  }));
  const auto isIPv4Loopback = [](const SocketAddress& address) { return address.hostText() == "127.0.0.1"; };
  EXPECT_TRUE(std::any_of(answer->begin(), answer->end(), isIPv4Loopback));
}

TEST_F(DNSSDTest, OneNameTwiceInOneStackIsReplaced) {
  auto one = stack();
  auto first = one->publish(request("SAME", 4001));
  ASSERT_TRUE(wait([&] { return published_.size() == 1; }));
  auto second = one->publish(request("SAME", 4002));
  ASSERT_TRUE(wait([&] { return published_.size() == 2; }));
  EXPECT_EQ(published_[0], "SAME");
  EXPECT_EQ(published_[1], "SAME #2");
}

TEST_F(DNSSDTest, APublicationThatCannotBeFails) {
  auto one = stack();
  auto noType = request("NAME", 4001);
  noType.type = "rubbish";
  auto first = one->publish(noType);
  ASSERT_TRUE(wait([&] { return failed_.size() == 1; }));
  test::LogRecording log;
  auto second = one->publish(request("NAME", 4001, {{"Key", std::string(300, 'x')}}));
  ASSERT_TRUE(wait([&] { return failed_.size() == 2; }));
  EXPECT_TRUE(log->mentions(LogLevel::Error, "TXT record of service NAME"));
  second->setTXTRecord({{"Key", "fits, but comes too late"}});
}

TEST_F(DNSSDTest, AHandleThatIsNotAnsweredInTimeSaysSoAndResolvesLater) {
  auto one = stack();
  auto two = stack();
  auto watcher = std::make_shared<Watcher>();
  watcher->patience = 0ms;
  auto browser = browse(*one, watcher);
  auto publication = two->publish(request("TWO", 4002));
  EXPECT_TRUE(wait([&] { return watcher->unresolved.count("TWO") > 0; }));
  EXPECT_TRUE(wait([&] { return watcher->ports.count("TWO") > 0; }));
}

TEST_F(DNSSDTest, AStoppedBrowserAndADroppedListenerAreSafe) {
  auto one = stack();
  auto watcher = std::make_shared<Watcher>();
  auto browser = browse(*one, watcher);
  auto publication = one->publish(request("ONE", 4001));
  ASSERT_TRUE(wait([&] { return !watcher->ports.empty(); }));
  browser->stop();
  browser->stop();
  publication.reset();
  auto other = std::make_shared<Watcher>();
  auto dropped = browse(*one, other);
  other.reset();
  EXPECT_FALSE(loop_.runUntil([&] { return !watcher->removed.empty(); }, 1500ms));
}

TEST_F(DNSSDTest, BrowsersHandlesAndPublicationsMayOutliveTheStack) {
  auto one = stack();
  auto watcher = std::make_shared<Watcher>();
  auto browser = browse(*one, watcher);
  auto publication = one->publish(request("ONE", 4001));
  ASSERT_TRUE(wait([&] { return !watcher->ports.empty(); }));
  one.reset();
  watcher->handles.front()->resolveWithTimeout(10ms);
  watcher->handles.front()->startMonitoring();
  publication->setTXTRecord({{"a", "b"}});
  browser->searchForServices(type_, "");
  EXPECT_TRUE(wait([&] { return watcher->unresolved.count("ONE") > 0; }));
}

TEST_F(DNSSDTest, EveryLookupIsAnsweredOnceAlsoAtTheEnd) {
  std::atomic<int> answers{0};
  {
    auto one = stack();
    for (int i = 0; i < 20; ++i) {
      one->resolveHostName("nobody-" + std::to_string(i) + ".local", 1h, [&](const auto& addresses) {
        EXPECT_TRUE(addresses.empty());
        ++answers;
      });
    }
  }
  EXPECT_EQ(answers, 20);
}

TEST_F(DNSSDTest, RecordsThatCannotBeReconfirmedAreRefused) {
  auto one = stack();
  const std::string good = "\4PEER\x07_ferrox\4_tcp\5local\0"s;
  EXPECT_EQ(one->reconfirmRecord(0, 0, "_ferrox._tcp.local.", 12, 1, good), 0);
  EXPECT_NE(one->reconfirmRecord(0, 0, "_ferrox._tcp.local.", 33, 1, good), 0);
  EXPECT_NE(one->reconfirmRecord(0, 0, "_ferrox._tcp.local.", 12, 3, good), 0);
  EXPECT_NE(one->reconfirmRecord(0, 0, "_other._tcp.local.", 12, 1, good), 0);
  EXPECT_NE(one->reconfirmRecord(0, 0, "", 12, 1, good), 0);
  EXPECT_NE(one->reconfirmRecord(0, 0, "_ferrox._tcp.local.", 12, 1, ""), 0);
  EXPECT_NE(one->reconfirmRecord(0, 0, "_ferrox._tcp.local.", 12, 1, good.substr(0, 9)), 0);
}

TEST_F(DNSSDTest, SwitchedOffNothingHappensButAnswers) {
  loopback_.backEnd = DNSSDConfiguration::BackEnd::Off;
  auto off = stack();
  EXPECT_EQ(off->backEndName(), "off");
  auto watcher = std::make_shared<Watcher>();
  auto browser = browse(*off, watcher);
  auto publication = off->publish(request("ONE", 4001));
  std::atomic<bool> answered{false};
  off->resolveHostName("mac.local", 1s, [&](const auto& addresses) { answered = addresses.empty(); });
  off->refresh();
  EXPECT_EQ(off->reconfirmRecord(0, 0, "_ferrox._tcp.local.", 12, 1, "x"), 0);
  EXPECT_TRUE(wait([&] { return answered.load(); }));
  EXPECT_TRUE(published_.empty());
}

}  // namespace
}  // namespace ferrox
