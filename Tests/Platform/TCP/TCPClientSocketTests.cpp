#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Net/ConnectionRace.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/TCP/TCPClientSocket.h"
#include "Tests/Support/BlackHole.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

class RecordingListener : public TCPClientSocketListener {
 public:
  explicit RecordingListener(RunLoop& loop) : loop_(loop) {}

  void socketDidConnectToHost(TCPClientSocket& socket, const std::string& host, std::uint16_t port) override {
    EXPECT_TRUE(loop_.isCurrentThread());
    connectedTo.push_back(host + ":" + std::to_string(port));
    if (disconnectsWhenConnected) {
      if (detachesFirst) socket.setDelegate({});
      socket.disconnect();
    }
  }
  void socketDidDisconnectWithError(TCPClientSocket&, const std::optional<FRXError>& error) override {
    EXPECT_TRUE(loop_.isCurrentThread());
    ends.push_back(error);
  }

  bool disconnectsWhenConnected = false;
  bool detachesFirst = false;
  std::vector<std::string> connectedTo;
  std::vector<std::optional<FRXError>> ends;

 private:
  RunLoop& loop_;
};

class TCPClientSocketTests : public ::testing::Test {
 protected:
  void SetUp() override {
    loop_.runPending();
    socket_->setDelegate(listener_);
  }
  bool connect(const std::string& host, std::uint16_t port, std::chrono::milliseconds timeout = 5s) {
    return socket_->connectToHost(host, port, timeout);
  }
  bool waitForConnect() {
    return waitFor(loop_, [this] { return !listener_->connectedTo.empty(); });
  }
  bool waitForEnd(std::size_t count = 1) {
    return waitFor(loop_, [this, count] { return listener_->ends.size() >= count; });
  }
  int endCode() const { return listener_->ends.back() ? listener_->ends.back()->code : 0; }
  /// Lets everything that is under way on the I/O thread and the loop happen.
  void settle() {
    std::atomic<bool> passed{false};
    IOThread::shared().post([&passed] { IOThread::shared().post([&passed] { passed = true; }); });
    waitFor(loop_, [&passed] { return passed.load(); });
    loop_.runPending();
  }

  RunLoop loop_;
  ScriptedResolver resolver_;
  std::shared_ptr<RecordingListener> listener_ = std::make_shared<RecordingListener>(loop_);
  std::shared_ptr<TCPClientSocket> socket_ = TCPClientSocket::make(resolver_, loop_);
  ScriptedHTTPServer server_{[](ScriptedConnection& connection) { connection.stall(); }};
};

TEST_F(TCPClientSocketTests, ConnectsAndTellsHostAndPort) {
  ASSERT_TRUE(connect("127.0.0.1", server_.port()));
  ASSERT_TRUE(waitForConnect());
  EXPECT_EQ(listener_->connectedTo, std::vector<std::string>{"127.0.0.1:" + std::to_string(server_.port())});
  EXPECT_TRUE(listener_->ends.empty());
}

TEST_F(TCPClientSocketTests, ListenerIsNeverCalledInsideConnect) {
  ASSERT_TRUE(connect("127.0.0.1", server_.port()));
  EXPECT_TRUE(waitFor([this] { return server_.acceptCount() == 1; }));
  EXPECT_TRUE(listener_->connectedTo.empty());
}

TEST_F(TCPClientSocketTests, RefusedConnectionEndsWithItsError) {
  ASSERT_TRUE(connect("127.0.0.1", unusedPort()));
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(endCode(), ECONNREFUSED);
  EXPECT_EQ(listener_->ends.back()->domain, SocketErrorDomain);
  EXPECT_TRUE(listener_->connectedTo.empty());
}

TEST_F(TCPClientSocketTests, UnknownHostEndsWithAnError) {
  ASSERT_TRUE(connect("nobody.test", 80));
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(endCode(), HostNameResolverErrorNotFound);
}

