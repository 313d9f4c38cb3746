#include <gtest/gtest.h>

#include <cstdlib>
#include <future>
#include <vector>

#include "Platform/HTTP/Client/HTTPClient.h"
#include "Tests/Platform/HTTP/Client/Exchange.h"
#include "Tests/Support/BlackHole.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

class HTTPClientTests : public ::testing::Test {
 protected:
  std::shared_ptr<Exchange> get(const std::string& url) { return Exchange::start(*client_, {.url = url}); }
  std::shared_ptr<Exchange> getAndWait(const std::string& url) {
    auto exchange = get(url);
    EXPECT_TRUE(exchange->wait());
    return exchange;
  }

  ScriptedResolver resolver_;
  std::unique_ptr<HTTPClient> client_ = HTTPClient::make(resolver_);
};

TEST_F(HTTPClientTests, DeliversStatusHeadersAndBody) {
  ScriptedHTTPServer server(
      ScriptedHTTPServer::answeringWith("HTTP/1.1 404 Not Here\r\nX-One:  first \r\nx-one: "
                                        "second\r\nX-Empty:\r\nContent-Length: 4\r\n\r\ngone"));
  const auto exchange = getAndWait(server.url());
  ASSERT_FALSE(exchange->error) << exchange->error->localizedDescription;
  EXPECT_EQ(exchange->response.status, 404);
  EXPECT_EQ(exchange->response.body, "gone");
  ASSERT_EQ(exchange->response.headers.size(), 4u);
  EXPECT_EQ(exchange->response.headers[0].first, "X-One");
  ASSERT_NE(exchange->response.header("X-ONE"), nullptr);
  EXPECT_EQ(*exchange->response.header("X-ONE"), "first");
  ASSERT_NE(exchange->response.header("x-empty"), nullptr);
  EXPECT_EQ(*exchange->response.header("x-empty"), "");
  EXPECT_EQ(exchange->response.header("X-Other"), nullptr);
}

TEST_F(HTTPClientTests, SendsMethodPathAndHeadersAsGiven) {
  std::promise<std::string> received;
  ScriptedHTTPServer server([&received](ScriptedConnection& connection) {
    received.set_value(connection.readRequest());
    connection.send(ScriptedHTTPServer::answer("x"));
  });
  const auto exchange = Exchange::start(*client_, {.url = server.url("/a/../b%2F?c=d#part"),
                                                   .method = "DELETE",
                                                   .headers = {{"Range", "bytes=0-4"}, {"X-Empty", ""}}});
  ASSERT_TRUE(exchange->wait());
  const std::string request = received.get_future().get();
  EXPECT_TRUE(request.starts_with("DELETE /a/../b%2F?c=d HTTP/1.1\r\n")) << request;
  EXPECT_NE(request.find("\r\nRange: bytes=0-4\r\n"), std::string::npos) << request;
  EXPECT_NE(request.find("\r\nX-Empty:\r\n"), std::string::npos) << request;
  EXPECT_NE(request.find("\r\nHost: 127.0.0.1:" + std::to_string(server.port()) + "\r\n"), std::string::npos);
}

TEST_F(HTTPClientTests, HeadHasNoBodyAndKeepsTheLength) {
  ScriptedHTTPServer server(
      ScriptedHTTPServer::answeringWith("HTTP/1.1 200 OK\r\nContent-Length: 1234\r\n\r\n"));
  const auto exchange = Exchange::start(*client_, {.url = server.url(), .method = "HEAD"});
  ASSERT_TRUE(exchange->wait());
  ASSERT_FALSE(exchange->error) << exchange->error->localizedDescription;
  EXPECT_EQ(*exchange->response.header("content-length"), "1234");
  EXPECT_EQ(exchange->response.body, "");
}

TEST_F(HTTPClientTests, StreamsTheBodyAfterTheResponse) {
  const std::string body(3 << 20, 'b');
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer(body)));
  const auto exchange = Exchange::stream(*client_, {.url = server.url()});
  ASSERT_TRUE(exchange->wait());
  ASSERT_FALSE(exchange->error);
  EXPECT_EQ(exchange->statusBeforeBody, 200);
  EXPECT_EQ(exchange->streamed, body);
  EXPECT_EQ(exchange->response.body, "");
}

TEST_F(HTTPClientTests, InterimAnswersAndRedirectsAreNotFollowed) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(
      "HTTP/1.1 103 Early Hints\r\nLink: early\r\n\r\nHTTP/1.1 302 Found\r\nLocation: "
      "http://127.0.0.1:1/\r\nContent-Length: 0\r\n\r\n"));
  const auto exchange = Exchange::stream(*client_, {.url = server.url()});
  ASSERT_TRUE(exchange->wait());
  ASSERT_FALSE(exchange->error);
  EXPECT_EQ(exchange->response.status, 302);
  EXPECT_EQ(exchange->responses, 1);
  EXPECT_EQ(exchange->response.header("Link"), nullptr);
}

