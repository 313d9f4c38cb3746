#include <gtest/gtest.h>

#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Monitor/FRXTCPServiceChecker.h"
#include "Classes/Monitor/FRXTCPServiceCheckerOperation.h"
#include "Platform/Net/HostNameResolver.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Tests/Support/BlackHole.h"
#include "Tests/Support/FakeDNSSD.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;
using Result = FRXServiceCheckResult;
using SteadyClock = std::chrono::steady_clock;

struct Outcome {
  std::atomic<int> count{0};
  std::atomic<Result> result{};
  std::atomic<std::thread::id> thread;

  FRXServiceChecker::Completion completion() {
    return [this](Result value) {
      result = value;
      thread = std::this_thread::get_id();
      ++count;
    };
  }
};

class FRXTCPServiceCheckerTests : public ::testing::Test {
 protected:
  FRXTCPServiceCheckerTests() {
    loop_.runPending();
    platform_.mainLoop = &loop_;
    platform_.background = background_.get();
    platform_.makeTCPSocket = [this] { return TCPClientSocket::make(*resolver_, loop_); };
    checker_ = std::make_unique<FRXTCPServiceChecker>(platform_);
  }

  static std::shared_ptr<FRXNetService> service(const std::string& host, std::int64_t port) {
    return std::make_shared<FRXNetService>(host, port, "name");
  }
  bool wait(const Outcome& outcome) {
    return waitFor(loop_, [&outcome] { return outcome.count > 0; });
  }
  Result check(const std::string& host, std::int64_t port) {
    Outcome outcome;
    checker_->checkServiceForResponse(service(host, port), outcome.completion());
    EXPECT_TRUE(wait(outcome));
    EXPECT_EQ(outcome.count, 1);
    return outcome.result;
  }

  RunLoop loop_;
  FakeDNSSD discovery_{loop_};
  std::unique_ptr<HostNameResolver> resolver_ = HostNameResolver::make(discovery_);
  std::unique_ptr<BackgroundQueue> background_ = BackgroundQueue::makePool(4);
  PlatformServices platform_;
  std::unique_ptr<FRXTCPServiceChecker> checker_;
  std::string received() {
    const std::lock_guard lock(receivedMutex_);
    return received_;
  }

  std::mutex receivedMutex_;
  std::string received_ = "nothing yet";
  // One check may still be ending while the next has begun.
  ScriptedHTTPServer server_{[this](ScriptedConnection& connection) {
    std::string request = connection.readRequest();
    const std::lock_guard lock(receivedMutex_);
    received_ = std::move(request);
  }};
};

TEST_F(FRXTCPServiceCheckerTests, ListeningPortRespondsAndIsSentNothing) {
  LogRecording log;
  Outcome outcome;
  checker_->checkServiceForResponse(service("127.0.0.1", server_.port()), outcome.completion());
  ASSERT_TRUE(wait(outcome));
  EXPECT_EQ(outcome.result, Result::Responded);
  EXPECT_EQ(outcome.thread.load(), std::this_thread::get_id());
  EXPECT_TRUE(waitFor([this] { return server_.acceptCount() == 1 && server_.openCount() == 0; }));
  EXPECT_EQ(received(), "");
  EXPECT_TRUE(
      log->has(LogLevel::Debug, "TCP connection successfully established with host 127.0.0.1 on port " +
                                    std::to_string(server_.port())));
  EXPECT_TRUE(waitFor([this] { return checker_->operationQueue().operationCount() == 0; }));
}

TEST_F(FRXTCPServiceCheckerTests, PortWithNothingListeningDoesNotRespond) {
  LogRecording log;
  const auto port = unusedPort();
  const auto begin = SteadyClock::now();
  EXPECT_EQ(check("127.0.0.1", port), Result::NoResponse);
  EXPECT_LT(SteadyClock::now() - begin, 1s);
  EXPECT_TRUE(
      log->has(LogLevel::Debug, "TCP connection failed with host 127.0.0.1 on port " + std::to_string(port)));
}

