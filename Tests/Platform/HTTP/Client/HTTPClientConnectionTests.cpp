// How the HTTP client reaches a host, keeps connections, and gives up on silence.
#include <gtest/gtest.h>

#include <vector>

#include "Platform/HTTP/Client/HTTPClient.h"
#include "Tests/Platform/HTTP/Client/Exchange.h"
#include "Tests/Support/BlackHole.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class HTTPClientConnectionTests : public ::testing::Test {
 protected:
  std::shared_ptr<Exchange> get(const std::string& url, std::chrono::milliseconds timeout = 60s) {
    auto exchange = Exchange::start(*client_, {.url = url, .inactivityTimeout = timeout});
    EXPECT_TRUE(exchange->wait());
    return exchange;
  }
  /// The time the request took to fail with a time-out.
  Clock::duration timeUntilTimeout(const std::string& url, std::chrono::milliseconds timeout) {
    const auto begin = Clock::now();
    EXPECT_EQ(get(url, timeout)->code(), HTTPClientErrorTimedOut) << url;
    return Clock::now() - begin;
  }
  static std::string urlOf(const std::string& host, std::uint16_t port) {
    return "http://" + host + ":" + std::to_string(port) + "/";
  }

  ScriptedResolver resolver_;
  std::unique_ptr<HTTPClient> client_ = HTTPClient::make(resolver_);
};

TEST_F(HTTPClientConnectionTests, OneConnectionAndOneLookupServeRequestsInARow) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("kept")));
  resolver_.setAddresses("peer.test", {"127.0.0.1"});
  for (int i = 0; i < 10; ++i) EXPECT_EQ(get(urlOf("peer.test", server.port()))->response.body, "kept");
  EXPECT_EQ(server.acceptCount(), 1u);
  EXPECT_EQ(resolver_.lookupCount(), 1u);
}

TEST_F(HTTPClientConnectionTests, HeadAndGetAndStreamsShareTheConnection) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    for (auto request = connection.readRequest(); !request.empty(); request = connection.readRequest()) {
      connection.send(request.starts_with("HEAD") ? "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n"
                                                  : "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc");
    }
  });
  const auto head = Exchange::start(*client_, {.url = server.url(), .method = "HEAD"});
  ASSERT_TRUE(head->wait());
  const auto stream = Exchange::stream(*client_, {.url = server.url()});
  ASSERT_TRUE(stream->wait());
  EXPECT_EQ(stream->streamed, "abc");
  EXPECT_EQ(get(server.url())->response.body, "abc");
  EXPECT_EQ(server.acceptCount(), 1u);
}

TEST_F(HTTPClientConnectionTests, HostsOnTheSamePortAreKeptApart) {
  ScriptedHTTPServer one(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("one")));
  ScriptedHTTPServer two(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("two")), "127.0.0.2",
                         one.port());
  resolver_.setAddresses("one.test", {"127.0.0.1"});
  resolver_.setAddresses("two.test", {"127.0.0.2"});
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(get(urlOf("one.test", one.port()))->response.body, "one");
    EXPECT_EQ(get(urlOf("two.test", one.port()))->response.body, "two");
    EXPECT_EQ(get(two.url())->response.body, "two");
  }
  EXPECT_EQ(one.acceptCount(), 1u);
  EXPECT_EQ(two.acceptCount(), 2u);
}

TEST_F(HTTPClientConnectionTests, KeptConnectionThatEndedIsReplaced) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send(ScriptedHTTPServer::answer("once"));
  });
  for (std::size_t i = 1; i <= 3; ++i) {
    EXPECT_EQ(get(server.url())->response.body, "once");
    EXPECT_TRUE(waitFor([&server] { return server.openCount() == 0; }));
    EXPECT_EQ(server.acceptCount(), i);
  }
}

TEST_F(HTTPClientConnectionTests, KeptConnectionThatEndsUnderTheNextRequestIsReplaced) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send(ScriptedHTTPServer::answer("again"));
    // The next request is read and then dropped with the connection.
    connection.readRequest();
    if (connection.index() == 0) connection.reset();
  });
  EXPECT_EQ(get(server.url())->response.body, "again");
  EXPECT_EQ(get(server.url())->response.body, "again");
  EXPECT_EQ(server.acceptCount(), 2u);
}

TEST_F(HTTPClientConnectionTests, PeerThatMovedToAnotherAddressIsFoundAgain) {
  auto server = std::make_unique<ScriptedHTTPServer>(
      ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("old")));
  const auto url = urlOf("peer.test", server->port());
  resolver_.setAddresses("peer.test", {"127.0.0.1"});
  EXPECT_EQ(get(url)->response.body, "old");
  ScriptedHTTPServer moved(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("new")), "127.0.0.2",
                           server->port());
  server.reset();
  resolver_.setAddresses("peer.test", {"127.0.0.2"});
  EXPECT_EQ(get(url)->response.body, "new");
}

