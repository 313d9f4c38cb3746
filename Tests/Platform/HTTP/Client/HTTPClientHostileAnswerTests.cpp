// Answers that are cut, malformed, or without end.
#include <gtest/gtest.h>

#include "Platform/HTTP/Client/HTTPClient.h"
#include "Tests/Platform/HTTP/Client/Exchange.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

class HTTPClientHostileAnswerTests : public ::testing::Test {
 protected:
  std::shared_ptr<Exchange> exchangeWith(ScriptedHTTPServer::Script script, HTTPClientRequest request = {}) {
    ScriptedHTTPServer server(std::move(script));
    request.url = server.url();
    request.inactivityTimeout = 3s;
    auto exchange = Exchange::start(*client_, std::move(request));
    EXPECT_TRUE(exchange->wait());
    return exchange;
  }
  std::shared_ptr<Exchange> exchangeWithAnswer(const std::string& answer, bool reset = false) {
    return exchangeWith([answer, reset](ScriptedConnection& connection) {
      connection.readRequest();
      connection.send(answer);
      if (reset) connection.reset();
    });
  }
  static ScriptedHTTPServer::Script endless(std::string beginning, std::string piece) {
    return [beginning = std::move(beginning), piece = std::move(piece)](ScriptedConnection& connection) {
      connection.readRequest();
      connection.send(beginning);
      while (connection.send(piece)) {
      }
    };
  }

  ScriptedResolver resolver_;
  std::unique_ptr<HTTPClient> client_ = HTTPClient::make(resolver_);
};

TEST_F(HTTPClientHostileAnswerTests, EveryCutOfASizedAnswerIsAnError) {
  const std::string whole = "HTTP/1.1 200 OK\r\nX-Test: yes\r\nContent-Length: 5\r\n\r\nhello";
  for (const bool reset : {false, true}) {
    for (std::size_t sent = 0; sent < whole.size(); ++sent) {
      const auto exchange = exchangeWithAnswer(whole.substr(0, sent), reset);
      EXPECT_TRUE(exchange->error) << sent << (reset ? " reset" : " closed");
      EXPECT_EQ(exchange->completions, 1) << sent;
    }
  }
  EXPECT_EQ(exchangeWithAnswer(whole)->response.body, "hello");
}

TEST_F(HTTPClientHostileAnswerTests, EveryCutOfAChunkedBodyIsAnError) {
  const std::string head = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  const std::string chunks = "3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n";
  // The very last line break may be missing: the last chunk has come by then.
  for (std::size_t sent = 0; sent + 4 <= chunks.size(); ++sent) {
    EXPECT_TRUE(exchangeWithAnswer(head + chunks.substr(0, sent))->error) << sent;
  }
  EXPECT_EQ(exchangeWithAnswer(head + chunks)->response.body, "abcde");
}

TEST_F(HTTPClientHostileAnswerTests, MalformedAnswersAreErrors) {
  for (const std::string answer :
       {"\r\n\r\n", "garbage", "garbage\r\n\r\n", "SSH-2.0-OpenSSH_9.2\r\n", "<html>hello</html>\n",
        "HTTP/1.1 abc OK\r\n\r\n", "HTTP/9.9 200 OK\r\n\r\n", "HTTP/1.1\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\nhello",
        "HTTP/1.1 200 OK\r\nno colon here\r\nContent-Length: 0\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 5x\r\n\r\nhello",
        "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 3\r\n\r\nhello",
        "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999999\r\n\r\nhello",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\nabc\r\n0\r\n\r\n",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nffffffffffffffffff\r\nabc",
        "HTTP/1.1 100 Continue\r\n\r\n"}) {
    const auto exchange = exchangeWithAnswer(answer);
    EXPECT_TRUE(exchange->error) << answer;
  }
}

TEST_F(HTTPClientHostileAnswerTests, BodyWithoutLengthEndsWithTheConnection) {
  EXPECT_EQ(exchangeWithAnswer("HTTP/1.0 200 OK\r\n\r\nuntil the end")->response.body, "until the end");
}

