#include <stdexcept>

#include "Classes/Discovery/FRXBrowser.h"
#include "Tests/Classes/Discovery/BrowserFixture.h"

namespace ferrox::test {
namespace {

using std::chrono::milliseconds;

class FRXBrowserTest : public BrowserFixture {
 protected:
  void SetUp() override {
    BrowserFixture::SetUp();
    startBrowsing();
  }
};

// Browsing

TEST_F(FRXBrowserTest, StartSearchesForTheGivenTypeAndStopEndsTheSearch) {
  ASSERT_EQ(dnssd.searches().size(), 1U);
  EXPECT_EQ(dnssd.searches()[0].type, "_ferrox._tcp");
  EXPECT_TRUE(dnssd.searches()[0].isRunning);
  browser->stopBrowsingForServices();
  EXPECT_FALSE(dnssd.searches()[0].isRunning);
}

TEST_F(FRXBrowserTest, StartRegistersWithTheRoutingLayerAndTheDirectory) {
  EXPECT_EQ(RoutingHTTPConnection::connectionRequestDelegate().get(), browser.get());
  announce("AAAA-1=/PEER", "peer.local.", 16654);
  EXPECT_NE(LocalServiceDirectory::serviceWithId("PEER.LOCAL.:16654"), nullptr);
}

TEST_F(FRXBrowserTest, ASecondStartDropsTheFirstMonitor) {
  const std::weak_ptr<FRXServiceMonitor> first = monitor;
  startBrowsing();
  EXPECT_NE(monitor, nullptr);
  EXPECT_TRUE(first.expired());
}

TEST_F(FRXBrowserTest, ABatchIsResolvedWhenItsLastServiceArrives) {
  std::vector<std::shared_ptr<FakeNetService>> handles;
  for (const char* name : {"A-1/A", "B-1/B", "C-1/C"}) {
    handles.push_back(std::make_shared<FakeNetService>(name));
  }
  dnssd.find(handles[0], true);
  dnssd.find(handles[1], true);
  EXPECT_TRUE(handles[0]->resolutions().empty());
  EXPECT_TRUE(handles[1]->resolutions().empty());
  dnssd.find(handles[2], false);
  for (const auto& handle : handles) {
    EXPECT_EQ(handle->resolutions(), std::vector<milliseconds>{milliseconds(15000)}) << handle->name();
  }
}

TEST_F(FRXBrowserTest, AServiceReportedTwiceIsResolvedTwiceAndKnownOnce) {
  const auto handle = std::make_shared<FakeNetService>("A-1/A");
  dnssd.find(handle);
  dnssd.find(handle);
  EXPECT_EQ(handle->resolutions().size(), 2U);
  handle->resolve("a.local.", 1);
  handle->resolve("a.local.", 1);
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_EQ(listener->events(), Strings{"discovered A.LOCAL.:1"});
  dnssd.remove(handle);
  EXPECT_TRUE(browser->currentServices().empty()) << "the instance is gone, however often it was seen";
}

TEST_F(FRXBrowserTest, AddressResolutionTimeoutIsKeptButNotUsed) {
  EXPECT_EQ(browser->addressResolutionTimeout(), 15.0);
  browser->setAddressResolutionTimeout(-1);
  EXPECT_EQ(browser->addressResolutionTimeout(), 15.0);
  browser->setAddressResolutionTimeout(30);
  EXPECT_EQ(browser->addressResolutionTimeout(), 30.0);
  const auto handle = std::make_shared<FakeNetService>("A-1/A");
  dnssd.find(handle);
  EXPECT_EQ(handle->resolutions(), std::vector<milliseconds>{milliseconds(15000)});
}

TEST_F(FRXBrowserTest, EmptyHandlesAndRecordsAreIgnored) {
  browser->netServiceBrowserDidFindService(nullptr, false);
  browser->netServiceBrowserDidRemoveService(nullptr, false);
  browser->netServiceDidResolveAddress(nullptr);
  browser->netServiceDidUpdateTXTRecordData(nullptr, "");
  browser->monitorService(nullptr);
  browser->reconfirmFRXService(nullptr);
  settle();
  EXPECT_TRUE(browser->currentServices().empty());
  EXPECT_TRUE(listener->events().empty());
}

// Resolution

TEST_F(FRXBrowserTest, AResolvedPeerBecomesKnownMonitoredAndReported) {
  const LogRecording log;
  const auto handle = announce("abcd-1=/peer mac", "Peer-Mac.local.", 16654);
  const auto peers = browser->currentServices();
  ASSERT_EQ(peers.size(), 1U);
  EXPECT_EQ(peers[0]->serviceId(), "PEER-MAC.LOCAL.:16654");
  EXPECT_EQ(peers[0]->name(), "ABCD-1=/PEER MAC");
  EXPECT_FALSE(peers[0]->isAvailable());
  EXPECT_TRUE(handle->isMonitored());
  EXPECT_FALSE(handle->isResolving());
  EXPECT_TRUE(monitor->monitoredServices().contains("PEER-MAC.LOCAL.:16654"));
  EXPECT_EQ(listener->events(), Strings{"discovered PEER-MAC.LOCAL.:16654"});
  EXPECT_TRUE(connector->calls.empty());
  EXPECT_TRUE(log->has(LogLevel::Verbose, "Notifying service discovered: PEER-MAC.LOCAL.:16654"));
}

TEST_F(FRXBrowserTest, AHandleWithoutHostNameIsLeftAlone) {
  const auto handle = std::make_shared<FakeNetService>("A-1/A");
  dnssd.find(handle);
  handle->resolve(std::nullopt, 16654);
  EXPECT_TRUE(browser->currentServices().empty());
  EXPECT_EQ(handle->stopCount(), 0);
  EXPECT_FALSE(handle->isMonitored());
  handle->resolve("a.local.", 16654);
  EXPECT_EQ(browser->currentServices().size(), 1U);
}

TEST_F(FRXBrowserTest, AFailedResolutionIsNotRetried) {
  const auto handle = std::make_shared<FakeNetService>("A-1/A");
  dnssd.find(handle);
  handle->failToResolve();
  clock.advance(std::chrono::minutes(5), loop);
  EXPECT_EQ(handle->resolutions().size(), 1U);
  EXPECT_TRUE(browser->currentServices().empty());
}

TEST_F(FRXBrowserTest, AUWPPeerIsConnectedAtOnceAndNeitherMonitoredNorReported) {
  const auto handle = announce("Zune-1=/BOX", "box.local.", 16654);
  EXPECT_EQ(connector->calls, Strings{"connect BOX.LOCAL.:16654"});
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_FALSE(monitor->isMonitoring());
  EXPECT_TRUE(listener->events().empty());
  handle->resolve("box.local.", 16654);
  EXPECT_EQ(connector->calls.size(), 2U) << "known or not, it is connected";
}

TEST_F(FRXBrowserTest, WithoutAConnectorPeersAreKnownAllTheSame) {
  PeerConnector::setRegistered(nullptr);
  announce("ZUNE-1=/BOX", "box.local.", 16654);
  EXPECT_EQ(browser->currentServices().size(), 1U);
}

TEST_F(FRXBrowserTest, TwoNamesAtOneAddressAreOnePeerUnderBothNames) {
  announce("A-1/A", "a.local.", 16654);
  announce("A-2/A", "A.local.", 16654);
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_EQ(browser->idForServiceName("a-1/a"), "A.LOCAL.:16654");
  EXPECT_EQ(browser->idForServiceName("A-2/A"), "A.LOCAL.:16654");
  EXPECT_EQ(listener->events().size(), 1U);
}

TEST_F(FRXBrowserTest, ARestartedPeerOnAnotherPortReplacesItsFormerAddress) {
  const auto handle = announce("A-1/A", "a.local.", 1000);
  handle->resolve("a.local.", 2000);
  EXPECT_EQ(listener->events(),
            (Strings{"discovered A.LOCAL.:1000", "removed A.LOCAL.:1000", "discovered A.LOCAL.:2000"}));
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_EQ(browser->idForServiceName("A-1/A"), "A.LOCAL.:2000");
  EXPECT_FALSE(monitor->monitoredServices().contains("A.LOCAL.:1000"));
}

TEST_F(FRXBrowserTest, ImpossibleAnnouncementsAreDropped) {
  const LogRecording log;
  announce("A-1/A", "evil host.local.", 16654);
  announce("B-1/B", "evil/../path.local.", 16654);
  announce("C-1/C", "line\nbreak.local.", 16654);
  announce("D-1/D", std::string(300, 'x'), 16654);
  announce("E-1/E", "e.local.", 0);
  announce("F-1\x01/F", "f.local.", 16654);
  EXPECT_TRUE(browser->currentServices().empty());
  EXPECT_TRUE(listener->events().empty());
  EXPECT_FALSE(monitor->isMonitoring());
  EXPECT_EQ(browser->idForServiceName("E-1/E"), std::nullopt);
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "E.LOCAL.:0"));
}

