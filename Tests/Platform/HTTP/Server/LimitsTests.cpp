#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <vector>

#include "Tests/Platform/HTTP/Server/ServerFixture.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

class LimitsTest : public ServerTest {
 protected:
  int statusOf(const std::string& request) {
    RawSocket client = connect();
    EXPECT_TRUE(client.send(request));
    const auto response = client.readResponse();
    return response ? response->status : 0;
  }
};

std::string requestLine(std::size_t size) {
  const std::string rest = "GET /small? HTTP/1.1";
  return "GET /small?" + std::string(size - rest.size(), 'x') + " HTTP/1.1\r\n";
}

TEST_F(LimitsTest, RequestLine) {
  limits.requestLine = 100;
  start();
  EXPECT_EQ(statusOf(requestLine(100) + "Host: a\r\n\r\n"), 200);
  EXPECT_EQ(statusOf(requestLine(101) + "Host: a\r\n\r\n"), 414);
  EXPECT_EQ(statusOf("GET /" + std::string(200, 'x')), 414) << "refused before its end arrives";
}

TEST_F(LimitsTest, RequestLineByDefault) {
  start();
  EXPECT_EQ(statusOf(requestLine(limits.requestLine) + "Host: a\r\n\r\n"), 200);
  EXPECT_EQ(statusOf(requestLine(limits.requestLine + 1) + "Host: a\r\n\r\n"), 414);
}

std::string headerBlock(std::size_t size) {
  const std::string fixed = "Host: a\r\nX: \r\n";
  return "Host: a\r\nX: " + std::string(size - fixed.size(), 'x') + "\r\n";
}

TEST_F(LimitsTest, HeaderBlock) {
  for (const std::size_t limit : {std::size_t{200}, limits.headerBlock}) {
    limits.headerBlock = limit;
    server.stop();
    start();
    EXPECT_EQ(statusOf("GET /small HTTP/1.1\r\n" + headerBlock(limit) + "\r\n"), 200);
    EXPECT_EQ(statusOf("GET /small HTTP/1.1\r\n" + headerBlock(limit + 1) + "\r\n"), 431);
    EXPECT_EQ(statusOf("GET /small HTTP/1.1\r\nX: " + std::string(limit, 'x')), 431)
        << "refused before its end arrives";
  }
}

TEST_F(LimitsTest, HeaderCount) {
  limits.headerCount = 5;
  start();
  const std::string start = "GET /small HTTP/1.1\r\nHost: a\r\n";
  EXPECT_EQ(statusOf(start + "A: 1\r\nB: 1\r\nC: 1\r\nD: 1\r\n\r\n"), 200);
  EXPECT_EQ(statusOf(start + "A: 1\r\nB: 1\r\nC: 1\r\nD: 1\r\nE: 1\r\n\r\n"), 431);
}

TEST_F(LimitsTest, BodyByLengthAndByChunks) {
  limits.body = 10;
  start();
  const std::string post = "POST /echo HTTP/1.1\r\nHost: a\r\n";
  EXPECT_EQ(statusOf(post + "Content-Length: 10\r\n\r\n0123456789"), 200);
  EXPECT_EQ(statusOf(post + "Content-Length: 11\r\n\r\n0123456789x"), 413);
  const std::string chunked = post + "Transfer-Encoding: chunked\r\n\r\n";
  EXPECT_EQ(statusOf(chunked + "5\r\n01234\r\n5\r\n56789\r\n0\r\n\r\n"), 200);
  EXPECT_EQ(statusOf(chunked + "5\r\n01234\r\n6\r\n56789x\r\n0\r\n\r\n"), 413);
}

TEST_F(LimitsTest, EndlessTrailersAndChunkExtensions) {
  start();
  const std::string chunked = "POST /echo HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n";
  EXPECT_EQ(statusOf(chunked + "1;" + std::string(2 * limits.headerBlock, 'x')), 400);
  EXPECT_EQ(statusOf(chunked + "0\r\nX: " + std::string(2 * limits.headerBlock, 'x')), 400);
}

