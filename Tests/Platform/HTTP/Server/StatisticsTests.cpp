// Each number of a server's statistics, moved by a client that speaks plain bytes.
#include <gtest/gtest.h>

#include <stdexcept>

#include "Platform/HTTP/Server/HTTPFileResponse.h"
#include "Tests/Platform/HTTP/Server/ServerFixture.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

constexpr std::chrono::seconds longTime{30};

class StatisticsTest : public ServerTest {
 protected:
  HTTPServerStatistics now() const { return server.statistics(); }
  std::string ask(const std::string& line, const std::string& fields = "") {
    RawSocket client = connect();
    EXPECT_TRUE(
        client.send(line + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" + fields + "\r\n"));
    return client.readAll();
  }
  void serveFile(const std::string& path, const std::string& file) {
    script->routes[path] = [file](HTTPConnection&, std::string_view) -> std::unique_ptr<HTTPResponse> {
      return std::make_unique<HTTPDeferredResponse>(
          [file] { return std::make_unique<HTTPFileResponse>(file); });
    };
  }
  TemporaryFolder folder;
};

TEST_F(StatisticsTest, BeginAtZero) {
  const HTTPServerStatistics fresh = now();
  EXPECT_EQ(fresh.connectionsAccepted + fresh.connectionsRefused + fresh.connectionsOpen, 0U);
  EXPECT_EQ(fresh.upgrades + fresh.succeeded + fresh.clientErrors + fresh.serverErrors, 0U);
  EXPECT_EQ(fresh.bytesSent + fresh.fileBytesServed, 0U);
}

TEST_F(StatisticsTest, EveryRequestCountsUnderWhatBecameOfIt) {
  script->methods = "GET, HEAD";
  script->routes["/broken"] = [](HTTPConnection&, std::string_view) -> std::unique_ptr<HTTPResponse> {
    throw std::runtime_error("no");
  };
  start();
  ask("GET /small");
  ask("HEAD /small");
  EXPECT_EQ(now().succeeded, 2U);
  ask("GET /missing");
  ask("POST /small");
  ask("POST /small", "Content-Length: 1\r\n");
  ask("GET /small", "Content-Length: x\r\n");
  EXPECT_EQ(now().clientErrors, 4U);
  ask("GET /broken");
  EXPECT_EQ(now().serverErrors, 1U);
  EXPECT_EQ(now().succeeded, 2U);
  EXPECT_EQ(now().upgrades, 0U);
  EXPECT_EQ(now().connectionsAccepted, 7U);
}

TEST_F(StatisticsTest, PipelinedRequestsCountOneByOne) {
  start();
  RawSocket client = connect();
  std::string requests;
  for (int i = 0; i < 50; ++i) requests += "GET /small HTTP/1.1\r\nHost: localhost\r\n\r\n";
  ASSERT_TRUE(client.send(requests));
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(client.readResponse());
  EXPECT_EQ(now().succeeded, 50U);
  EXPECT_EQ(now().connectionsAccepted, 1U);
}

TEST_F(StatisticsTest, BytesSentAreThoseThatArrive) {
  serveFile("/file", folder.write("file", patternOf(3'000'001)));
  start();
  std::size_t arrived = ask("GET /small").size();
  arrived += ask("GET /missing").size();
  arrived += ask("GET /file").size();
  arrived += ask("GET /file", "Range: bytes=5-9,1000000-2000000\r\n").size();
  EXPECT_GT(arrived, 4'000'000U);
  EXPECT_EQ(now().bytesSent, arrived);
}

TEST_F(StatisticsTest, FileBytesAreThoseOfFilesWhateverTheirSizeAndRange) {
  const std::vector<std::size_t> sizes = {0, 1, 65535, 65536, 65537, 131073, 5'000'001};
  for (const std::size_t size : sizes) {
    serveFile("/" + std::to_string(size), folder.write(std::to_string(size), patternOf(size)));
  }
  start();
  std::uint64_t expected = 0;
  for (const std::size_t size : sizes) {
    ask("GET /" + std::to_string(size));
    expected += size;
    EXPECT_EQ(now().fileBytesServed, expected) << size;
  }
  ask("HEAD /65537");
  ask("GET /small");
  ask("GET /65537", "Range: bytes=70000-\r\n");
  EXPECT_EQ(now().clientErrors, 1U) << "416";
  EXPECT_EQ(now().fileBytesServed, expected);
  ask("GET /5000001", "Range: bytes=1000000-1999999\r\n");
  ask("GET /131073", "Range: bytes=0-9,100-109\r\n");
  EXPECT_EQ(now().fileBytesServed, expected + 1'000'020);
}

TEST_F(StatisticsTest, ConnectionsAreOpenUntilTheyEnd) {
  start();
  {
    RawSocket first = connect();
    const RawSocket second = connect();
    EXPECT_TRUE(waitFor([&] { return now().connectionsOpen == 2; }, longTime));
    ASSERT_TRUE(first.send("GET /small HTTP/1.1\r\nHost: localhost\r\n\r\n"));
    ASSERT_TRUE(first.readResponse());
    EXPECT_EQ(now().connectionsOpen, 2U);
  }
  EXPECT_TRUE(waitFor([&] { return now().connectionsOpen == 0; }, longTime));
  EXPECT_EQ(now().connectionsAccepted, 2U);
}

TEST_F(StatisticsTest, ConnectionsBeyondALimitCountAsRefusedOnly) {
  limits.connectionsPerAddress = 1;
  start();
  const RawSocket first = connect();
  EXPECT_TRUE(waitFor([&] { return now().connectionsOpen == 1; }, longTime));
  EXPECT_TRUE(connect().isClosedByPeer());
  EXPECT_TRUE(connect().isClosedByPeer());
  EXPECT_EQ(now().connectionsRefused, 2U);
  EXPECT_EQ(now().connectionsAccepted, 1U);
}

TEST_F(StatisticsTest, AnUpgradeIsARequestAndItsConnectionStaysOpen) {
  script->webSocket = [](std::string_view path, std::shared_ptr<WebSocketTransport> transport) {
    return path == "/none" ? nullptr : std::make_shared<WebSocket>(std::move(transport));
  };
  start();
  const std::string fields =
      " HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
      "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";
  RawSocket client = connect();
  ASSERT_TRUE(client.send("GET /socket" + fields + "\r\n"));
  ASSERT_EQ(client.readResponse(true)->status, 101);
  EXPECT_EQ(now().upgrades, 1U);
  EXPECT_EQ(now().connectionsOpen, 1U);
  for (const std::string& refused :
       {"GET /none" + fields, "GET /x" + fields + "Origin: http://a.example\r\n"}) {
    RawSocket other = connect();
    ASSERT_TRUE(other.send(refused + "\r\n"));
    ASSERT_TRUE(other.readResponse());
  }
  EXPECT_EQ(now().upgrades, 1U);
  EXPECT_EQ(now().clientErrors, 2U);
  client.close();
  EXPECT_TRUE(waitFor([&] { return now().connectionsOpen == 0; }, longTime));
}

TEST_F(StatisticsTest, CountsOutliveAStopAndOpenConnectionsDoNot) {
  start();
  RawSocket client = connect();
  ASSERT_TRUE(client.send("GET /small HTTP/1.1\r\nHost: localhost\r\n\r\n"));
  ASSERT_TRUE(client.readResponse());
  server.stop();
  EXPECT_EQ(now().connectionsOpen, 0U);
  start();
  ask("GET /small");
  EXPECT_EQ(now().succeeded, 2U);
  EXPECT_EQ(now().connectionsAccepted, 2U);
}

TEST_F(StatisticsTest, MayBeAskedForFromAnyThreadWhileTheServerWorks) {
  server.setNetworkThreadCount(2);
  start();
  std::atomic<bool> done{false};
  std::thread asking([&] {
    std::uint64_t before = 0;
    while (!done) {
      const std::uint64_t succeeded = now().succeeded;
      EXPECT_GE(succeeded, before);
      before = succeeded;
    }
  });
  for (int i = 0; i < 20; ++i) ask("GET /small");
  done = true;
  asking.join();
  EXPECT_EQ(now().succeeded, 20U);
}

}  // namespace
}  // namespace ferrox::test
