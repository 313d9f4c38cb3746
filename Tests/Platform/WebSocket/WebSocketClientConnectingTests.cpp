// From the URL to the open socket, against servers that misbehave.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>

#include "Platform/Net/ConnectionRace.h"
#include "Tests/Platform/WebSocket/ClientFixture.h"
#include "Tests/Support/BlackHole.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

class WebSocketClientConnecting : public ScriptedClientTest {
 protected:
  /// The handshake is answered with what `answer` makes of the right one; the failure's text.
  std::string failureAfter(const std::function<std::string(std::string)>& answer) {
    serve([answer](ScriptedPeer&, ScriptedConnection& connection) {
      const std::string request = connection.readRequest();
      connection.send(answer(ScriptedPeer::answerTo(request)));
      connection.stall();
    });
    open();
    EXPECT_TRUE(waitForEnd());
    EXPECT_EQ(delegate().opened, 0);
    if (delegate().failures.empty()) return "no failure";
    EXPECT_EQ(delegate().failures[0].domain, WebSocketClientErrorDomain);
    EXPECT_EQ(delegate().failures[0].code, WebSocketClientErrorHandshake);
    EXPECT_EQ(client().readyState(), WebSocketReadyState::Closed);
    return delegate().failures[0].localizedDescription;
  }
  std::vector<std::string> requests_;
  static std::string replaced(std::string text, const std::string& what, const std::string& with) {
    return text.replace(text.find(what), what.size(), with);
  }
};

TEST_F(WebSocketClientConnecting, TheRequestIsWhatTheProtocolAsksFor) {
  serve([this](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    note([&] { requests_.push_back(peer.request); });
    peer.waitForEnd();
  });
  const std::string port = std::to_string(server_->port());
  for (int i = 0; i < 2; ++i) {
    open("ws://127.0.0.1:" + port + "/frxsocket?id=A%20B&hostname=c");
    ASSERT_TRUE(wait([&] { return delegate().opened == 1; }));
  }
  ASSERT_TRUE(wait([&] {
    const std::lock_guard lock(mutex_);
    return requests_.size() == 2;
  }));
  const std::string& request = requests_[0];
  EXPECT_TRUE(request.starts_with("GET /frxsocket?id=A%20B&hostname=c HTTP/1.1\r\n"));
  for (const std::string& line :
       {"Host: 127.0.0.1:" + port, std::string("Upgrade: websocket"), std::string("Connection: Upgrade"),
        std::string("Sec-WebSocket-Version: 13"), std::string("Sec-WebSocket-Key: ")}) {
    EXPECT_NE(request.find("\r\n" + line), std::string::npos) << line;
  }
  EXPECT_EQ(request.find("Sec-WebSocket-Extensions"), std::string::npos);
  EXPECT_NE(requests_[0], requests_[1]) << "the key is fresh for each";
}

TEST_F(WebSocketClientConnecting, AnotherStatusFails) {
  EXPECT_NE(failureAfter([](std::string) {
              return "HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n";
            }).find("403"),
            std::string::npos);
}

TEST_F(WebSocketClientConnecting, AWrongKeyFails) {
  failureAfter([](const std::string&) { return ScriptedPeer::answerTo("Sec-WebSocket-Key: other\r\n"); });
}

TEST_F(WebSocketClientConnecting, MissingOrForeignFieldsFail) {
  const std::vector<std::pair<std::string, std::string>> changes{
      {"Upgrade: websocket\r\n", ""},
      {"Upgrade: websocket", "Upgrade: h2c"},
      {"Connection: Upgrade\r\n", ""},
      {"Connection: Upgrade", "Connection: close"},
      {"Sec-WebSocket-Accept", "X-Accept"},
      {"HTTP/1.1 101", "HTTP/1.0 101"},
      {"\r\n\r\n", "\r\nSec-WebSocket-Extensions: permessage-deflate\r\n\r\n"},
      {"\r\n\r\n", "\r\nSec-WebSocket-Protocol: chat\r\n\r\n"},
      {"\r\n\r\n", "\r\nSec-WebSocket-Accept: second\r\n\r\n"},
      {"HTTP/1.1 101", "HTTQ/1.1 101"}};
  for (const auto& [what, with] : changes) {
    const std::string text = failureAfter([what = what, with = with](std::string answer) {
      return answer.replace(answer.find(what), what.size(), with);
    });
    EXPECT_NE(text, "no failure") << what << " -> " << with;
  }
}

