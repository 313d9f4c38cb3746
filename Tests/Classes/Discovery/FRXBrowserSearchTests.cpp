// Peers learned of without DNS-SD: searched by address, or adopted because they connected.
#include <future>

#include "Classes/Discovery/FRXPeerTable.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/HTTP/Server/HTTPServer.h"
#include "Platform/Net/HostNameResolver.h"
#include "Tests/Classes/Discovery/BrowserFixture.h"

namespace ferrox::test {
namespace {

constexpr const char* peerJson =
    R"({"serviceId":"X","hostName":"peer.local.","port":16654,"name":"ABCD-1/PEER"})";

struct SearchResult {
  bool success = false;
  std::optional<FRXError> error;
  std::thread::id thread;
};

class FRXBrowserSearchTest : public BrowserFixture {
 protected:
  void SetUp() override {
    BrowserFixture::SetUp();
    startBrowsing();
  }

  SearchResult search(const std::string& address, std::optional<std::uint16_t> port = std::nullopt) {
    auto promise = std::make_shared<std::promise<SearchResult>>();
    auto future = promise->get_future();
    const auto handler = [promise](bool success, std::optional<FRXError> error) {
      promise->set_value({success, std::move(error), std::this_thread::get_id()});
    };
    if (port) {
      browser->searchForServiceAtAddress(address, *port, handler);
    } else {
      browser->searchForServiceAtAddress(address, handler);
    }
    if (future.wait_for(patience) != std::future_status::ready) {
      ADD_FAILURE() << "the search never ended";
      return {};
    }
    settle();
    return future.get();
  }
  SearchResult searchAnswered(ScriptedHTTPClient::Answer answer) {
    http.answer(std::move(answer));
    return search("10.0.0.7");
  }
};

// Search

TEST_F(FRXBrowserSearchTest, ASearchAsksTheFixedPortWithTenSeconds) {
  serverInfo.port = 9;
  http.answer({std::nullopt, 200, peerJson});
  EXPECT_TRUE(search("peer.example").success);
  ASSERT_EQ(http.requestCount(), 1U);
  const HTTPClientRequest request = http.requests()[0];
  EXPECT_EQ(request.url, "http://peer.example:16654/service");
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.inactivityTimeout, std::chrono::milliseconds(10000));
  EXPECT_EQ(request.maxBodySize, 64U * 1024U);
}

TEST_F(FRXBrowserSearchTest, AnotherPortAndIPv6AddressesAreUnderstood) {
  for (int i = 0; i < 3; ++i) http.answer({std::nullopt, 200, peerJson});
  EXPECT_TRUE(search("10.0.0.7", 80).success);
  EXPECT_TRUE(search("::1", 81).success);
  EXPECT_TRUE(search("[fe80::1%lo]", 82).success);
  ASSERT_EQ(http.requestCount(), 3U);
  EXPECT_EQ(http.requests()[0].url, "http://10.0.0.7:80/service");
  EXPECT_EQ(http.requests()[1].url, "http://[::1]:81/service");
  EXPECT_EQ(http.requests()[2].url, "http://[fe80::1%25lo]:82/service");
}

TEST_F(FRXBrowserSearchTest, HostileAddressesAreRefusedWithoutARequest) {
  for (const char* address :
       {"", "evil.example/path", "user@evil.example", "evil.example:80", "a b", "a\r\nHost: x", "a#b", "a?b",
        "a%00b", "[10.0.0.7]", "[evil]", "..", "http://x", "\xFF\xFE"}) {
    const SearchResult result = search(address);
    EXPECT_FALSE(result.success) << address;
    ASSERT_TRUE(result.error.has_value()) << address;
    EXPECT_EQ(result.error->domain, FRXBrowserErrorDomain);
    EXPECT_EQ(result.error->code, FRXBrowserErrorBadAddress);
    EXPECT_NE(result.thread, std::this_thread::get_id()) << "never inside the call that began the search";
  }
  EXPECT_FALSE(search("10.0.0.7", 0).success);
  EXPECT_EQ(http.requestCount(), 0U);
}

TEST_F(FRXBrowserSearchTest, AFoundPeerIsAdoptedAndReportedTwiceOnceFromTheCallbackThread) {
  const SearchResult result = searchAnswered({std::nullopt, 200, peerJson});
  EXPECT_TRUE(result.success);
  EXPECT_FALSE(result.error.has_value());
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_EQ(listener->count("discovered PEER.LOCAL.:16654"), 2U);
  const auto threads = listener->threads();
  EXPECT_EQ(std::count(threads.begin(), threads.end(), result.thread), 1);
  EXPECT_EQ(std::count(threads.begin(), threads.end(), std::this_thread::get_id()), 1);
  EXPECT_TRUE(monitor->monitoredServices().contains("PEER.LOCAL.:16654"));
}

TEST_F(FRXBrowserSearchTest, AKnownPeerIsReportedOnceMoreByASearch) {
  announce("ABCD-1/PEER", "peer.local.", 16654);
  EXPECT_TRUE(searchAnswered({std::nullopt, 200, peerJson}).success);
  EXPECT_EQ(listener->count("discovered PEER.LOCAL.:16654"), 2U);
  EXPECT_EQ(browser->currentServices().size(), 1U);
}

TEST_F(FRXBrowserSearchTest, ATransportErrorReachesTheHandler) {
  const LogRecording log;
  const SearchResult result = searchAnswered({ScriptedHTTPClient::refused(), 0, ""});
  EXPECT_FALSE(result.success);
  EXPECT_EQ(result.error, ScriptedHTTPClient::refused());
  EXPECT_TRUE(
      log->has(LogLevel::Warn,
               "Request for service information at address 10.0.0.7 failed with error - connection refused"));
}

TEST_F(FRXBrowserSearchTest, AStatusOtherThan200FailsWithoutAnError) {
  const LogRecording log;
  const SearchResult result = searchAnswered({std::nullopt, 500, peerJson});
  EXPECT_FALSE(result.success);
  EXPECT_FALSE(result.error.has_value());
  EXPECT_TRUE(log->has(LogLevel::Warn,
                       "Request for service information at address 10.0.0.7 failed with status code 500"));
  EXPECT_TRUE(listener->events().empty());
}

TEST_F(FRXBrowserSearchTest, AMissingBodyFailsWithoutAnError) {
  const LogRecording log;
  const SearchResult result = searchAnswered({std::nullopt, 200, ""});
  EXPECT_FALSE(result.success);
  EXPECT_FALSE(result.error.has_value());
  EXPECT_TRUE(log->has(LogLevel::Warn,
                       "Request for service information at address 10.0.0.7 failed - no response body."));
}

TEST_F(FRXBrowserSearchTest, ABodyThatIsNotJSONFailsWithTheParsersError) {
  for (const char* body : {"{", "not json", "\xFF\xFE", "{\"hostName\":\"\xC3(\"}", "42"}) {
    const LogRecording log;
    const SearchResult result = searchAnswered({std::nullopt, 200, body});
    EXPECT_FALSE(result.success) << body;
    EXPECT_TRUE(result.error.has_value()) << body;
    EXPECT_TRUE(log->mentions(LogLevel::Warn,
                              "Request for service information at address 10.0.0.7 failed while "
                              "deserializing service json: "));
  }
}

TEST_F(FRXBrowserSearchTest, JSONThatMakesNoPeerFailsWithoutAnError) {
  for (const char* body :
       {"{}", "[]", R"({"hostName":"a b","port":1,"name":"N"})", R"({"hostName":"h","port":0,"name":"N"})",
        R"({"hostName":"h","port":65536,"name":"N"})", R"({"hostName":"h","port":-1,"name":"N"})",
        R"({"hostName":"h","port":1,"name":""})", R"({"hostName":"h","port":1})",
        R"({"hostName":"h\u0000x","port":1,"name":"N"})", R"({"hostName":7,"port":1,"name":"N"})",
        R"({"hostName":"h\r\nX: y","port":1,"name":"N"})"}) {
    const LogRecording log;
    const SearchResult result = searchAnswered({std::nullopt, 200, body});
    EXPECT_FALSE(result.success) << body;
    EXPECT_FALSE(result.error.has_value()) << body;
    EXPECT_TRUE(log->has(LogLevel::Warn,
                         "Request for service information at address 10.0.0.7 failed while deserializing "
                         "service json: FRX service is nil"))
        << body;
  }
  EXPECT_TRUE(browser->currentServices().empty());
  EXPECT_TRUE(listener->events().empty());
}

TEST_F(FRXBrowserSearchTest, ASearchWithoutAHandlerStillAdopts) {
  http.answer({std::nullopt, 200, peerJson});
  browser->searchForServiceAtAddress("10.0.0.7", nullptr);
  EXPECT_TRUE(eventually([&] { return browser->currentServices().size() == 1; }));
  browser->searchForServiceAtAddress("bad address", nullptr);
}

TEST_F(FRXBrowserSearchTest, ASearchOutlivesItsBrowser) {
  http.hold();
  http.answer({std::nullopt, 200, peerJson});
  auto ended = std::make_shared<std::promise<void>>();
  auto future = ended->get_future();
  browser->searchForServiceAtAddress("10.0.0.7",
                                     [ended](bool, std::optional<FRXError>) { ended->set_value(); });
  RoutingHTTPConnection::forgetDelegates();
  browser.reset();
  http.release();
  EXPECT_EQ(future.wait_for(patience), std::future_status::ready);
}

/// Serves one fixed record, as a peer's routing layer would be told to.
class FixedRecord : public ConnectionRequestDelegate {
 public:
  explicit FixedRecord(std::shared_ptr<FRXNetService> service) : service_(std::move(service)) {}
  void monitorService(std::shared_ptr<FRXNetService>) override {}
  std::shared_ptr<FRXNetService> localFRXService() const override { return service_; }