TEST_F(FRXTCPServiceCheckerTests, AddressThatDropsPacketsTimesOutAfterASecond) {
  BlackHole hole;
  const auto begin = SteadyClock::now();
  EXPECT_EQ(check("127.0.0.1", hole.port()), Result::NoResponse);
  EXPECT_GE(SteadyClock::now() - begin, 1s);
  EXPECT_LT(SteadyClock::now() - begin, 4s);
}

TEST_F(FRXTCPServiceCheckerTests, SecondCheckOfTheSameRecordIsCancelledAtOnce) {
  BlackHole hole;
  const auto peer = service("127.0.0.1", hole.port());
  Outcome first;
  Outcome second;
  checker_->checkServiceForResponse(peer, first.completion());
  checker_->checkServiceForResponse(peer, second.completion());
  EXPECT_EQ(second.count, 1);
  EXPECT_EQ(second.result, Result::Cancelled);
  EXPECT_EQ(second.thread.load(), std::this_thread::get_id());
  ASSERT_TRUE(wait(first));
  EXPECT_EQ(first.result, Result::NoResponse);
  EXPECT_EQ(second.count, 1);
}

TEST_F(FRXTCPServiceCheckerTests, CheckAfterTheEndOfTheLastIsMade) {
  EXPECT_EQ(check("127.0.0.1", server_.port()), Result::Responded);
  EXPECT_EQ(check("127.0.0.1", server_.port()), Result::Responded);
}

TEST_F(FRXTCPServiceCheckerTests, PortsOfOneHostAreCheckedSideBySide) {
  BlackHole hole;
  Outcome slow;
  checker_->checkServiceForResponse(service("127.0.0.1", hole.port()), slow.completion());
  EXPECT_EQ(check("127.0.0.1", server_.port()), Result::Responded);
  EXPECT_EQ(slow.count, 0);
  ASSERT_TRUE(wait(slow));
}

TEST_F(FRXTCPServiceCheckerTests, NamesUnderLocalAreResolvedThroughDiscovery) {
  const auto loopback = *SocketAddress::fromText("127.0.0.1", 0);
  discovery_.setAddresses("PEER-MAC.LOCAL.", {loopback});
  EXPECT_EQ(check("peer-mac.local.", server_.port()), Result::Responded);
  EXPECT_EQ(discovery_.hostNameLookups(), std::vector<std::string>{"PEER-MAC.LOCAL."});
  EXPECT_EQ(check("stranger.local.", server_.port()), Result::NoResponse);
}

TEST_F(FRXTCPServiceCheckerTests, PeerWithADeadAddressResponds) {
  BlackHole hole;
  ScriptedHTTPServer alive([](ScriptedConnection& connection) { connection.stall(); }, "127.0.0.2",
                           hole.port());
  discovery_.setAddresses(
      "PEER.LOCAL.", {*SocketAddress::fromText("127.0.0.1", 0), *SocketAddress::fromText("127.0.0.2", 0)});
  EXPECT_EQ(check("peer.local.", hole.port()), Result::Responded);
}

TEST_F(FRXTCPServiceCheckerTests, RecordsThatNameNoUsableHostOrPortDoNotRespond) {
  LogRecording log;
  EXPECT_EQ(check("", 80), Result::NoResponse);
  EXPECT_EQ(check("evil\r\nhost", 80), Result::NoResponse);
  EXPECT_EQ(check("127.0.0.1", 0), Result::NoResponse);
  Outcome outcome;
  checker_->checkServiceForResponse(std::make_shared<FRXNetService>(std::nullopt, 0, std::nullopt),
                                    outcome.completion());
  ASSERT_TRUE(wait(outcome));
  EXPECT_EQ(outcome.result, Result::NoResponse);
  EXPECT_TRUE(log->has(
      LogLevel::Error,
      "Failed to establish TCP connection to host 127.0.0.1 on port 0 - Unusable host name or port"));
}

TEST_F(FRXTCPServiceCheckerTests, CheckUnderWayOutlivesTheChecker) {
  Outcome outcome;
  checker_->checkServiceForResponse(service("127.0.0.1", server_.port()), outcome.completion());
  checker_.reset();
  ASSERT_TRUE(wait(outcome));
  EXPECT_EQ(outcome.result, Result::Responded);
}

}  // namespace
}  // namespace ferrox::test