TEST_F(TCPClientSocketTests, TimeoutCoversTheConnectionAndTheLookup) {
  BlackHole hole;
  resolver_.setSilent("silent.test");
  for (const char* host : {"127.0.0.1", "silent.test"}) {
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(connect(host, hole.port(), 200ms));
    const auto before = listener_->ends.size();
    ASSERT_TRUE(waitForEnd(before + 1));
    EXPECT_EQ(endCode(), ETIMEDOUT) << host;
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 200ms) << host;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s) << host;
  }
}

TEST_F(TCPClientSocketTests, DeadAddressesDelayALivingOneOnlyALittle) {
  BlackHole hole;
  ScriptedHTTPServer alive([](ScriptedConnection& connection) { connection.stall(); }, "127.0.0.2",
                           hole.port());
  resolver_.setAddresses("half-dead.test", {"127.0.0.1", "127.0.0.2"});
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(connect("half-dead.test", hole.port()));
  ASSERT_TRUE(waitForConnect());
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(took, ConnectionRace::attemptDelay);
  EXPECT_LT(took, 2s);
}

TEST_F(TCPClientSocketTests, FailedAttemptIsFollowedByTheNextAtOnce) {
  resolver_.setAddresses("peer.test", {"127.0.0.3", "127.0.0.4", "127.0.0.5", "127.0.0.1"});
  ScriptedHTTPServer onlyHere([](ScriptedConnection& connection) { connection.stall(); });
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(connect("peer.test", onlyHere.port()));
  ASSERT_TRUE(waitForConnect());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 3 * ConnectionRace::attemptDelay);
}

TEST_F(TCPClientSocketTests, LosersOfTheRaceAreClosed) {
  ScriptedHTTPServer other([](ScriptedConnection& connection) { connection.stall(); }, "127.0.0.2",
                           server_.port());
  resolver_.setAddresses("both.test", {"127.0.0.1", "127.0.0.2"});
  ASSERT_TRUE(connect("both.test", server_.port()));
  ASSERT_TRUE(waitForConnect());
  EXPECT_TRUE(waitFor([&] { return server_.openCount() + other.openCount() == 1; }));
}

TEST_F(TCPClientSocketTests, HostileHostNamesAndPortZeroAreRefused) {
  for (const std::string& host :
       {std::string(), std::string("a b"), std::string("a\r\nb"), std::string("a\0b", 3),
        std::string(254, 'a'), std::string("a..b"), std::string("\x7f")}) {
    FRXError error;
    EXPECT_FALSE(socket_->connectToHost(host, 80, 1s, &error)) << host;
    EXPECT_EQ(error.code, EINVAL);
    EXPECT_FALSE(error.localizedDescription.empty());
  }
  EXPECT_FALSE(connect("127.0.0.1", 0));
  settle();
  EXPECT_TRUE(listener_->ends.empty());
  EXPECT_EQ(resolver_.lookupCount(), 0u);
}

TEST_F(TCPClientSocketTests, SecondConnectIsRefusedWhileConnectingAndWhenConnected) {
  ASSERT_TRUE(connect("127.0.0.1", server_.port()));
  FRXError error;
  EXPECT_FALSE(socket_->connectToHost("127.0.0.1", server_.port(), 1s, &error));
  ASSERT_TRUE(waitForConnect());
  EXPECT_FALSE(socket_->connectToHost("127.0.0.1", server_.port(), 1s, &error));
  EXPECT_EQ(error.code, EISCONN);
}

TEST_F(TCPClientSocketTests, SocketCanConnectAgainAfterItsEnd) {
  for (std::size_t round = 1; round <= 3; ++round) {
    ASSERT_TRUE(connect("127.0.0.1", server_.port()));
    ASSERT_TRUE(waitFor(loop_, [&] { return listener_->connectedTo.size() == round; }));
    socket_->disconnect();
    ASSERT_TRUE(waitForEnd(round));
    EXPECT_FALSE(listener_->ends.back());
  }
  EXPECT_TRUE(waitFor([this] { return server_.openCount() == 0; }));
}