TEST_F(WebSocketClientConnecting, HeaderNamesAndTokensAreComparedInAnyCase) {
  serve([](ScriptedPeer&, ScriptedConnection& connection) {
    std::string answer = ScriptedPeer::answerTo(connection.readRequest());
    answer = replaced(answer, "Upgrade: websocket", "uPGRADE: WebSocket");
    answer = replaced(answer, "Connection: Upgrade", "connection: keep-alive,  upgrade");
    connection.send(answer);
    connection.stall();
  });
  open();
  EXPECT_TRUE(wait([&] { return delegate().opened == 1; }));
}

TEST_F(WebSocketClientConnecting, AnEndlessHeaderFails) {
  serve([](ScriptedPeer&, ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 101 Switching Protocols\r\n");
    const std::string line = "X-More: " + std::string(1000, 'x') + "\r\n";
    while (connection.send(line)) {
    }
  });
  open();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().failureCode(), WebSocketClientErrorHandshake);
}

TEST_F(WebSocketClientConnecting, AnAnswerInSinglePiecesIsRead) {
  serve([](ScriptedPeer&, ScriptedConnection& connection) {
    const std::string answer = ScriptedPeer::answerTo(connection.readRequest());
    connection.drip(answer + textFrame("first"), 0ms);
    connection.stall();
  });
  open();
  ASSERT_TRUE(wait([&] { return delegate().messages.size() == 1; }));
  EXPECT_EQ(delegate().messages[0], "first");
}

TEST_F(WebSocketClientConnecting, SilenceTimesOut) {
  serve([](ScriptedPeer&, ScriptedConnection& connection) { connection.stall(); });
  request_.connectTimeout = 200ms;
  const auto begin = std::chrono::steady_clock::now();
  open();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().failureCode(), WebSocketClientErrorTimedOut);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 200ms);
}

TEST_F(WebSocketClientConnecting, HalfAnAnswerTimesOut) {
  serve([](ScriptedPeer&, ScriptedConnection& connection) {
    const std::string answer = ScriptedPeer::answerTo(connection.readRequest());
    connection.send(answer.substr(0, answer.size() / 2));
    connection.stall();
  });
  request_.connectTimeout = 200ms;
  open();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().failureCode(), WebSocketClientErrorTimedOut);
}

TEST_F(WebSocketClientConnecting, AConnectionThatEndsDuringTheHandshakeFails) {
  serve([](ScriptedPeer&, ScriptedConnection& connection) { connection.readRequest(); });
  open();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().failureCode(), WebSocketClientErrorHandshake);
}

TEST_F(WebSocketClientConnecting, AHostThatDropsPacketsTimesOut) {
  BlackHole hole;
  request_.connectTimeout = 200ms;
  open("ws://127.0.0.1:" + std::to_string(hole.port()) + "/");
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().failures[0].domain, WebSocketClientErrorDomain);
  EXPECT_EQ(delegate().failureCode(), WebSocketClientErrorTimedOut);
}

TEST_F(WebSocketClientConnecting, ALookUpWithoutAnswerTimesOut) {
  resolver_.setSilent("silent.local.");
  request_.connectTimeout = 200ms;
  open("ws://silent.local.:1234/");
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().failureCode(), WebSocketClientErrorTimedOut);
}

TEST_F(WebSocketClientConnecting, RefusedAndUnknownHostsFailWithTheirOwnErrors) {
  open("ws://127.0.0.1:" + std::to_string(unusedPort()) + "/");
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().failures[0].domain, SocketErrorDomain);
  EXPECT_EQ(delegate().failureCode(), ECONNREFUSED);
  open("ws://nobody.test:1234/");
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().failures[0].domain, HostNameResolverErrorDomain);
  EXPECT_EQ(delegate().failureCode(), HostNameResolverErrorNotFound);
}