// This instance

TEST_F(FRXBrowserTest, TheOwnAnnouncementIsNoPeerAndStartsASession) {
  const LogRecording log;
  EXPECT_EQ(browser->serviceSessionId(), "");
  announce("0123abcd-XYZ/OTHER NAME", "me.local.", 16654);
  EXPECT_TRUE(browser->currentServices().empty());
  const std::string session = browser->serviceSessionId();
  EXPECT_EQ(session.size(), 36U);
  EXPECT_EQ(session.find_first_of("abcdef"), std::string::npos) << session;
  EXPECT_EQ(listener->events(), Strings{"started " + session});
  EXPECT_TRUE(log->has(LogLevel::Verbose, "Ignoring local FRX service: 0123abcd-XYZ/OTHER NAME"));
  const auto own = browser->localFRXService();
  EXPECT_EQ(own->serviceId(), "ME.LOCAL.:16654");
  EXPECT_EQ(own->name(), "0123ABCD-XYZ/OTHER NAME");
}

TEST_F(FRXBrowserTest, WithoutAListenerForItTheSessionIsNotRenewed) {
  class Deaf final : public FRXBrowserDelegate {};
  const auto deaf = std::make_shared<Deaf>();
  browser->setDelegate(deaf);
  browser->setServiceSessionId("KEPT");
  announce(ownServerId, "me.local.", 16654);
  EXPECT_EQ(browser->serviceSessionId(), "KEPT");
  EXPECT_EQ(browser->localFRXService()->serviceId(), "ME.LOCAL.:16654");
}

