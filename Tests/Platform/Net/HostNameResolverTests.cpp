#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "Platform/Net/HostAlternatives.h"
#include "Platform/Net/HostNameResolver.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Tests/Support/FakeDNSSD.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

struct Answer {
  std::mutex mutex;
  std::condition_variable changed;
  int count = 0;
  std::vector<SocketAddress> addresses;
  std::optional<FRXError> error;
  std::thread::id thread;

  bool wait() {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, patience, [this] { return count > 0; });
  }
};

// Answers only when the test says so.
class LateDNSSD : public FakeDNSSD {
 public:
  using FakeDNSSD::FakeDNSSD;
  void resolveHostName(const std::string&, std::chrono::milliseconds,
                       std::function<void(std::vector<SocketAddress>)> completion) override {
    const std::lock_guard lock(mutex_);
    completion_ = std::move(completion);
  }
  void answer(std::vector<SocketAddress> addresses) {
    const std::lock_guard lock(mutex_);
    completion_(std::move(addresses));
  }

 private:
  std::mutex mutex_;
  std::function<void(std::vector<SocketAddress>)> completion_;
};

class HostNameResolverTests : public ::testing::Test {
 protected:
  static std::shared_ptr<Answer> resolve(HostNameResolver& resolver, const std::string& name,
                                         std::chrono::milliseconds timeout = 5s) {
    auto answer = std::make_shared<Answer>();
    resolver.resolve(name, 16654, timeout,
                     [answer](std::vector<SocketAddress> addresses, std::optional<FRXError> error) {
                       const std::lock_guard lock(answer->mutex);
                       ++answer->count;
                       answer->addresses = std::move(addresses);
                       answer->error = std::move(error);
                       answer->thread = std::this_thread::get_id();
                       answer->changed.notify_all();
                     });
    return answer;
  }
  std::shared_ptr<Answer> resolveAndWait(const std::string& name, std::chrono::milliseconds timeout = 5s) {
    auto answer = resolve(*resolver_, name, timeout);
    EXPECT_TRUE(answer->wait()) << name;
    return answer;
  }

  RunLoop loop_;
  FakeDNSSD discovery_{loop_};
  std::unique_ptr<HostNameResolver> resolver_ = HostNameResolver::make(discovery_);
};

TEST_F(HostNameResolverTests, LiteralsAnswerForThemselves) {
  for (const auto& [text, host] :
       {std::pair("10.1.2.3", "10.1.2.3"), std::pair("10.1.2.3.", "10.1.2.3"),
        std::pair("2001:DB8::1", "2001:db8::1"), std::pair("fe80::1%lo", "fe80::1%lo"),
        std::pair("FE80::1%LO", "fe80::1%lo"), std::pair("fe80::1%1", "fe80::1%lo")}) {
    const auto answer = resolveAndWait(text);
    ASSERT_EQ(answer->addresses.size(), 1u) << text;
    EXPECT_EQ(answer->addresses.front().hostText(), host);
    EXPECT_EQ(answer->addresses.front().port(), 16654);
    EXPECT_FALSE(answer->error);
  }
  EXPECT_TRUE(discovery_.hostNameLookups().empty());
}

TEST_F(HostNameResolverTests, NamesUnderLocalAreAskedOfDiscovery) {
  for (const char* name : {"mac.local", "mac.local.", "MAC.LOCAL."}) {
    discovery_.setAddresses(
        name, {*SocketAddress::fromText("fe80::1%lo", 0), *SocketAddress::fromText("fe80::2%lo", 0),
               *SocketAddress::fromText("10.0.0.1", 0)});
    const auto answer = resolveAndWait(name);
    ASSERT_EQ(answer->addresses.size(), 3u) << name;
    EXPECT_EQ(answer->addresses[0].hostText(), "fe80::1%lo");
    EXPECT_EQ(answer->addresses[1].hostText(), "10.0.0.1");
    EXPECT_EQ(answer->addresses[1].port(), 16654);
    EXPECT_EQ(answer->addresses[2].hostText(), "fe80::2%lo");
  }
  EXPECT_EQ(discovery_.hostNameLookups().size(), 3u);
}

TEST_F(HostNameResolverTests, NameThatDiscoveryDoesNotKnowIsNotFound) {
  const auto answer = resolveAndWait("nobody.local");
  ASSERT_TRUE(answer->error);
  EXPECT_EQ(answer->error->domain, HostNameResolverErrorDomain);
  EXPECT_EQ(answer->error->code, HostNameResolverErrorNotFound);
  EXPECT_TRUE(answer->addresses.empty());
}

