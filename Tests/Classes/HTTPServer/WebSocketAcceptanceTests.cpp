#include <gtest/gtest.h>

#include <mutex>

#include "Platform/WebSocket/WebSocket.h"
#include "Tests/Classes/HTTPServer/HostFixture.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox {
namespace {

using test::RawSocket;
using test::waitFor;

class WebSocketAcceptance : public test::HostFixture {
 protected:
  WebSocketAcceptance() {
    RoutingHTTPConnection::setConnectionRequestDelegate(connectionDelegate_);
    start();
  }

  /// The status that an upgrade of that target is answered with.
  int upgrade(RawSocket& socket, const std::string& target) {
    EXPECT_TRUE(
        socket.send("GET " + target +
                    " HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
                    "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n"));
    const auto response = socket.readResponse(true);
    return response ? response->status : 0;
  }
  int upgrade(const std::string& target) {
    RawSocket socket(server_->port());
    return upgrade(socket, target);
  }

  std::vector<std::shared_ptr<FRXNetService>> monitored() const { return connectionDelegate_->monitored(); }

  const test::LogRecording log_;
};

constexpr std::string_view missingId =
    "WebSocket connection request didn't contain required url parameter \"id\"";

TEST_F(WebSocketAcceptance, AnInstanceThatSaysWhereItIsGetsReported) {
  EXPECT_EQ(upgrade("/frxsocket?id=0123-v%2Fmy%20mac&hostname=mymac.local.&port=16654"), 101);
  ASSERT_EQ(monitored().size(), 1U);
  EXPECT_EQ(monitored()[0]->serviceId(), "MYMAC.LOCAL.:16654");
  EXPECT_EQ(monitored()[0]->name(), "0123-V/MY MAC");
}

TEST_F(WebSocketAcceptance, WithoutUsableAddressItIsAcceptedButNotReported) {
  for (const char* query :
       {"id=abc", "id=abc&hostname=h", "id=abc&port=5", "id=abc&hostname=h&port=0",
        "id=abc&hostname=h&port=x", "id=abc&hostname=h&port=-1", "id=abc&hostname=h&port=65536",
        "id=abc&hostname=h&port=99999999999999999999", "id=abc&hostname=&port=5",
        "id=abc&hostname=%zz&port=5", "id=abc&hostname=h&port=%zz", "id=abc&hostname=evil%2Fpath&port=5",
        "id=abc&hostname=user%40evil&port=5", "id=abc&hostname=a%0D%0Ab&port=5",
        "id=abc&hostname=a%00b&port=5", "id=abc&hostname=a%20b&port=5", "id=abc&hostname=a%3Fb&port=5",
        "id=abc&hostname=a%23b&port=5"}) {
    EXPECT_EQ(upgrade(std::string("/frxsocket?") + query), 101) << query;
  }
  EXPECT_EQ(upgrade("/frxsocket?id=abc&port=5&hostname=" + std::string(256, 'a')), 101);
  EXPECT_TRUE(monitored().empty());
}

TEST_F(WebSocketAcceptance, WithoutDelegateItIsAcceptedAllTheSame) {
  RoutingHTTPConnection::forgetDelegates();
  EXPECT_EQ(upgrade("/frxsocket?id=abc&hostname=h&port=5"), 101);
}

TEST_F(WebSocketAcceptance, WithoutIdItIsRefusedAndLogged) {
  std::size_t refusals = 0;
  for (const char* target : {"/frxsocket", "/frxsocket?", "/frxsocket?ID=abc", "/frxsocket?id=%zz",
                             "/frxsocket?id=%ff", "/frxsocket?hostname=h&port=5"}) {
    EXPECT_EQ(upgrade(target), 404) << target;
    EXPECT_EQ(log_->count(LogLevel::Error, missingId), ++refusals) << target;
  }
  EXPECT_TRUE(monitored().empty());
}

TEST_F(WebSocketAcceptance, OtherPathsAreRefusedInSilence) {
  EXPECT_EQ(upgrade("/service?id=abc"), 404);
  EXPECT_EQ(upgrade("/?id=abc"), 404);
  EXPECT_EQ(log_->count(LogLevel::Error, missingId), 0U);
}

TEST_F(WebSocketAcceptance, TheFactoryGetsTheUpperCasedIdAndTheRequest) {
  std::mutex mutex;
  std::string frxId;
  std::string uri;
  RoutingHTTPConnection::setWebSocketFactory(
      [&](const HTTPRequest* request, const std::string& id, std::shared_ptr<WebSocketTransport> transport) {
        const std::lock_guard lock(mutex);
        frxId = id;
        uri = request == nullptr ? "" : std::string(request->uri());
        return std::make_shared<WebSocket>(std::move(transport));
      });
  EXPECT_EQ(upgrade("/frxsocket?id=abc"), 101);
  const std::lock_guard lock(mutex);
  EXPECT_EQ(frxId, "ABC");
  EXPECT_EQ(uri, "/frxsocket?id=abc");
}

TEST_F(WebSocketAcceptance, AFactoryThatMakesNothingRefuses) {
  RoutingHTTPConnection::setWebSocketFactory(
      [](const HTTPRequest*, const std::string&, std::shared_ptr<WebSocketTransport>) {
        return std::shared_ptr<WebSocket>();
      });
  EXPECT_EQ(upgrade("/frxsocket?id=abc"), 404);
}

TEST_F(WebSocketAcceptance, TheDefaultEndpointOpensAndCloses) {
  RawSocket socket(server_->port());
  ASSERT_EQ(upgrade(socket, "/frxsocket?id=abc"), 101);
  const std::string address = "127.0.0.1:" + std::to_string(server_->port());
  EXPECT_TRUE(waitFor([&] { return log_->has(LogLevel::Verbose, "Websocket opened: " + address); }));
  EXPECT_FALSE(log_->has(LogLevel::Verbose, "Websocket closed: " + address));

  using namespace std::string_literals;
  ASSERT_TRUE(socket.send("\x88\x82\0\0\0\0\x03\xE8"s));  // masked close, code 1000
  EXPECT_EQ(socket.read(4), "\x88\x02\x03\xE8"s);
  EXPECT_TRUE(socket.isClosedByPeer());
  socket.close();
  EXPECT_TRUE(waitFor([&] { return log_->has(LogLevel::Verbose, "Websocket closed: " + address); }));
}

TEST_F(WebSocketAcceptance, TheDefaultEndpointClosesWithItsConnection) {
  const std::string message = "Websocket closed: 127.0.0.1:" + std::to_string(server_->port());
  {
    RawSocket socket(server_->port());
    ASSERT_EQ(upgrade(socket, "/frxsocket?id=abc"), 101);
    socket.reset();
  }
  EXPECT_TRUE(waitFor([&] { return log_->has(LogLevel::Verbose, message); }));
  EXPECT_EQ(log_->count(LogLevel::Verbose, message), 1U);
}

}  // namespace
}  // namespace ferrox
