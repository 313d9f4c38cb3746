#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>

#include "Platform/DNSSD/BrowseSession.h"
#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/HostNameSession.h"
#include "Platform/DNSSD/PublishSession.h"
#include "Platform/DNSSD/ServiceSession.h"
#include "Tests/Platform/DNSSD/FakeBackEnd.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::dnssd {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Place eth0IPv4{2, false};
constexpr Place eth0IPv6{2, true};
constexpr Place loIPv4{1, false};

LookupReport added(const Place& place, std::string what) {
  return {LookupEvent::Added, place, std::move(what)};
}
LookupReport removed(const Place& place, std::string what) {
  return {LookupEvent::Removed, place, std::move(what)};
}

/// Runs the session under test on a real discovery thread over a stack that the test plays.
class SessionTest : public testing::Test {
 protected:
  ~SessionTest() override {
    thread_->finish(
        [this] {
          if (session_) session_->close();
        },
        5s);
  }

  void onThread(const std::function<void()>& action) {
    std::promise<void> done;
    thread_->post([&] {
      action();
      done.set_value();
    });
    ASSERT_EQ(done.get_future().wait_for(5s), std::future_status::ready);
  }
  void begin(std::shared_ptr<Session> session) {
    session_ = std::move(session);
    onThread([this] {
      context_.canLookUp = context_.canPublish = true;
      session_->lookupsStarted();
      session_->publishingStarted();
    });
  }
  void report(const std::string& what, const LookupReport& report) {
    onThread([&] { backEnd_.report(what, report); });
  }
  void loseStack() {
    onThread([this] {
      context_.canLookUp = context_.canPublish = false;
      session_->publishingStopped();
      session_->lookupsStopped();
    });
  }
  void regainStack() { begin(session_); }

  void note(const std::string& event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(event);
  }
  std::vector<std::string> events() {
    const std::lock_guard lock(mutex_);
    return events_;
  }
  bool waitForEvents(std::size_t count) {
    return ferrox::test::waitFor([&] { return events().size() >= count; });
  }
  /// Longer than a batch takes, to see that nothing comes.
  void settle() { std::this_thread::sleep_for(60ms); }

  std::shared_ptr<DiscoveryThread> thread_ = DiscoveryThread::make();
  test::FakeBackEnd backEnd_;
  DiscoveryContext context_{*thread_,
                            backEnd_,
                            {{{.index = 2,
                               .name = "eth0",
                               .up = true,
                               .loopback = false,
                               .multicast = true,
                               .hasIPv4 = true,
                               .hasIPv6 = true,
                               .hasDefaultRoute = true}},
                             {"eth0", "lo"},
                             true}};
  std::shared_ptr<Session> session_;

 private:
  std::mutex mutex_;
  std::vector<std::string> events_;
};

class BrowseSessionTest : public SessionTest {
 protected:
  void browse() {
    begin(std::make_shared<BrowseSession>(context_, "_test._tcp", "local",
                                          [this](const BrowseChanges& changes) {
                                            std::string text;
                                            for (const auto& name : changes.removed) text += "-" + name;
                                            for (const auto& name : changes.added) text += "+" + name;
                                            note(text);
                                          }));
  }
};

TEST_F(BrowseSessionTest, AnInstanceSeenInTwoPlacesIsAddedOnceAndRemovedWithTheLast) {
  browse();
  report("_test._tcp", added(eth0IPv4, "A"));
  report("_test._tcp", added(eth0IPv6, "A"));
  ASSERT_TRUE(waitForEvents(1));
  report("_test._tcp", removed(eth0IPv4, "A"));
  settle();
  EXPECT_THAT(events(), ElementsAre("+A"));
  report("_test._tcp", removed(eth0IPv6, "A"));
  ASSERT_TRUE(waitForEvents(2));
  EXPECT_THAT(events(), ElementsAre("+A", "-A"));
}

TEST_F(BrowseSessionTest, WhatArrivesTogetherIsOneBatch) {
  browse();
  onThread([this] {
    for (const char* name : {"A", "B", "C"}) backEnd_.report("_test._tcp", added(eth0IPv4, name));
  });
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_THAT(events(), ElementsAre("+A+B+C"));
}