TEST_F(HTTPClientConnectionTests, RequestsToOneHostWaitForTheirTurn) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    while (!connection.readRequest().empty()) {
      std::this_thread::sleep_for(2ms);
      connection.send(ScriptedHTTPServer::answer("turn"));
    }
  });
  std::vector<std::shared_ptr<Exchange>> exchanges;
  for (std::size_t i = 0; i < 3 * HTTPClientMaxTransfersPerHost; ++i) {
    exchanges.push_back(Exchange::start(*client_, {.url = server.url()}));
  }
  exchanges.back()->task->cancel();
  for (const auto& exchange : exchanges) ASSERT_TRUE(exchange->wait());
  for (std::size_t i = 0; i + 1 < exchanges.size(); ++i) EXPECT_EQ(exchanges[i]->response.body, "turn");
  EXPECT_EQ(exchanges.back()->code(), HTTPClientErrorCancelled);
  EXPECT_LE(server.highestOpenCount(), HTTPClientMaxTransfersPerHost);
  EXPECT_LE(server.acceptCount(), HTTPClientMaxTransfersPerHost);
}

TEST_F(HTTPClientConnectionTests, NameIsTakenWithItsTrailingDotAndInAnyCase) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("named")));
  resolver_.setAddresses("peer.local.", {"127.0.0.1"});
  EXPECT_EQ(get(urlOf("peer.local.", server.port()))->response.body, "named");
  resolver_.setAddresses("PEER.LOCAL", {"127.0.0.1"});
  resolver_.setAddresses("peer.local", {"127.0.0.1"});
  EXPECT_EQ(get(urlOf("PEER.LOCAL", server.port()))->response.body, "named");
}

TEST_F(HTTPClientConnectionTests, ReachesScopedAddresses) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("six")), "::1");
  EXPECT_EQ(get(server.url())->response.body, "six");
  EXPECT_EQ(get(urlOf("[::1%25lo]", server.port()))->response.body, "six");
  resolver_.setAddresses("peer.test", {"::1%lo"});
  EXPECT_EQ(get(urlOf("peer.test", server.port()))->response.body, "six");
}

TEST_F(HTTPClientConnectionTests, UnknownHostsAndRefusedConnectionsFail) {
  EXPECT_EQ(get("http://nobody.test/")->code(), 6);
  const auto refused = get(urlOf("127.0.0.1", unusedPort()));
  EXPECT_EQ(refused->code(), 7);
  EXPECT_FALSE(refused->error->localizedDescription.empty());
}

TEST_F(HTTPClientConnectionTests, DeadAddressesOfALivingHostCostLittle) {
  BlackHole hole;
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("alive")),
                            "127.0.0.2", hole.port());
  resolver_.setAddresses("half-dead.test", {"127.0.0.1", "127.0.0.2"});
  const auto begin = Clock::now();
  EXPECT_EQ(get(urlOf("half-dead.test", server.port()), 5s)->response.body, "alive");
  EXPECT_LT(Clock::now() - begin, 2s);
}

TEST_F(HTTPClientConnectionTests, RefusingAddressIsFollowedByTheNextAtOnce) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("next")),
                            "127.0.0.2");
  resolver_.setAddresses("peer.test", {"127.0.0.1", "127.0.0.2"});
  EXPECT_EQ(get(urlOf("peer.test", server.port()))->response.body, "next");
}

TEST_F(HTTPClientConnectionTests, TimeoutCoversLookupConnectAndSilence) {
  BlackHole hole;
  resolver_.setSilent("silent.test");
  ScriptedHTTPServer mute([](ScriptedConnection& connection) { connection.stall(); });
  for (const auto& url : {urlOf("silent.test", 80), urlOf("127.0.0.1", hole.port()), mute.url()}) {
    const auto took = timeUntilTimeout(url, 300ms);
    EXPECT_GE(took, 300ms) << url;
    EXPECT_LT(took, 3s) << url;
  }
}

TEST_F(HTTPClientConnectionTests, TimeoutCoversSilenceAnywhereInTheAnswer) {
  const std::string whole = "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabcdef";
  for (const std::size_t sent : {std::size_t{3}, std::size_t{20}, std::size_t{36}, whole.size() - 2}) {
    ScriptedHTTPServer server([&whole, sent](ScriptedConnection& connection) {
      connection.readRequest();
      connection.send(std::string_view(whole).substr(0, sent));
      connection.stall();
    });
    EXPECT_GE(timeUntilTimeout(server.url(), 150ms), 150ms) << sent;
  }
}

TEST_F(HTTPClientConnectionTests, SlowAnswerThatMakesProgressIsNeverCut) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    // Status line and headers included: bytes count, not lines.
    connection.drip("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabcdef", 25ms);
  });
  const auto begin = Clock::now();
  const auto exchange = get(server.url(), 400ms);
  EXPECT_EQ(exchange->response.body, "abcdef") << exchange->code();
  EXPECT_GT(Clock::now() - begin, 800ms);
}

TEST_F(HTTPClientConnectionTests, SilenceOfOneHostDoesNotDelayAnother) {
  ScriptedHTTPServer mute([](ScriptedConnection& connection) { connection.stall(); });
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("quick")));
  const auto stuck = Exchange::start(*client_, {.url = mute.url(), .inactivityTimeout = 60s});
  EXPECT_EQ(get(server.url(), 2s)->response.body, "quick");
  stuck->task->cancel();
  EXPECT_TRUE(stuck->wait());
}

}  // namespace
}  // namespace ferrox::test