TEST_F(HTTPClientHostileAnswerTests, HeadersBeyondTheLimitAreRefused) {
  const std::string head = "HTTP/1.1 200 OK\r\n";
  EXPECT_EQ(exchangeWith(endless(head, "X-Again: and again\r\n"))->code(), HTTPClientErrorHeaderTooLarge);
  EXPECT_EQ(exchangeWith(endless("", "HTTP/1.1 100 Continue\r\n\r\n"))->code(),
            HTTPClientErrorHeaderTooLarge);
  // One line without end fails, whoever notices first.
  EXPECT_TRUE(exchangeWith(endless(head + "X-Long: ", std::string(4096, 'x')))->error);
  EXPECT_TRUE(exchangeWith(endless("HTTP/1.1 200 ", std::string(4096, 'x')))->error);
}

TEST_F(HTTPClientHostileAnswerTests, HeadersUpToTheLimitAreTaken) {
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nX-Long: ";
  const std::string end = "\r\n\r\n";
  const std::size_t room = HTTPClientMaxHeaderSize - head.size() - end.size();
  EXPECT_EQ(exchangeWithAnswer(head + std::string(room, 'x') + end)->response.status, 200);
  EXPECT_EQ(exchangeWithAnswer(head + std::string(room + 1, 'x') + end)->code(),
            HTTPClientErrorHeaderTooLarge);
}

TEST_F(HTTPClientHostileAnswerTests, CollectedBodyBeyondTheLimitIsRefused) {
  const HTTPClientRequest limited{.url = {}, .maxBodySize = 1000};
  const auto sized = [](std::size_t size) {
    return ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer(std::string(size, 'x')));
  };
  EXPECT_EQ(exchangeWith(sized(1000), limited)->response.body.size(), 1000u);
  EXPECT_EQ(exchangeWith(sized(1001), limited)->code(), HTTPClientErrorBodyTooLarge);
  const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  EXPECT_EQ(exchangeWith(endless(chunked, "4\r\nabcd\r\n"), limited)->code(), HTTPClientErrorBodyTooLarge);
  EXPECT_EQ(exchangeWith(endless("HTTP/1.0 200 OK\r\n\r\n", "abcd"), limited)->code(),
            HTTPClientErrorBodyTooLarge);
}

TEST_F(HTTPClientHostileAnswerTests, FoldedHeaderLinesAreJoined) {
  const auto exchange =
      exchangeWithAnswer("HTTP/1.1 200 OK\r\nX-Folded: one\r\n  two\r\nContent-Length: 2\r\n\r\nok");
  ASSERT_FALSE(exchange->error) << exchange->error->localizedDescription;
  EXPECT_EQ(*exchange->response.header("X-Folded"), "one two");
  EXPECT_EQ(exchange->response.body, "ok");
}

TEST_F(HTTPClientHostileAnswerTests, LengthThatIsNoNumberIsHandedOnWhereNoBodyDependsOnIt) {
  for (const std::string length : {"abc", "-5", "99999999999999999999999", "5, 5", ""}) {
    ScriptedHTTPServer server(
        ScriptedHTTPServer::answeringWith("HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\n"));
    for (int round = 0; round < 2; ++round) {
      const auto head = Exchange::start(*client_, {.url = server.url(), .method = "HEAD"});
      ASSERT_TRUE(head->wait());
      EXPECT_FALSE(head->error) << length;
      ASSERT_NE(head->response.header("Content-Length"), nullptr) << length;
      EXPECT_EQ(*head->response.header("Content-Length"), length);
    }
    EXPECT_EQ(server.acceptCount(), 1u) << length;
  }
}

TEST_F(HTTPClientHostileAnswerTests, AnswerToTheHeadThatSendsABodyDoesNotSpoilTheNext) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    for (auto request = connection.readRequest(); !request.empty(); request = connection.readRequest()) {
      connection.send(
          ScriptedHTTPServer::answer(request.starts_with("HEAD") ? "HTTP/1.1 500 Forged\r\n\r\n" : "true"));
    }
  });
  const auto head = Exchange::start(*client_, {.url = server.url(), .method = "HEAD"});
  ASSERT_TRUE(head->wait());
  EXPECT_EQ(head->response.status, 200);
  const auto next = Exchange::start(*client_, {.url = server.url()});
  ASSERT_TRUE(next->wait());
  EXPECT_EQ(next->response.status, 200);
  EXPECT_EQ(next->response.body, "true");
}

}  // namespace
}  // namespace ferrox::test