TEST_F(BrowseSessionTest, WhatComesAndGoesWithinABatchIsNotReported) {
  browse();
  onThread([this] {
    backEnd_.report("_test._tcp", added(eth0IPv4, "A"));
    backEnd_.report("_test._tcp", removed(eth0IPv4, "A"));
  });
  settle();
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(BrowseSessionTest, ANameThatIsNoTextIsIgnored) {
  browse();
  report("_test._tcp", added(eth0IPv4, "A\xFF"));
  report("_test._tcp", added(eth0IPv4, "\xC3\x9C"));
  ASSERT_TRUE(waitForEvents(1));
  settle();
  EXPECT_THAT(events(), ElementsAre("+\xC3\x9C"));
}

TEST_F(BrowseSessionTest, RemovalOfTheUnknownDoesNothing) {
  browse();
  report("_test._tcp", removed(eth0IPv4, "A"));
  settle();
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(BrowseSessionTest, InterfacesThatAreNotInUseDoNotCountUntilTheyAre) {
  browse();
  report("_test._tcp", added(loIPv4, "A"));
  settle();
  EXPECT_THAT(events(), IsEmpty());
  onThread([this] {
    context_.interfaces.inUse[0].index = 1;
    session_->interfacesChanged();
  });
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_THAT(events(), ElementsAre("+A"));
}

TEST_F(BrowseSessionTest, AfterALossOnlyTheDifferenceIsReported) {
  browse();
  report("_test._tcp", added(eth0IPv4, "STAYS"));
  report("_test._tcp", added(eth0IPv4, "GOES"));
  ASSERT_TRUE(ferrox::test::waitFor([&] { return !events().empty(); }));
  const auto before = events().size();
  loseStack();
  settle();
  EXPECT_EQ(events().size(), before);
  regainStack();
  report("_test._tcp", added(eth0IPv4, "STAYS"));
  report("_test._tcp", {LookupEvent::AllForNow, {}, {}});
  ASSERT_TRUE(waitForEvents(before + 1));
  EXPECT_EQ(events().back(), "-GOES");
}

TEST_F(BrowseSessionTest, AFailedLookupBeginsAnew) {
  browse();
  report("_test._tcp", {LookupEvent::Failed, {}, {}});
  EXPECT_TRUE(ferrox::test::waitFor([&] {
    bool open = false;
    onThread([&] { open = backEnd_.isLookedFor("_test._tcp"); });
    return open;
  }));
}

TEST_F(BrowseSessionTest, AClosedSessionIsSilent) {
  browse();
  onThread([this] {
    backEnd_.report("_test._tcp", added(eth0IPv4, "A"));
    session_->close();
    EXPECT_FALSE(backEnd_.isLookedFor("_test._tcp"));
  });
  settle();
  EXPECT_THAT(events(), IsEmpty());
}

class ServiceSessionTest : public SessionTest {
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

class PublishSessionTest : public SessionTest {
 protected:
  void publish(const std::string& name) {
    publication_ = std::make_shared<PublishSession>(
        context_, ServiceRecords{name, "_test._tcp", "local", 1, "txt"},
        PublishSession::Sinks{[this](const std::string& final) { note("published " + final); },
                              [this](const FRXError&) { note("failed"); }});
    begin(publication_);
  }
  void groupEvent(GroupEvent event) {
    onThread([&] {
      ASSERT_NE(backEnd_.group(), nullptr);
      const auto handler = backEnd_.group()->handler;  // the group may go inside the call
      handler(event);
    });
  }
  std::string publishedAs() {
    std::string name;
    onThread([&] {
      if (backEnd_.group() != nullptr) name = backEnd_.group()->records.name;
    });
    return name;
  }

  ferrox::test::LogRecording log_;
  std::shared_ptr<PublishSession> publication_;
};

TEST_F(PublishSessionTest, TheNameIsToldOnceItIsEstablished) {
  publish("NAME");
  EXPECT_THAT(events(), IsEmpty());
  groupEvent(GroupEvent::Established);
  EXPECT_THAT(events(), ElementsAre("published NAME"));
}

TEST_F(PublishSessionTest, AConflictOnTheNetworkLeadsToAnotherName) {
  publish("NAME");
  groupEvent(GroupEvent::Collision);
  ASSERT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME #2"; }));
  groupEvent(GroupEvent::Established);
  EXPECT_THAT(events(), ElementsAre("published NAME #2"));
  EXPECT_TRUE(log_->has(LogLevel::Warn, "The service name NAME is taken; trying NAME #2"));
}

TEST_F(PublishSessionTest, AConflictWithinTheStackDoesTheSame) {
  backEnd_.nextPublishError = PublishError::Collision;
  publish("NAME");
  EXPECT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME #2"; }));
}

TEST_F(PublishSessionTest, ALaterConflictIsToldAgain) {
  publish("NAME");
  groupEvent(GroupEvent::Established);
  groupEvent(GroupEvent::Collision);
  ASSERT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME #2"; }));
  groupEvent(GroupEvent::Established);
  EXPECT_THAT(events(), ElementsAre("published NAME", "published NAME #2"));
}

TEST_F(PublishSessionTest, AnImpossibleRequestFailsForGood) {
  backEnd_.nextPublishError = PublishError::Invalid;
  publish("NAME");
  EXPECT_THAT(events(), ElementsAre("failed"));
  EXPECT_EQ(publishedAs(), "");
}

TEST_F(PublishSessionTest, ATemporaryFailureIsRetried) {
  backEnd_.nextPublishError = PublishError::Temporary;
  publish("NAME");
  EXPECT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME"; }));
  groupEvent(GroupEvent::Failed);
  EXPECT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME"; }));
}

TEST_F(PublishSessionTest, TheReturningStackGetsTheNewestTXTUnderTheNameThatWasWon) {
  publish("NAME");
  groupEvent(GroupEvent::Collision);
  ASSERT_TRUE(ferrox::test::waitFor([&] { return publishedAs() == "NAME #2"; }));
  groupEvent(GroupEvent::Established);
  loseStack();
  EXPECT_EQ(publishedAs(), "");
  onThread([this] { publication_->setTXT("newer"); });
  regainStack();
  EXPECT_EQ(publishedAs(), "NAME #2");
  onThread([this] { EXPECT_EQ(backEnd_.group()->records.txt, "newer"); });
  groupEvent(GroupEvent::Established);
  EXPECT_THAT(events(), ElementsAre("published NAME #2"));
}

TEST_F(PublishSessionTest, TXTIsRewrittenInPlaceOrElsePublishedAnew) {
  publish("NAME");
  onThread([this] {
    publication_->setTXT("two");
    EXPECT_THAT(backEnd_.group()->txtUpdates, ElementsAre("two"));
    backEnd_.acceptsTXT = false;
    publication_->setTXT("three");
    EXPECT_EQ(backEnd_.group()->records.txt, "three");
    EXPECT_EQ(backEnd_.openGroups(), 1U);
  });
}

class HostNameSessionTest : public SessionTest {
 protected:
  static constexpr const char* a = "mac.local/1";
  static constexpr const char* aaaa = "mac.local/28";

  HostNameSessionTest() {
    host_ = std::make_shared<HostNameSession>(context_, "mac.local", [] { return std::vector<int>{}; });
    begin(host_);
  }
  void ask(std::chrono::milliseconds timeout) {
    onThread([&] {
      host_->ask(timeout, [this](const std::vector<SocketAddress>& addresses) {
        std::string text = "=";
        for (const auto& address : addresses) text += address.hostText() + " ";
        note(text);
      });
    });
  }
  static std::string ipv6(const std::string& text) {
    const auto address = SocketAddress::fromText(text, 0);
    return std::string(reinterpret_cast<const char*>(address->native()) + 8, 16);
  }

  std::shared_ptr<HostNameSession> host_;
};

TEST_F(HostNameSessionTest, BothFamiliesAreAwaitedForAMomentAndThenKnownAtOnce) {
  ask(5s);
  report(a, added(eth0IPv4, "\x0A\0\0\x07"s));
  EXPECT_THAT(events(), IsEmpty());
  report(aaaa, added(eth0IPv4, ipv6("2001:db8::7")));
  ASSERT_TRUE(waitForEvents(1));
  ask(5s);
  ASSERT_TRUE(waitForEvents(2));
  EXPECT_THAT(events(), ElementsAre("=2001:db8::7 10.0.0.7 ", "=2001:db8::7 10.0.0.7 "));
}

TEST_F(HostNameSessionTest, NoAnswerIsAnEmptyListAfterTheTimeout) {
  ask(30ms);
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_THAT(events(), ElementsAre("="));
}

TEST_F(HostNameSessionTest, WhoWaitsAtTheEndIsAnsweredWithNothing) {
  ask(1h);
  onThread([this] { host_->close(); });
  EXPECT_THAT(events(), ElementsAre("="));
}

TEST_F(HostNameSessionTest, AddressesThatNoPeerMayAnnounceAreIgnored) {
  ask(200ms);
  for (const auto& bad : {"\x7F\0\0\1"s, "\0\0\0\0"s, "\xE0\0\0\xFB"s, "\xFF\xFF\xFF\xFF"s, "abc"s, ""s}) {
    report(a, added(eth0IPv4, bad));
  }
  for (const char* bad : {"::1", "::", "ff02::fb", "::ffff:127.0.0.1"})
    report(aaaa, added(eth0IPv4, ipv6(bad)));
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_THAT(events(), ElementsAre("="));
}

TEST_F(HostNameSessionTest, LoopbackAddressesAreFineOverLoopback) {
  onThread([this] {
    context_.interfaces.inUse[0].index = 1;
    context_.interfaces.inUse[0].loopback = true;
  });
  ask(5s);
  report(a, added(loIPv4, "\x7F\0\0\1"s));
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_THAT(events(), ElementsAre("=127.0.0.1 "));
}

TEST_F(HostNameSessionTest, AnAddressThatWasWithdrawnIsForgotten) {
  ask(5s);
  report(a, added(eth0IPv4, "\x0A\0\0\x07"s));
  report(a, added(eth0IPv4, "\x0A\0\0\x08"s));
  report(a, removed(eth0IPv4, "\x0A\0\0\x07"s));
  ASSERT_TRUE(waitForEvents(1));
  EXPECT_THAT(events(), ElementsAre("=10.0.0.8 "));
}

}  // namespace
}  // namespace ferrox::dnssd