 private:
  std::shared_ptr<FRXNetService> service_;
};

TEST_F(FRXBrowserSearchTest, ARealPeerIsFoundOverHTTPAndARealAbsenceIsReported) {
  const auto resolver = HostNameResolver::make(dnssd);
  const auto client = HTTPClient::make(*resolver);
  services.httpClient = client.get();
  browser = FRXBrowser::make(services);
  RoutingHTTPConnection::setConnectionRequestDelegate(
      std::make_shared<FixedRecord>(record("Peer.local.", 16654, "ABCD-1/PEER")));
  HTTPServer server(nullptr);
  server.setConnectionClass([] { return std::make_unique<RoutingHTTPConnection>(); });
  ASSERT_TRUE(server.start());
  const std::uint16_t port = server.port();
  EXPECT_TRUE(search("127.0.0.1", port).success);
  ASSERT_TRUE(eventually([&] { return browser->serviceWithId("PEER.LOCAL.:16654") != nullptr; }));
  EXPECT_TRUE(search("::1", port).success);
  server.stop();
  const SearchResult gone = search("127.0.0.1", port);
  EXPECT_FALSE(gone.success);
  EXPECT_TRUE(gone.error.has_value());
  browser.reset();
}

// Adoption

class FRXBrowserAdoptionTest : public FRXBrowserSearchTest {
 protected:
  void adopt(const std::string& hostName, std::int64_t port, const std::string& name) {
    browser->monitorService(record(hostName, port, name));
    settle();
  }
};

TEST_F(FRXBrowserAdoptionTest, AnAdoptedPeerIsKnownMonitoredAndReportedLater) {
  browser->monitorService(record("peer.local.", 16654, "abcd-1/peer"));
  EXPECT_TRUE(browser->currentServices().empty()) << "never inside the call";
  settle();
  EXPECT_EQ(browser->idForServiceName("ABCD-1/PEER"), "PEER.LOCAL.:16654");
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_TRUE(monitor->monitoredServices().contains("PEER.LOCAL.:16654"));
  EXPECT_EQ(listener->events(), Strings{"discovered PEER.LOCAL.:16654"});
}

TEST_F(FRXBrowserAdoptionTest, AKnownPeerIsNotAdoptedAgain) {
  adopt("peer.local.", 16654, "ABCD-1/PEER");
  adopt("Peer.Local.", 16654, "EFGH-1/OTHER NAME");
  EXPECT_EQ(listener->events().size(), 1U);
  EXPECT_EQ(browser->idForServiceName("EFGH-1/OTHER NAME"), std::nullopt);
}

TEST_F(FRXBrowserAdoptionTest, ANameUnderLocalIsTheSamePeerWithAndWithoutItsDot) {
  adopt("peer.local", 16654, "ABCD-1/PEER");
  EXPECT_EQ(browser->currentServices()[0]->serviceId(), "PEER.LOCAL.:16654");
  announce("ABCD-1/PEER", "peer.local.", 16654);
  adopt("PEER.local", 16654, "ABCD-1/PEER");
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_EQ(listener->events(), Strings{"discovered PEER.LOCAL.:16654"});
}

TEST_F(FRXBrowserAdoptionTest, AnInstanceIsKnownOnceWhateverHostItNames) {
  announce("ABCD-1/PEER", "peer.local.", 16654);
  adopt("Peers-Computer.local.", 16654, "ABCD-1/PEER");
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_EQ(browser->idForServiceName("ABCD-1/PEER"), "PEER.LOCAL.:16654");
}

TEST_F(FRXBrowserAdoptionTest, AnAnnouncementTakesThePlaceOfAGuess) {
  adopt("Peers-Computer.local.", 16654, "ABCD-1/PEER");
  announce("ABCD-1/PEER", "peer.local.", 16654);
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_EQ(listener->events(),
            (Strings{"discovered PEERS-COMPUTER.LOCAL.:16654", "removed PEERS-COMPUTER.LOCAL.:16654",
                     "discovered PEER.LOCAL.:16654"}));
  EXPECT_EQ(connector->calls, Strings{"disconnect PEERS-COMPUTER.LOCAL.:16654"});
  EXPECT_FALSE(monitor->monitoredServices().contains("PEERS-COMPUTER.LOCAL.:16654"));
}

TEST_F(FRXBrowserAdoptionTest, AnAdoptedUWPPeerIsConnectedNotMonitoredButReported) {
  adopt("box.local.", 16654, "Zune/BOX");
  EXPECT_EQ(connector->calls, Strings{"connect BOX.LOCAL.:16654"});
  EXPECT_FALSE(monitor->isMonitoring());
  EXPECT_EQ(listener->events(), Strings{"discovered BOX.LOCAL.:16654"});
}

TEST_F(FRXBrowserAdoptionTest, ThisInstanceIsNotAdoptedByAddress) {
  announce(ownServerId, "me.local.", 16654);
  adopt("ME.LOCAL.", 16654, "FFFF-1/STRANGE NAME");
  EXPECT_TRUE(browser->currentServices().empty());
  adopt("ME.LOCAL.", 16655, "FFFF-1/STRANGE NAME");
  EXPECT_EQ(browser->currentServices().size(), 1U) << "another port is another instance";
}

TEST_F(FRXBrowserAdoptionTest, ThisDeviceIsNotAdoptedUnderAnyAddress) {
  adopt("other.local.", 16654, "0123abcd-NEWER/RENAMED");
  EXPECT_TRUE(browser->currentServices().empty());
  EXPECT_TRUE(listener->events().empty());
}

TEST_F(FRXBrowserAdoptionTest, BeforeTheOwnAnnouncementOnlyThePortDecides) {
  adopt("peer.local.", 0, "ABCD-1/PEER");
  EXPECT_TRUE(browser->currentServices().empty());
  adopt("peer.local.", 16654, "ABCD-1/PEER");
  EXPECT_EQ(browser->currentServices().size(), 1U);
}

TEST_F(FRXBrowserAdoptionTest, RecordsThatCannotBelongToAPeerAreDroppedWithALogLine) {
  const LogRecording log;
  adopt("", 16654, "ABCD-1/PEER");
  adopt("a b.local.", 16654, "ABCD-1/PEER");
  adopt("a\x1b[31m.local.", 16654, "ABCD-1/PEER");
  adopt(std::string(256, 'a'), 16654, "ABCD-1/PEER");
  adopt("victim.example/frxsocket?x=", 16654, "ABCD-1/PEER");
  adopt("p.local.", -1, "ABCD-1/PEER");
  adopt("p.local.", 65536, "ABCD-1/PEER");
  adopt("p.local.", 16654, "");
  adopt("p.local.", 16654, "ABCD-1/PE\nER");
  adopt("p.local.", 16654, std::string(256, 'n'));
  browser->monitorService(std::make_shared<FRXNetService>(std::nullopt, 16654, "ABCD-1/PEER"));
  browser->monitorService(std::make_shared<FRXNetService>("p.local.", 16654, std::nullopt));
  settle();
  EXPECT_TRUE(browser->currentServices().empty());
  EXPECT_TRUE(listener->events().empty());
  EXPECT_TRUE(connector->calls.empty());
  const auto entries = log->entries();
  const auto warnings = std::count_if(entries.begin(), entries.end(),
                                      [](const LogEntry& entry) { return entry.level == LogLevel::Warn; });
  EXPECT_EQ(warnings, 12);
}

TEST_F(FRXBrowserAdoptionTest, AnAdoptedPeerStaysUntilItsAnnouncementIsWithdrawn) {
  adopt("peer.local.", 16654, "ABCD-1/PEER");
  dnssd.remove(std::make_shared<FakeNetService>("ABCD-1/PEER"));
  EXPECT_EQ(browser->currentServices().size(), 1U) << "what was never resolved cannot be withdrawn";
  const auto handle = announce("ABCD-1/PEER", "peer.local.", 16654);
  EXPECT_EQ(listener->events().size(), 1U) << "resolving a known peer reports nothing";
  dnssd.remove(handle);
  EXPECT_TRUE(browser->currentServices().empty());
}

TEST_F(FRXBrowserAdoptionTest, AFloodOfInventedPeersIsBounded) {
  const LogRecording log(LogLevel::Warn);
  const std::size_t invented = FRXPeerTable::maxServices + 100;
  for (std::size_t i = 0; i < invented; ++i) {
    browser->monitorService(record("h" + std::to_string(i) + ".local.", 16654, "N" + std::to_string(i)));
  }
  settle();
  EXPECT_EQ(browser->currentServices().size(), FRXPeerTable::maxServices);
  EXPECT_EQ(monitor->monitoredServices().size(), FRXPeerTable::maxServices);
}

TEST_F(FRXBrowserAdoptionTest, AdoptionBeforeBrowsingNeedsNoMonitor) {
  browser = FRXBrowser::make(services);
  browser->setDelegate(listener);
  adopt("peer.local.", 16654, "ABCD-1/PEER");
  EXPECT_EQ(listener->events(), Strings{"discovered PEER.LOCAL.:16654"});
}

}  // namespace
}  // namespace ferrox::test