TEST_F(TCPClientSocketTests, OrderlyEndOfThePeerHasNoError) {
  ScriptedHTTPServer brief([](ScriptedConnection& connection) { connection.send("unasked for"); });
  ASSERT_TRUE(connect("127.0.0.1", brief.port()));
  ASSERT_TRUE(waitForEnd());
  EXPECT_FALSE(listener_->ends.back());
  EXPECT_EQ(listener_->connectedTo.size(), 1u);
}

TEST_F(TCPClientSocketTests, ResetByThePeerIsAnError) {
  ScriptedHTTPServer rude([](ScriptedConnection& connection) {
    connection.send("x");
    connection.reset();
  });
  ASSERT_TRUE(connect("127.0.0.1", rude.port()));
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(endCode(), ECONNRESET);
}

TEST_F(TCPClientSocketTests, DisconnectWhileConnectingIsToldOnceAndWithoutError) {
  BlackHole hole;
  ASSERT_TRUE(connect("127.0.0.1", hole.port(), 300ms));
  std::thread([this] { socket_->disconnect(); }).join();
  ASSERT_TRUE(waitForEnd());
  EXPECT_FALSE(listener_->ends.back());
  socket_->disconnect();
  settle();
  EXPECT_EQ(listener_->ends.size(), 1u);
  EXPECT_TRUE(listener_->connectedTo.empty());
}

TEST_F(TCPClientSocketTests, DetachedListenerGetsNoFurtherCall) {
  listener_->disconnectsWhenConnected = true;
  listener_->detachesFirst = true;
  ASSERT_TRUE(connect("127.0.0.1", server_.port()));
  ASSERT_TRUE(waitForConnect());
  EXPECT_TRUE(waitFor([this] { return server_.acceptCount() == 1 && server_.openCount() == 0; }));
  settle();
  EXPECT_TRUE(listener_->ends.empty());
}

TEST_F(TCPClientSocketTests, ListenerDetachedBeforeItsTurnIsNotCalled) {
  ASSERT_TRUE(connect("127.0.0.1", server_.port()));
  // The call waits on the loop, which nobody runs yet.
  EXPECT_TRUE(waitFor([this] { return server_.acceptCount() == 1; }));
  socket_->setDelegate({});
  settle();
  EXPECT_TRUE(listener_->connectedTo.empty());
}

TEST_F(TCPClientSocketTests, ListenerIsHeldWeakly) {
  ASSERT_TRUE(connect("127.0.0.1", server_.port()));
  const std::weak_ptr<RecordingListener> weak = listener_;
  listener_.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_TRUE(waitFor([this] { return server_.acceptCount() == 1; }));
  settle();
}

TEST_F(TCPClientSocketTests, DroppedSocketClosesItsConnectionAndSaysNothing) {
  ASSERT_TRUE(connect("127.0.0.1", server_.port()));
  ASSERT_TRUE(waitForConnect());
  socket_.reset();
  EXPECT_TRUE(waitFor([this] { return server_.openCount() == 0; }));
  BlackHole hole;
  socket_ = TCPClientSocket::make(resolver_, loop_);
  socket_->setDelegate(listener_);
  ASSERT_TRUE(connect("127.0.0.1", hole.port(), 50ms));
  socket_.reset();
  settle();
  EXPECT_TRUE(listener_->ends.empty());
}

TEST_F(TCPClientSocketTests, DisconnectFromAnyThreadAtAnyMomentIsToldExactlyOnce) {
  constexpr std::size_t rounds = 100;
  for (std::size_t round = 1; round <= rounds; ++round) {
    ASSERT_TRUE(connect("127.0.0.1", server_.port()));
    std::thread([this, round] {
      std::this_thread::sleep_for(std::chrono::microseconds(round * 3));
      socket_->disconnect();
    }).join();
    ASSERT_TRUE(waitForEnd(round));
  }
  settle();
  EXPECT_EQ(listener_->ends.size(), rounds);
  EXPECT_TRUE(waitFor([this] { return server_.openCount() == 0; }));
}

}  // namespace
}  // namespace ferrox::test