TEST_F(HTTPClientTests, TrailersAreNotTakenForHeaders) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\nX-Trailer: late\r\n\r\n"));
  const auto exchange = getAndWait(server.url());
  ASSERT_FALSE(exchange->error);
  EXPECT_EQ(exchange->response.body, "abc");
  EXPECT_EQ(exchange->response.header("X-Trailer"), nullptr);
}

TEST_F(HTTPClientTests, ProxiesOfTheEnvironmentAreNotUsed) {
  ::setenv("http_proxy", "http://127.0.0.1:1", 1);
  ::setenv("all_proxy", "http://127.0.0.1:1", 1);
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("direct")));
  EXPECT_EQ(getAndWait(server.url())->response.body, "direct");
  ::unsetenv("http_proxy");
  ::unsetenv("all_proxy");
}

TEST_F(HTTPClientTests, RefusesWhatIsNoHttpURL) {
  const std::string tooLong(254, 'a');
  for (const std::string& url : {std::string(),
                                 std::string("127.0.0.1/"),
                                 std::string("ftp://127.0.0.1/"),
                                 std::string("https://127.0.0.1/"),
                                 std::string("file:///etc/hostname"),
                                 std::string("http://"),
                                 std::string("http:///path"),
                                 std::string("http:/host/path"),
                                 std::string("http://a b/"),
                                 std::string("http://a%20b/"),
                                 std::string("http://host\n/"),
                                 std::string("http://host/a\r\nX: y"),
                                 std::string("http://host:0/"),
                                 std::string("http://host:65536/"),
                                 std::string("http://host:x/"),
                                 std::string("http://user:pw@host/"),
                                 std::string("http://a..b/"),
                                 "http://" + tooLong + "/",
                                 std::string("http://[::1/"),
                                 std::string("http://h/a\0b", 12)}) {
    const auto exchange = getAndWait(url);
    EXPECT_EQ(exchange->code(), HTTPClientErrorBadURL) << url;
    EXPECT_EQ(exchange->error ? exchange->error->domain : "", HTTPClientErrorDomain) << url;
  }
  EXPECT_EQ(resolver_.lookupCount(), 0u);
}

TEST_F(HTTPClientTests, RefusesMethodsAndHeadersThatForgeARequest) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("x")));
  for (const std::string method : {"", "GET /x", "GET\r\nX: y", "G\tT"}) {
    const auto exchange = Exchange::start(*client_, {.url = server.url(), .method = method});
    ASSERT_TRUE(exchange->wait());
    EXPECT_EQ(exchange->code(), HTTPClientErrorInvalidRequest) << method;
  }
  using Header = std::pair<std::string, std::string>;
  for (const Header& header :
       {Header{"", "x"}, Header{"A:", "x"}, Header{"A B", "x"}, Header{"A", "x\r\nB: y"}, Header{"A", "x\ny"},
        Header{"A\r\nB", "x"}, Header{"A", std::string("x\0y", 3)}}) {
    const auto exchange = Exchange::start(*client_, {.url = server.url(), .headers = {header}});
    ASSERT_TRUE(exchange->wait());
    EXPECT_EQ(exchange->code(), HTTPClientErrorInvalidRequest) << header.first;
  }
  EXPECT_EQ(server.acceptCount(), 0u);
}

TEST_F(HTTPClientTests, CompletionIsNeverInsideSendAndNeverOnTheTransferThread) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("x")));
  std::atomic<std::thread::id> transferThread;
  std::promise<std::thread::id> completionThread;
  client_->send({.url = server.url()}, {.onResponse =
                                            [&](const HTTPClientResponse&) {
                                              transferThread = std::this_thread::get_id();
                                              return true;
                                            },
                                        .onData = nullptr,
                                        .onCompletion =
                                            [&](const std::optional<FRXError>&, const HTTPClientResponse&) {
                                              completionThread.set_value(std::this_thread::get_id());
                                            }});
  const auto thread = completionThread.get_future().get();
  EXPECT_NE(thread, transferThread.load());
  EXPECT_NE(thread, std::this_thread::get_id());
  EXPECT_NE(getAndWait("not a url")->completionThread, std::this_thread::get_id());
}

TEST_F(HTTPClientTests, CompletionsMayBlockOnOtherRequests) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("inner")));
  constexpr int count = 20;
  std::atomic<int> done{0};
  for (int i = 0; i < count; ++i) {
    client_->send({.url = server.url()},
                  {.onResponse = nullptr,
                   .onData = nullptr,
                   .onCompletion = [&](const std::optional<FRXError>&, const HTTPClientResponse&) {
                     const auto inner = get(server.url());
                     if (inner->wait() && inner->response.body == "inner") ++done;
                   }});
  }
  EXPECT_TRUE(waitFor([&done] { return done == count; }));
}

