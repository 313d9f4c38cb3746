#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/ServiceSession.h"
#include "Tests/Platform/DNSSD/SessionTest.h"

namespace ferrox::dnssd {
namespace {

using namespace std::string_literals;
using test::added;
using test::eth0IPv4;
using test::eth0IPv6;
using test::removed;
using testing::ElementsAre;
using testing::IsEmpty;

class ServiceSessionTest : public test::SessionTest {
 protected:
  static constexpr const char* srv = "PEER._test._tcp.local/33";
  static constexpr const char* txt = "PEER._test._tcp.local/16";
  static std::string location(char port, const std::string& host = "mac") {
    return "\0\0\0\0\0"s + port + static_cast<char>(host.size()) + host + "\5local\0"s;
  }

  void follow() {
    service_ = std::make_shared<ServiceSession>(
        context_, ServiceIdentity{"PEER", "_test._tcp", "local"},
        ServiceSession::Sinks{
            [this](const std::string& host, std::uint16_t port) { note(host + ":" + std::to_string(port)); },
            [this](const std::string& rdata) { note("txt " + rdata); }});
    begin(service_);
  }
  void locate() {
    follow();
    onThread([this] { service_->locate(); });
  }

  std::shared_ptr<ServiceSession> service_;
};

TEST_F(ServiceSessionTest, ALocationSeenInSeveralPlacesIsReportedOnce) {
  locate();
  report(srv, added(eth0IPv4, location(7)));
  report(srv, added(eth0IPv6, location(7)));
  EXPECT_THAT(events(), ElementsAre("mac.local.:7"));
}

TEST_F(ServiceSessionTest, ARestartOnAnotherPortIsReportedAndTheOldRecordsEndIsNot) {
  locate();
  report(srv, added(eth0IPv4, location(7)));
  report(srv, added(eth0IPv4, location(8)));
  report(srv, removed(eth0IPv4, location(7)));
  EXPECT_THAT(events(), ElementsAre("mac.local.:7", "mac.local.:8"));
}

TEST_F(ServiceSessionTest, WhenTheNewestLocationEndsTheRemainingOneCounts) {
  locate();
  report(srv, added(eth0IPv4, location(7)));
  report(srv, added(eth0IPv4, location(8)));
  report(srv, removed(eth0IPv4, location(8)));
  EXPECT_THAT(events(), ElementsAre("mac.local.:7", "mac.local.:8", "mac.local.:7"));
}

TEST_F(ServiceSessionTest, LocationsThatNobodyCanUseAreIgnored) {
  locate();
  report(srv, added(eth0IPv4, location(0)));
  report(srv, added(eth0IPv4, location(7, "a/b@c")));
  report(srv, added(eth0IPv4, "rubbish"));
  report(srv, added(eth0IPv4, ""));
  EXPECT_THAT(events(), IsEmpty());
  report(srv, added(eth0IPv4, location(9)));
  EXPECT_THAT(events(), ElementsAre("mac.local.:9"));
}

TEST_F(ServiceSessionTest, LocatingAgainReportsWhatIsKnown) {
  locate();
  report(srv, added(eth0IPv4, location(7)));
  onThread([this] { service_->locate(); });
  EXPECT_THAT(events(), ElementsAre("mac.local.:7", "mac.local.:7"));
}

TEST_F(ServiceSessionTest, ARewrittenTXTIsReportedAndTheEndOfTheOldOneIsNot) {
  follow();
  onThread([this] { service_->watchTXT(); });
  report(txt, added(eth0IPv4, "one"));
  report(txt, added(eth0IPv6, "one"));
  report(txt, added(eth0IPv4, "two"));
  report(txt, removed(eth0IPv4, "one"));
  ASSERT_TRUE(waitForEvents(2));
  EXPECT_EQ(events().front(), "txt one");
  EXPECT_EQ(events().back(), "txt two");
}

TEST_F(ServiceSessionTest, RecordsOfAPlaceAreKnownForTheirBurial) {
  locate();
  report(srv, added(eth0IPv4, location(7)));
  report(srv, added(eth0IPv6, location(8)));
  onThread([this] {
    EXPECT_EQ(service_->recordsAt(eth0IPv4),
              (std::vector<std::pair<std::uint16_t, std::string>>{{recordTypeSRV, location(7)}}));
    EXPECT_EQ(service_->interfacesOfHost("mac.local"), (std::vector<int>{2, 2}));
    EXPECT_TRUE(service_->interfacesOfHost("other.local").empty());
  });
}

}  // namespace
}  // namespace ferrox::dnssd