TEST_F(LimitsTest, ConnectionsInAll) {
  limits.connections = 3;
  start();
  std::vector<RawSocket> clients;
  for (int i = 0; i < 3; ++i) {
    clients.push_back(connect());
    ASSERT_TRUE(clients.back().send("GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
    ASSERT_TRUE(clients.back().readResponse());
  }
  RawSocket refused = connect();
  EXPECT_TRUE(refused.isClosedByPeer());
  clients.pop_back();
  // The place is free once the server has seen the close.
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  int status = 0;
  while (status != 200 && std::chrono::steady_clock::now() < deadline) {
    status = statusOf("GET /small HTTP/1.1\r\nHost: a\r\n\r\n");
  }
  EXPECT_EQ(status, 200);
}

TEST_F(LimitsTest, ConnectionsOfOneAddress) {
  limits.connectionsPerAddress = 2;
  start();
  RawSocket first = connect(), second = connect();
  for (RawSocket* client : {&first, &second}) {
    ASSERT_TRUE(client->send("GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
    ASSERT_TRUE(client->readResponse());
  }
  EXPECT_TRUE(connect().isClosedByPeer());
  RawSocket other(server.port(), true);
  ASSERT_TRUE(other.send("GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  EXPECT_TRUE(other.readResponse()) << "another address has its own count";
}

TEST_F(LimitsTest, AFloodOfConnectionsLeavesTheKeptOnesWorking) {
  limits.connections = 20;
  start();
  RawSocket kept = connect();
  ASSERT_TRUE(kept.send("GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  ASSERT_TRUE(kept.readResponse());
  std::vector<RawSocket> flood;
  for (int i = 0; i < 300; ++i) flood.emplace_back(server.port());
  ASSERT_TRUE(kept.send("GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  const auto response = kept.readResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 200);
}

TEST_F(LimitsTest, ASlowHeaderIsTimedOutHoweverItDrips) {
  limits.headerDeadline = 200ms;
  start();
  RawSocket client = connect();
  client.setDeadline(1ms);
  const auto begin = std::chrono::steady_clock::now();
  std::optional<RawResponse> response;
  ASSERT_TRUE(client.send("GET /small HTTP/1.1\r\n"));
  while (!response && std::chrono::steady_clock::now() - begin < 5s) {
    client.setDeadline(20ms);
    if (!client.send("X")) break;
    response = client.readResponse();
  }
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 408);
  EXPECT_EQ(response->field("connection"), "close");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 200ms);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
}

TEST_F(LimitsTest, ASilentNewcomerIsClosedAfterTheHeaderDeadline) {
  limits.headerDeadline = 100ms;
  start();
  EXPECT_TRUE(connect().isClosedByPeer());
}

TEST_F(LimitsTest, AnIdleConnectionIsClosedSilently) {
  limits.idleTimeout = 150ms;
  limits.headerDeadline = 10s;
  start();
  RawSocket client = connect();
  ASSERT_TRUE(client.send("GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  ASSERT_TRUE(client.readResponse());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(client.isClosedByPeer());
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
}

TEST_F(LimitsTest, ABodyWithoutProgressIsCut) {
  limits.bodyTimeout = 150ms;
  start();
  RawSocket client = connect();
  ASSERT_TRUE(client.send("POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 10\r\n\r\n123"));
  EXPECT_TRUE(client.isClosedByPeer());
}

TEST_F(LimitsTest, AClientThatDoesNotReadIsCut) {
  limits.bodyTimeout = 200ms;
  answerWith("/big", std::string(32 << 20, 'x'));
  start();
  RawSocket client(server.port(), false, 4096);
  ASSERT_TRUE(client.send("GET /big HTTP/1.1\r\nHost: a\r\n\r\n"));
  // Progress is what counts: nothing is read here until the server must have given up.
  RawSocket other = connect();
  other.setDeadline(1500ms);
  EXPECT_FALSE(other.isClosedByPeer());
  EXPECT_LT(client.readAll().size(), std::size_t{32} << 20);
}

TEST_F(LimitsTest, ExhaustedDescriptorsPauseAcceptingAndRecover) {
  start();
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  std::vector<RawSocket> clients;
  rlimit low = before;
  low.rlim_cur = 64;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
  // Both ends live in this process, so it runs out on one side or the other; the backlog holds the rest.
  while (clients.size() < 64) {
    RawSocket client(server.port());
    if (!client.isOpen()) break;
    clients.push_back(std::move(client));
  }
  EXPECT_LT(clients.size(), 64U);
  rusage usageBefore{}, usageAfter{};
  ::getrusage(RUSAGE_SELF, &usageBefore);
  RawSocket& last = clients.back();
  last.setDeadline(500ms);
  EXPECT_FALSE(last.isClosedByPeer());
  ::getrusage(RUSAGE_SELF, &usageAfter);
  const auto spent = [](const rusage& usage) {
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
  };
  EXPECT_LT(spent(usageAfter) - spent(usageBefore), 250ms) << "the accept loop must rest, not spin";
  while (clients.size() > 1) clients.erase(clients.begin());
  ASSERT_TRUE(clients.back().send("GET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  clients.back().setDeadline(10s);
  const auto response = clients.back().readResponse();
  ::setrlimit(RLIMIT_NOFILE, &before);
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 200);
}

}  // namespace
}  // namespace ferrox::test