TEST_F(HTTPClientTests, ThrowingCallbacksHarmNobodyElse) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("fine")));
  std::promise<int> code;
  client_->send({.url = server.url()},
                {.onResponse = nullptr,
                 .onData = [](std::string_view) -> bool { throw std::runtime_error("data"); },
                 .onCompletion =
                     [&code](const std::optional<FRXError>& error, const HTTPClientResponse&) {
                       code.set_value(error ? error->code : 0);
                       throw std::runtime_error("completion");
                     }});
  EXPECT_EQ(code.get_future().get(), HTTPClientErrorCancelled);
  EXPECT_EQ(getAndWait(server.url())->response.body, "fine");
}

TEST_F(HTTPClientTests, RequestWithoutCallbacksIsSentAllTheSame) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("x")));
  client_->send({.url = server.url()}, {});
  EXPECT_TRUE(waitFor([&server] { return server.acceptCount() == 1; }));
}

TEST_F(HTTPClientTests, CancellingEndsAStalledRequest) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
    connection.stall();
  });
  const auto exchange = Exchange::stream(*client_, {.url = server.url(), .inactivityTimeout = std::nullopt});
  ASSERT_TRUE(exchange->waitForData(4));
  std::thread([&exchange] { exchange->task->cancel(); }).join();
  ASSERT_TRUE(exchange->wait());
  EXPECT_EQ(exchange->code(), HTTPClientErrorCancelled);
  exchange->task->cancel();
  EXPECT_TRUE(waitFor([&server] { return server.openCount() == 0; }));
  EXPECT_EQ(exchange->completions, 1);
}

TEST_F(HTTPClientTests, CancellingEndsAConnectionAttemptAndALookup) {
  BlackHole hole;
  resolver_.setSilent("silent.test");
  for (const std::string& host : {std::string("127.0.0.1"), std::string("silent.test")}) {
    const auto exchange = get("http://" + host + ":" + std::to_string(hole.port()) + "/");
    exchange->task->cancel();
    ASSERT_TRUE(exchange->wait());
    EXPECT_EQ(exchange->code(), HTTPClientErrorCancelled);
  }
}

TEST_F(HTTPClientTests, RefusingResponseOrDataCancels) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    while (!connection.readRequest().empty()) {
      connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nbegin");
      connection.stall();
    }
  });
  const auto refuse = [&](bool response) {
    std::promise<int> code;
    client_->send(
        {.url = server.url()},
        {.onResponse = [response](const HTTPClientResponse&) { return response; },
         .onData = [](std::string_view) { return false; },
         .onCompletion = [&code](const std::optional<FRXError>& error,
                                 const HTTPClientResponse&) { code.set_value(error ? error->code : 0); }});
    return code.get_future().get();
  };
  EXPECT_EQ(refuse(false), HTTPClientErrorCancelled);
  EXPECT_EQ(refuse(true), HTTPClientErrorCancelled);
}

TEST_F(HTTPClientTests, CancellingAtAnyMomentCompletesExactlyOnce) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("abc")));
  std::vector<std::shared_ptr<Exchange>> exchanges;
  for (int i = 0; i < 200; ++i) {
    exchanges.push_back(get(server.url()));
    std::this_thread::sleep_for(std::chrono::microseconds(i * 5));
    exchanges.back()->task->cancel();
  }
  for (const auto& exchange : exchanges) ASSERT_TRUE(exchange->wait());
  client_.reset();
  for (const auto& exchange : exchanges) {
    EXPECT_EQ(exchange->completions, 1);
    EXPECT_TRUE(exchange->code() == HTTPClientErrorCancelled || exchange->response.body == "abc");
  }
}

TEST_F(HTTPClientTests, DestroyingTheClientCancelsAndWaits) {
  BlackHole hole;
  ScriptedHTTPServer server([](ScriptedConnection& connection) { connection.stall(); });
  std::vector<std::shared_ptr<Exchange>> exchanges;
  // More than may run at once, so that some are still in line.
  for (std::size_t i = 0; i < HTTPClientMaxTransfersPerHost + 8; ++i) exchanges.push_back(get(server.url()));
  exchanges.push_back(get("http://127.0.0.1:" + std::to_string(hole.port()) + "/"));
  ASSERT_TRUE(waitFor([&server] { return server.acceptCount() > 0; }));
  client_.reset();
  for (const auto& exchange : exchanges) {
    EXPECT_EQ(exchange->completions, 1);
    EXPECT_EQ(exchange->code(), HTTPClientErrorCancelled);
    exchange->task->cancel();
  }
}

}  // namespace
}  // namespace ferrox::test
