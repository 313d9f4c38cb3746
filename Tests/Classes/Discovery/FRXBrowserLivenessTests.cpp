// What the browser does with the monitor's verdicts, and how it has announcements verified.
#include "Tests/Classes/Discovery/BrowserFixture.h"

namespace ferrox::test {
namespace {

using Result = FRXServiceCheckResult;

class FRXBrowserLivenessTest : public BrowserFixture {
 protected:
  static constexpr const char* peerId = "PEER.LOCAL.:16654";

  void SetUp() override {
    BrowserFixture::SetUp();
    startBrowsing();
  }

  void becomeResponsive() {
    checker->set(peerId, Result::Responded);
    nextMonitorPass(peerId);
  }
  void becomeUnresponsive() {
    checker->set(peerId, Result::NoResponse);
    nextMonitorPass(peerId);
    nextMonitorPass(peerId);
  }
};

TEST_F(FRXBrowserLivenessTest, AResponsivePeerIsConnectedAvailableAndReported) {
  announce("ABCD-1/PEER", "peer.local.", 16654);
  EXPECT_TRUE(connector->calls.empty()) << "connected only when found responsive";
  becomeResponsive();
  EXPECT_EQ(connector->calls, Strings{std::string("connect ") + peerId});
  EXPECT_TRUE(browser->serviceWithId(peerId)->isAvailable());
  EXPECT_EQ(listener->events(),
            (Strings{std::string("discovered ") + peerId, std::string("responsive ") + peerId}));
}

TEST_F(FRXBrowserLivenessTest, AnUnresponsivePeerIsDisconnectedReconfirmedAndKept) {
  announce("ABCD-1/PEER", "peer.local.", 16654);
  becomeResponsive();
  becomeUnresponsive();
  EXPECT_EQ(connector->calls.back(), std::string("disconnect ") + peerId);
  ASSERT_NE(browser->serviceWithId(peerId), nullptr);
  EXPECT_FALSE(browser->serviceWithId(peerId)->isAvailable());
  EXPECT_EQ(listener->events().back(), std::string("unresponsive ") + peerId);
  ASSERT_EQ(dnssd.reconfirmations().size(), 1U);
  becomeResponsive();
  EXPECT_EQ(connector->calls.back(), std::string("connect ") + peerId);
  EXPECT_EQ(listener->count(std::string("responsive ") + peerId), 2U);
}

TEST_F(FRXBrowserLivenessTest, VerdictsFromAnotherThreadAreMovedToTheMainThread) {
  announce("ABCD-1/PEER", "peer.local.", 16654);
  becomeResponsive();
  for (const std::thread::id thread : listener->threads()) EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(FRXBrowserLivenessTest, AfterStopVerdictsStillReachTheConnectorButNoListener) {
  announce("ABCD-1/PEER", "peer.local.", 16654);
  browser->stopBrowsingForServices();
  becomeResponsive();
  EXPECT_EQ(connector->calls, Strings{std::string("connect ") + peerId});
  EXPECT_EQ(listener->count(std::string("responsive ") + peerId), 0U);
}

TEST_F(FRXBrowserLivenessTest, ARemovedPeerIsNotAvailable) {
  const auto handle = announce("ABCD-1/PEER", "peer.local.", 16654);
  becomeResponsive();
  const auto peer = browser->serviceWithId(peerId);
  dnssd.remove(handle);
  EXPECT_FALSE(peer->isAvailable());
}

TEST_F(FRXBrowserLivenessTest, NewPeersWaitForTheNextPassUnlessCheckedAtOnce) {
  EXPECT_FALSE(browser->checksNewServicesAtOnce());
  checker->set(peerId, Result::Responded);
  announce("ABCD-1/PEER", "peer.local.", 16654);
  clock.advance(FRXServiceMonitor::checkInterval - std::chrono::milliseconds(1), loop);
  EXPECT_EQ(checker->checks(peerId), 0);
  browser->setChecksNewServicesAtOnce(true);
  checker->set("OTHER.LOCAL.:1", Result::Responded);
  announce("EFGH-1/OTHER", "other.local.", 1);
  EXPECT_TRUE(eventually([&] { return listener->count("responsive OTHER.LOCAL.:1") == 1; }))
      << "without any time passing";
  EXPECT_EQ(checker->checks(peerId), 0);
}

TEST_F(FRXBrowserLivenessTest, AdoptedPeersAreCheckedAtOnceToo) {
  browser->setChecksNewServicesAtOnce(true);
  checker->set(peerId, Result::Responded);
  browser->monitorService(record("peer.local.", 16654, "ABCD-1/PEER"));
  EXPECT_TRUE(eventually([&] { return listener->count(std::string("responsive ") + peerId) == 1; }));
}

// Reconfirmation

TEST_F(FRXBrowserLivenessTest, ReconfirmationCoversNamesThatEndWithTheHostsFirstLabel) {
  announce("AAAA-1/PEER-MAC", "x.local.", 1);
  announce("BBBB-1/OTHER PEER-MAC", "y.local.", 1);
  announce("CCCC-1/peer-mac", "z.local.", 1);
  announce("DDDD-1/PEER-MAC 2", "w.local.", 1);
  browser->reconfirmFRXService(record("peer-mac.local", 16654, "Q-1/Q"));
  ASSERT_EQ(dnssd.reconfirmations().size(), 2U);
  EXPECT_EQ(dnssd.reconfirmations()[0].rdata.substr(1, 15), "AAAA-1/PEER-MAC");
  EXPECT_EQ(dnssd.reconfirmations()[1].rdata.substr(1, 21), "BBBB-1/OTHER PEER-MAC");
}

TEST_F(FRXBrowserLivenessTest, ReconfirmationCoversWhatResolvedToThePeersAddressWhateverItsName) {
  announce("AAAA-1/EDIT BAY 3", "bay-3.local.", 16654);
  announce("BBBB-1/EDIT BAY 4", "bay-3.local.", 16655);
  browser->reconfirmFRXService(record("bay-3.local.", 16654, "Q-1/Q"));
  ASSERT_EQ(dnssd.reconfirmations().size(), 1U);
  EXPECT_EQ(dnssd.reconfirmations()[0].rdata.substr(1, 17), "AAAA-1/EDIT BAY 3");
}

TEST_F(FRXBrowserLivenessTest, ARecordWithoutHostNameReconfirmsNothing) {
  announce("AAAA-1/PEER", "x.local.", 1);
  browser->reconfirmFRXService(std::make_shared<FRXNetService>(std::nullopt, 1, "Q-1/Q"));
  browser->reconfirmFRXService(record(".local", 2, "Q-1/Q"));
  EXPECT_TRUE(dnssd.reconfirmations().empty());
}

TEST_F(FRXBrowserLivenessTest, ThePointerRecordIsBuiltInWireForm) {
  browser->reconfirmDNSRecord("AB-1/C");
  ASSERT_EQ(dnssd.reconfirmations().size(), 1U);
  const FakeReconfirmation asked = dnssd.reconfirmations()[0];
  EXPECT_EQ(asked.flags, 0U);
  EXPECT_EQ(asked.interfaceIndex, 0U);
  EXPECT_EQ(asked.fullName, "_ferrox._tcp.local.");
  EXPECT_EQ(asked.recordType, 12);
  EXPECT_EQ(asked.recordClass, 1);
  EXPECT_EQ(asked.rdata, std::string("\6AB-1/C\7_ferrox\4_tcp\5local", 26) + '\0');
}

TEST_F(FRXBrowserLivenessTest, ReconfirmationRefusesNamesThatAreEmptyDottedOrTooLong) {
  const LogRecording log;
  const std::string longest(63, 'N');
  const std::string tooLong(64, 'N');
  browser->reconfirmDNSRecord(longest);
  EXPECT_EQ(dnssd.reconfirmations().size(), 1U);
  browser->reconfirmDNSRecord(tooLong);
  browser->reconfirmDNSRecord("A.B");
  browser->reconfirmDNSRecord("");
  EXPECT_EQ(dnssd.reconfirmations().size(), 1U);
  EXPECT_TRUE(log->has(LogLevel::Error, "Service name too long (64 character maximum): " + tooLong));
  EXPECT_TRUE(log->has(LogLevel::Error, "No or illegal service name provided: A.B"));
  EXPECT_TRUE(log->has(LogLevel::Error, "No or illegal service name provided: "));
}

TEST_F(FRXBrowserLivenessTest, AFailedReconfirmationIsLoggedAndChangesNothing) {
  const LogRecording log;
  announce("AAAA-1/PEER", "peer.local.", 16654);
  dnssd.setReconfirmResult(-65537);
  browser->reconfirmFRXService(browser->serviceWithId(peerId));
  EXPECT_TRUE(log->has(LogLevel::Warn, "Error reconfirming service AAAA-1/PEER: -65537"));
  EXPECT_EQ(browser->currentServices().size(), 1U);
}

}  // namespace
}  // namespace ferrox::test