TEST_F(FRXBrowserTest, RemovalOfTheOwnAnnouncementEndsTheSessionAndKeepsTheRecord) {
  const auto handle = announce(ownServerId, "me.local.", 16654);
  const std::string session = browser->serviceSessionId();
  dnssd.remove(handle);
  EXPECT_EQ(listener->events(), (Strings{"started " + session, "ended " + session}));
  EXPECT_EQ(browser->localFRXService()->serviceId(), "ME.LOCAL.:16654");
  announce(ownServerId, "me.local.", 16654);
  EXPECT_NE(browser->serviceSessionId(), session) << "a new appearance is a new session";
}

TEST_F(FRXBrowserTest, UntilItIsSeenTheOwnRecordComesFromTheServer) {
  const auto own = browser->localFRXService();
  ASSERT_NE(own, nullptr);
  EXPECT_EQ(own->hostName(), "OWN MACHINE.LOCAL");
  EXPECT_EQ(own->port(), 16654);
  EXPECT_EQ(own->name(), ownServerId);
}

TEST_F(FRXBrowserTest, ASetLocalRecordIsReadByNothing) {
  browser->setLocalFRXService(record("elsewhere.local.", 1, "X-1/X"));
  EXPECT_EQ(browser->localFRXService()->hostName(), "OWN MACHINE.LOCAL");
}

TEST_F(FRXBrowserTest, StopForgetsPeersAndTheOwnAnnouncementSilently) {
  announce(ownServerId, "me.local.", 16654);
  const auto handle = announce("A-1/A", "a.local.", 16654);
  const auto found = std::make_shared<FakeNetService>("B-1/B");
  dnssd.find(found);
  const auto before = listener->events();
  browser->stopBrowsingForServices();
  EXPECT_EQ(listener->events(), before);
  EXPECT_TRUE(browser->currentServices().empty());
  EXPECT_EQ(browser->localFRXService()->hostName(), "OWN MACHINE.LOCAL");
  EXPECT_EQ(browser->idForServiceName("A-1/A"), "A.LOCAL.:16654") << "names are kept";
  EXPECT_TRUE(monitor->monitoredServices().contains("A.LOCAL.:16654")) << "the monitor goes on";
  EXPECT_FALSE(handle->isMonitored());
  found->resolve("b.local.", 16654);
  EXPECT_TRUE(browser->currentServices().empty()) << "a late resolution is not reported any more";
}

