#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "Classes/Copy/FRXConcurrentOperation.h"
#include "Classes/Monitor/FRXTCPServiceCheckerOperation.h"

namespace ferrox::test {
namespace {

using Result = FRXServiceCheckResult;
using Calls = std::vector<std::string>;

// Writes down what is asked of it; the test plays its events.
class ScriptedSocket : public TCPClientSocket {
 public:
  void setDelegate(std::weak_ptr<TCPClientSocketListener> listener) override {
    calls.push_back(listener.expired() ? "detach" : "attach");
    delegate = std::move(listener);
  }
  bool connectToHost(const std::string& host, std::uint16_t port, std::chrono::milliseconds timeout,
                     FRXError* error) override {
    calls.push_back("connect " + host + " " + std::to_string(port) + " " + std::to_string(timeout.count()));
    if (canConnect) return true;
    setError(error, {"test", 1, "no way"});
    return false;
  }
  void disconnect() override { calls.push_back("disconnect"); }

  bool canConnect = true;
  Calls calls;
  std::weak_ptr<TCPClientSocketListener> delegate;
};

class FRXTCPServiceCheckerOperationTests : public ::testing::Test {
 protected:
  std::shared_ptr<FRXTCPServiceCheckerOperation> make(const std::string& host, std::uint64_t port = 16654) {
    return std::make_shared<FRXTCPServiceCheckerOperation>(
        host, port,
        [this](Result result) {
          results_.push_back(result);
          finishedAtCompletion_ = operation_ && operation_->isFinished();
        },
        [this] { return socket_; });
  }
  void start(const std::string& host, std::uint64_t port = 16654) {
    operation_ = make(host, port);
    operation_->start();
  }

  std::shared_ptr<ScriptedSocket> socket_ = std::make_shared<ScriptedSocket>();
  std::shared_ptr<FRXTCPServiceCheckerOperation> operation_;
  std::vector<Result> results_;
  bool finishedAtCompletion_ = false;
};

TEST_F(FRXTCPServiceCheckerOperationTests, HostNameLosesTheDotOfLocalAndIsUpperCased) {
  EXPECT_EQ(make("peer.local.")->hostName(), "PEER.LOCAL");
  EXPECT_EQ(make("PEER-MAC.LOCAL.")->hostName(), "PEER-MAC.LOCAL.");
  EXPECT_EQ(make("local.local.")->hostName(), "LOCALLOCAL");
  EXPECT_EQ(make("10.0.0.7")->hostName(), "10.0.0.7");
  EXPECT_EQ(make("")->hostName(), "");
}

TEST_F(FRXTCPServiceCheckerOperationTests, EqualityIsThatOfHostAndPort) {
  const auto operation = make("peer.local.", 1);
  EXPECT_TRUE(operation->isEqual(*operation));
  EXPECT_TRUE(operation->isEqual(*make("PEER.LOCAL", 1)));
  EXPECT_FALSE(operation->isEqual(*make("peer.local.", 2)));
  EXPECT_FALSE(operation->isEqual(*make("other.local.", 1)));
  EXPECT_FALSE(operation->isEqual(FRXConcurrentOperation()));
}

TEST_F(FRXTCPServiceCheckerOperationTests, HashFollowsHostAndPort) {
  EXPECT_EQ(make("", 80)->hash(), 961u + 80u);
  EXPECT_EQ(make("peer", 80)->hash(), 961 + 31 * std::uint64_t{std::hash<std::string>{}("PEER")} + 80);
  EXPECT_EQ(make("peer", 80)->hash(), make("PEER", 80)->hash());
  EXPECT_EQ(make("", ~std::uint64_t{0})->hash(), 960u);
}

TEST_F(FRXTCPServiceCheckerOperationTests, StartConnectsWithOneSecondAndDoesNotMarkItselfExecuting) {
  start("peer.local.", 65536 + 80);
  EXPECT_EQ(socket_->calls, (Calls{"attach", "connect PEER.LOCAL 80 1000"}));
  EXPECT_FALSE(operation_->isExecuting());
  EXPECT_FALSE(operation_->isFinished());
  EXPECT_TRUE(results_.empty());
}

TEST_F(FRXTCPServiceCheckerOperationTests, StartDoesNotAskWhetherItIsStartable) {
  operation_ = make("peer.local.");
  operation_->cancel();
  operation_->start();
  EXPECT_EQ(socket_->calls.size(), 2u);
  EXPECT_FALSE(operation_->isFinished());
}

TEST_F(FRXTCPServiceCheckerOperationTests, ConnectionDetachesThenDisconnectsThenFinishesThenReports) {
  start("peer.local.");
  socket_->calls.clear();
  operation_->socketDidConnectToHost(*socket_, "PEER.LOCAL", 16654);
  EXPECT_EQ(socket_->calls, (Calls{"detach", "disconnect"}));
  EXPECT_TRUE(operation_->didRespond());
  EXPECT_TRUE(finishedAtCompletion_);
  EXPECT_EQ(results_, std::vector<Result>{Result::Responded});
}

TEST_F(FRXTCPServiceCheckerOperationTests, FailedConnectionIsNoResponse) {
  start("peer.local.");
  socket_->calls.clear();
  operation_->socketDidDisconnectWithError(*socket_, FRXError{"test", ETIMEDOUT, "timed out"});
  EXPECT_EQ(socket_->calls, (Calls{"detach", "disconnect"}));
  EXPECT_FALSE(operation_->didRespond());
  EXPECT_TRUE(finishedAtCompletion_);
  EXPECT_EQ(results_, std::vector<Result>{Result::NoResponse});
}

TEST_F(FRXTCPServiceCheckerOperationTests, EndWithoutErrorBeforeAConnectionIsNoResponse) {
  start("peer.local.");
  operation_->socketDidDisconnectWithError(*socket_, std::nullopt);
  EXPECT_EQ(results_, std::vector<Result>{Result::NoResponse});
}

TEST_F(FRXTCPServiceCheckerOperationTests, ConnectThatCannotBeginIsNoResponse) {
  socket_->canConnect = false;
  start("peer.local.");
  EXPECT_TRUE(operation_->isFinished());
  EXPECT_TRUE(finishedAtCompletion_);
  EXPECT_EQ(results_, std::vector<Result>{Result::NoResponse});
}

TEST_F(FRXTCPServiceCheckerOperationTests, CompletionIsCalledOnceHoweverOftenItFinishes) {
  start("peer.local.");
  operation_->socketDidConnectToHost(*socket_, "PEER.LOCAL", 16654);
  operation_->socketDidDisconnectWithError(*socket_, std::nullopt);
  operation_->finish();
  EXPECT_EQ(results_.size(), 1u);
}

TEST_F(FRXTCPServiceCheckerOperationTests, AbsentCompletionIsTolerated) {
  auto operation =
      std::make_shared<FRXTCPServiceCheckerOperation>("peer", 1, nullptr, [this] { return socket_; });
  operation->start();
  operation->socketDidConnectToHost(*socket_, "PEER", 1);
  EXPECT_TRUE(operation->isFinished());
}

TEST_F(FRXTCPServiceCheckerOperationTests, FinishedOperationLetsGoOfItsSocket) {
  const std::weak_ptr<ScriptedSocket> weak = socket_;
  start("peer.local.");
  operation_->socketDidConnectToHost(*socket_, "PEER.LOCAL", 16654);
  socket_.reset();
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace ferrox::test