TEST_F(HostNameResolverTests, OtherNamesAreAskedOfTheSystem) {
  const auto answer = resolveAndWait("localhost");
  ASSERT_FALSE(answer->error) << answer->error->localizedDescription;
  ASSERT_FALSE(answer->addresses.empty());
  EXPECT_TRUE(answer->addresses.front().isLoopback());
  EXPECT_EQ(answer->addresses.front().port(), 16654);
  EXPECT_TRUE(discovery_.hostNameLookups().empty());
}

TEST_F(HostNameResolverTests, UnusableNamesAreRefusedWithoutALookup) {
  for (const std::string& name :
       {std::string(), std::string("a b"), std::string("a\n.local"), std::string(254, 'a'),
        std::string("a..local"), std::string("a\0.local", 8)}) {
    const auto answer = resolveAndWait(name);
    ASSERT_TRUE(answer->error) << name;
    EXPECT_EQ(answer->error->code, HostNameResolverErrorUnusableName) << name;
  }
  EXPECT_TRUE(discovery_.hostNameLookups().empty());
}

TEST_F(HostNameResolverTests, CompletionIsNeverInsideTheCall) {
  for (const char* name : {"127.0.0.1", "", "nobody.local", "localhost"}) {
    EXPECT_NE(resolveAndWait(name)->thread, std::this_thread::get_id()) << name;
  }
}

TEST_F(HostNameResolverTests, SilenceEndsAtTheTimeoutAndALateAnswerIsDropped) {
  LateDNSSD late(loop_);
  const auto resolver = HostNameResolver::make(late);
  const auto begin = std::chrono::steady_clock::now();
  const auto answer = resolve(*resolver, "silent.local", 150ms);
  ASSERT_TRUE(answer->wait());
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 150ms);
  ASSERT_TRUE(answer->error);
  EXPECT_EQ(answer->error->code, HostNameResolverErrorTimedOut);
  late.answer({*SocketAddress::fromText("10.0.0.1", 0)});
  EXPECT_EQ(answer->count, 1);
  EXPECT_TRUE(answer->addresses.empty());
}

TEST_F(HostNameResolverTests, AnswerInTimeIsNotFollowedByATimeout) {
  LateDNSSD late(loop_);
  const auto resolver = HostNameResolver::make(late);
  const auto answer = resolve(*resolver, "peer.local", 50ms);
  late.answer({*SocketAddress::fromText("10.0.0.1", 0)});
  ASSERT_TRUE(answer->wait());
  // A second look-up with a longer time-out ends after the first one's would have.
  ASSERT_TRUE(resolve(*resolver, "other.local", 100ms)->wait());
  EXPECT_EQ(answer->count, 1);
  EXPECT_FALSE(answer->error);
}

TEST_F(HostNameResolverTests, LookupUnderWayOutlivesTheResolver) {
  LateDNSSD late(loop_);
  auto resolver = HostNameResolver::make(late);
  const auto answer = resolve(*resolver, "peer.local", 100ms);
  resolver.reset();
  ASSERT_TRUE(answer->wait());
  EXPECT_EQ(answer->count, 1);
}

TEST_F(HostNameResolverTests, AlternativeAnswersWhereDiscoveryDoesNot) {
  resolver_->setAlternative("Peer.local.", "10.0.0.7");
  const auto answer = resolveAndWait("PEER.LOCAL");
  ASSERT_EQ(answer->addresses.size(), 1u);
  EXPECT_EQ(answer->addresses.front().hostText(), "10.0.0.7");
  EXPECT_EQ(answer->addresses.front().port(), 16654);
}

TEST_F(HostNameResolverTests, DiscoveryComesBeforeAnAlternative) {
  discovery_.setAddresses("peer.local.", {*SocketAddress::fromText("10.0.0.8", 0)});
  resolver_->setAlternative("peer.local.", "10.0.0.7");
  const auto answer = resolveAndWait("peer.local.");
  ASSERT_EQ(answer->addresses.size(), 1u);
  EXPECT_EQ(answer->addresses.front().hostText(), "10.0.0.8");
}

TEST_F(HostNameResolverTests, AlternativesThatLeadNowhereAreNotTaken) {
  resolver_->setAlternative("peer.local.", "other.local.");
  resolver_->setAlternative("peer.local.", "no host");
  resolver_->setAlternative("example.org", "10.0.0.7");
  const auto answer = resolveAndWait("peer.local.");
  EXPECT_TRUE(answer->addresses.empty());
  EXPECT_TRUE(answer->error);
}

TEST(HostAlternativesTests, OldestGoesWhenFull) {
  HostAlternatives alternatives;
  for (std::size_t i = 0; i <= HostAlternatives::capacity; ++i) {
    alternatives.set("host" + std::to_string(i) + ".local", "10.0.0.1");
  }
  EXPECT_FALSE(alternatives.of("host0.local"));
  EXPECT_EQ(alternatives.of("HOST1.LOCAL."), "10.0.0.1");
}

}  // namespace
}  // namespace ferrox::test
