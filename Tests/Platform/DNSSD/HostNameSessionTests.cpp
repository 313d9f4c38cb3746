#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Platform/DNSSD/HostNameSession.h"
#include "Tests/Platform/DNSSD/SessionTest.h"

namespace ferrox::dnssd {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using test::added;
using test::eth0IPv4;
using test::loIPv4;
using test::removed;
using testing::ElementsAre;
using testing::IsEmpty;

class HostNameSessionTest : public test::SessionTest {
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