// Looking peers up

TEST_F(FRXBrowserTest, ServicesAreFoundByKeyInAnyCaseAndByName) {
  announce("ABCD-1=/peer", "peer-mac.local", 16654);
  const auto peer = browser->currentServices().at(0);
  EXPECT_EQ(browser->serviceWithId("peer-mac.local:16654"), peer);
  EXPECT_EQ(browser->serviceWithId("PEER-MAC.LOCAL:16654"), peer);
  EXPECT_EQ(browser->serviceWithId("abcd-1=/PEER"), peer);
  EXPECT_EQ(browser->serviceWithId(""), nullptr);
  EXPECT_EQ(browser->serviceWithId("nobody"), nullptr);
  EXPECT_EQ(browser->idForServiceName(""), std::nullopt);
  EXPECT_EQ(browser->idForServiceName("nobody"), std::nullopt);
  EXPECT_EQ(browser->idForServiceName("abcd-1=/peer"), "PEER-MAC.LOCAL:16654");
}

// Removal

TEST_F(FRXBrowserTest, AWithdrawnPeerIsReportedWhileStillKnownAndThenForgotten) {
  const LogRecording log;
  const auto handle = announce("A-1/A", "a.local.", 16654);
  bool wasKnown = false;
  listener->onRemoved = [&](const FRXNetService& service) {
    wasKnown = browser->serviceWithId(service.serviceId()) != nullptr;
  };
  dnssd.remove(handle);
  EXPECT_TRUE(wasKnown);
  EXPECT_EQ(listener->count("removed A.LOCAL.:16654"), 1U);
  EXPECT_TRUE(browser->currentServices().empty());
  EXPECT_FALSE(monitor->isMonitoring());
  EXPECT_FALSE(handle->isMonitored());
  EXPECT_EQ(browser->idForServiceName("A-1/A"), "A.LOCAL.:16654") << "the name is kept";
  EXPECT_TRUE(log->has(LogLevel::Verbose, "FRX service removed: A.LOCAL.:16654"));
  EXPECT_TRUE(log->has(LogLevel::Verbose, "Notifying service lost: A.LOCAL.:16654"));
}

TEST_F(FRXBrowserTest, RemovalIsMatchedByNameNotByHandle) {
  announce("A-1/A", "a.local.", 16654);
  dnssd.remove(std::make_shared<FakeNetService>("A-1/A"));
  EXPECT_TRUE(browser->currentServices().empty());
}

TEST_F(FRXBrowserTest, OneOfTwoAnnouncementsOfAnAddressKeepsThePeer) {
  const auto first = announce("A-1/A", "a.local.", 16654);
  const auto second = announce("A-2/A", "a.local.", 16654);
  dnssd.remove(first);
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_EQ(listener->count("removed A.LOCAL.:16654"), 0U);
  dnssd.remove(second);
  EXPECT_TRUE(browser->currentServices().empty());
  EXPECT_EQ(listener->count("removed A.LOCAL.:16654"), 1U);
}

TEST_F(FRXBrowserTest, RemovalOfWhatWasNeverResolvedDoesNothing) {
  const auto found = std::make_shared<FakeNetService>("A-1/A");
  dnssd.find(found);
  dnssd.remove(found);
  dnssd.remove(std::make_shared<FakeNetService>("B-1/B"));
  EXPECT_TRUE(listener->events().empty());
}

TEST_F(FRXBrowserTest, APeerThatComesBackIsReportedAgain) {
  const auto handle = announce("A-1/A", "a.local.", 16654);
  dnssd.remove(handle);
  announce("A-1/A", "a.local.", 16654);
  EXPECT_EQ(listener->count("discovered A.LOCAL.:16654"), 2U);
}

// Listener

TEST_F(FRXBrowserTest, OnlyImplementedOperationsAreCalledAndAGoneListenerIsHarmless) {
  class RemovalsOnly final : public FRXBrowserDelegate {
   public:
    void remoteFRXServiceRemoved(const std::shared_ptr<FRXNetService>&) override { ++removals; }
    int removals = 0;
  };
  auto partial = std::make_shared<RemovalsOnly>();
  browser->setDelegate(partial);
  EXPECT_EQ(browser->delegate(), partial);
  dnssd.remove(announce("A-1/A", "a.local.", 1));
  EXPECT_EQ(partial->removals, 1);
  partial.reset();
  EXPECT_EQ(browser->delegate(), nullptr);
  dnssd.remove(announce("B-1/B", "b.local.", 1));
  browser->setDelegate(nullptr);
  dnssd.remove(announce("C-1/C", "c.local.", 1));
  EXPECT_TRUE(browser->currentServices().empty());
}