TEST_F(WebSocketClientConnecting, DeadAddressesArePassedBy) {
  serve([](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    peer.waitForEnd();
  });
  resolver_.setAddresses("many.local.", {"127.0.0.2", "::1", "127.0.0.1"});
  open(url("many.local."));
  EXPECT_TRUE(wait([&] { return delegate().opened == 1; }));
}

TEST_F(WebSocketClientConnecting, AnIPv6LiteralStandsInBracketsInTheHostField) {
  serve(
      [this](ScriptedPeer& peer, ScriptedConnection&) {
        peer.accept();
        note([&] { requests_.push_back(peer.request); });
        peer.waitForEnd();
      },
      "::1");
  open(url("[::1]"));
  ASSERT_TRUE(wait([&] {
    const std::lock_guard lock(mutex_);
    return delegate().opened == 1 && !requests_.empty();
  }));
  const std::lock_guard lock(mutex_);
  EXPECT_NE(requests_.at(0).find("\r\nHost: [::1]:" + std::to_string(server_->port()) + "\r\n"),
            std::string::npos);
}

TEST_F(WebSocketClientConnecting, ClosingWhileConnectingEndsItLater) {
  serve([](ScriptedPeer&, ScriptedConnection& connection) { connection.stall(); });
  open();
  ASSERT_TRUE(waitFor([&] { return server_->acceptCount() == 1; }));
  client().close();
  EXPECT_EQ(client().readyState(), WebSocketReadyState::Closing);
  EXPECT_FALSE(delegate().hasEnded());
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().closes, (Closes{{1006, "", false}}));
  EXPECT_EQ(client().readyState(), WebSocketReadyState::Closed);
  EXPECT_TRUE(waitFor([&] { return server_->openCount() == 0; })) << "the connection is cut";
  client().open();
  client().close();
  loop_.runPending();
  EXPECT_EQ(delegate().endCount(), 1U);
}

TEST_F(WebSocketClientConnecting, ClosingBeforeOpeningSaysNothing) {
  serve([](ScriptedPeer&, ScriptedConnection& connection) { connection.stall(); });
  request_.url = url();
  const auto unopened = WebSocketClient::make(request_, resolver_, loop_);
  const auto listener = std::make_shared<RecordingDelegate>(loop_);
  unopened->setDelegate(listener);
  unopened->close();
  unopened->open();
  loop_.runPending();
  EXPECT_EQ(unopened->readyState(), WebSocketReadyState::Closed);
  EXPECT_FALSE(listener->hasEnded());
  EXPECT_EQ(server_->acceptCount(), 0U);
}

TEST_F(WebSocketClientConnecting, TheDialDelayIsWaitedForAndNotCounted) {
  serve([](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    peer.waitForEnd();
  });
  request_.dialDelay = 300ms;
  request_.connectTimeout = 250ms;
  const auto begin = std::chrono::steady_clock::now();
  open();
  ASSERT_TRUE(wait([&] { return delegate().opened == 1; }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
}

TEST_F(WebSocketClientConnecting, ClosingDuringTheDialDelayNeverDials) {
  serve([](ScriptedPeer&, ScriptedConnection& connection) { connection.stall(); });
  request_.dialDelay = 50ms;
  open();
  client().close();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().closes, (Closes{{1006, "", false}}));
  loop_.runUntil([] { return false; }, 100ms);
  EXPECT_EQ(server_->acceptCount(), 0U);
}

TEST_F(WebSocketClientConnecting, ASecondOpenDoesNothing) {
  serve([](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    peer.waitForEnd();
  });
  open();
  client().open();
  ASSERT_TRUE(wait([&] { return delegate().opened == 1; }));
  client().open();
  loop_.runPending();
  EXPECT_EQ(server_->acceptCount(), 1U);
}

}  // namespace
}  // namespace ferrox::test