TEST(FRXBrowserRespondingSelectorsTest, FlagsSayWhatTheListenersClassOverrides) {
  class Two final : public FRXBrowserDelegate {
   public:
    void localFRXServiceEnded(const std::string&) override {}
    void remoteFRXServiceBecameUnresponsive(const std::shared_ptr<FRXNetService>&) override {}
  };
  constexpr auto flags = FRXBrowserRespondingSelectors::of<Two>();
  EXPECT_EQ(flags.localFRXServiceStarted, 0U);
  EXPECT_EQ(flags.localFRXServiceEnded, 1U);
  EXPECT_EQ(flags.remoteFRXServiceDiscovered, 0U);
  EXPECT_EQ(flags.remoteFRXServiceRemoved, 0U);
  EXPECT_EQ(flags.remoteFRXServiceBecameResponsive, 0U);
  EXPECT_EQ(flags.remoteFRXServiceBecameUnresponsive, 1U);
}

TEST_F(FRXBrowserTest, AThrowingListenerDoesNotStopDiscovery) {
  class Thrower final : public FRXBrowserDelegate {
   public:
    void remoteFRXServiceDiscovered(const std::shared_ptr<FRXNetService>&) override {
      throw std::runtime_error("host bug");
    }
    void localFRXServiceStarted(const std::string&) override { throw 1; }
  };
  const LogRecording log;
  const auto thrower = std::make_shared<Thrower>();
  browser->setDelegate(thrower);
  const auto handle = announce("A-1/A", "a.local.", 1);
  announce(ownServerId, "me.local.", 1);
  EXPECT_FALSE(handle->isResolving()) << "the resolution was still ended";
  EXPECT_EQ(browser->currentServices().size(), 1U);
  EXPECT_TRUE(log->mentions(LogLevel::Error, "host bug"));
}

// TXT records

TEST_F(FRXBrowserTest, ATXTUpdatePostsTheRejoinedNotificationWithTheNameAsAnnounced) {
  const LogRecording log;
  std::vector<LocalNotification> posted;
  const auto token = notifications.addObserver(FRXServiceRejoinedNetworkNotification, browser.get(),
                                               [&](const LocalNotification& n) { posted.push_back(n); });
  const auto handle = announce("abcd-1=/peer", "peer.local.", 16654);
  handle->updateTXT("\tApp=Alpha");
  ASSERT_EQ(posted.size(), 1U);
  EXPECT_EQ(posted[0].name, "NotifFrxServiceRejoinedNetwork");
  EXPECT_EQ(posted[0].userInfo, (FRXDictionary{{"frxId", "abcd-1=/peer"}}));
  EXPECT_TRUE(
      log->has(LogLevel::Debug, "Received DNS TXT record update from service abcd-1=/peer: {App = Alpha}"));
}

TEST_F(FRXBrowserTest, ATXTRecordOfAnyContentStillPostsTheNotification) {
  int posted = 0;
  const auto token = notifications.addObserver(FRXServiceRejoinedNetworkNotification, nullptr,
                                               [&](const LocalNotification&) { ++posted; });
  const auto handle = announce("A-1/A", "a.local.", 16654);
  handle->updateTXT("\x05k=\xFF\xFE!");
  handle->updateTXT("");
  handle->updateTXT("\xFFtruncated");
  EXPECT_EQ(posted, 3);
}

TEST_F(FRXBrowserTest, TXTValuesThatAreNotUTF8AreLeftOut) {
  const std::string rdata = std::string("\5a=one") + "\4b=\xC3(" + "\4c=\xC3\xA9" + "\2d=";
  EXPECT_EQ(FRXBrowser::parseTxtRecordValues(rdata),
            (TXTDictionary{{"a", "one"}, {"c", "\xC3\xA9"}, {"d", ""}}));
  EXPECT_TRUE(FRXBrowser::parseTxtRecordValues("").empty());
}

}  // namespace
}  // namespace ferrox::test
