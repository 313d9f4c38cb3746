#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "Platform/WebSocket/WebSocket.h"
#include "Tests/Platform/HTTP/Server/ServerFixture.h"
#include "Tests/Support/RawFrames.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

/// Remembers what happened to its endpoint, and echoes.
class Endpoint : public WebSocketListener {
 public:
  void webSocketDidOpen(WebSocket&) override {
    note([this] { ++opened; });
  }
  void webSocketDidReceiveMessage(WebSocket& socket, std::string_view text) override {
    if (beforeTaking) beforeTaking(socket);
    note([&] { received.emplace_back(text); });
    if (echoes) socket.sendMessage(std::string(text));
  }
  void webSocketDidClose(WebSocket&) override {
    note([this] { ++closed; });
  }

  bool waitFor(const std::function<bool()>& done) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, 10s, done);
  }
  template <typename Change>
  void note(const Change& change) {
    std::lock_guard lock(mutex);
    change();
    changed.notify_all();
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::atomic<int> opened = 0;
  std::atomic<int> closed = 0;
  std::vector<std::string> received;
  bool echoes = true;
  /// Runs on the connection's thread before each message is noted.
  std::function<void(WebSocket&)> beforeTaking;
};

const std::string upgradeFields =
    "Upgrade: websocket\r\nConnection: keep-alive, Upgrade\r\nSec-WebSocket-Version: 13\r\n"
    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";

class WebSocketTest : public ServerTest {
 protected:
  WebSocketTest() {
    script->webSocket = [this](std::string_view path, std::shared_ptr<WebSocketTransport> transport) {
      if (path != "/socket") return std::shared_ptr<WebSocket>();
      auto socket = std::make_shared<WebSocket>(std::move(transport));
      socket->setDelegate(endpoint);
      endpoint->note([&] { current = socket; });
      return socket;
    };
  }
  ~WebSocketTest() override { server.stop(); }

  RawSocket open() {
    RawSocket client = connect();
    EXPECT_TRUE(client.send("GET /socket HTTP/1.1\r\nHost: 127.0.0.1\r\n" + upgradeFields + "\r\n"));
    const auto response = client.readResponse();
    EXPECT_TRUE(response && response->status == 101);
    return client;
  }
  int statusOf(const std::string& fields, const std::string& line = "GET /socket HTTP/1.1") {
    RawSocket client = connect();
    EXPECT_TRUE(client.send(line + "\r\n" + fields + "\r\n"));
    const auto response = client.readResponse();
    return response ? response->status : 0;
  }
  std::shared_ptr<WebSocket> socket() {
    std::lock_guard lock(endpoint->mutex);
    return current.lock();
  }
  /// The close frame that follows `bytes`, and the end of the connection behind it.
  int closeCodeAfter(const std::string& bytes) {
    RawSocket client = open();
    EXPECT_TRUE(client.send(bytes));
    const auto frame = readFrame(client);
    EXPECT_TRUE(frame && frame->opcode == 8);
    client.shutDownSending();
    EXPECT_TRUE(client.isClosedByPeer());
    return frame ? frame->closeCode() : 0;
  }

  std::shared_ptr<Endpoint> endpoint = std::make_shared<Endpoint>();
  std::weak_ptr<WebSocket> current;
};

TEST_F(WebSocketTest, HandshakeAnswersTheKey) {
  start();
  RawSocket client = connect();
  ASSERT_TRUE(client.send("GET /socket HTTP/1.1\r\nHost: localhost:1\r\n" + upgradeFields + "\r\n"));
  const auto response = client.readResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 101);
  EXPECT_EQ(response->field("sec-websocket-accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");  // RFC 6455 section 1.3
  EXPECT_EQ(response->field("upgrade"), "websocket");
  EXPECT_EQ(response->field("connection"), "Upgrade");
}

TEST_F(WebSocketTest, MessagesAreEchoedIncludingThoseSentWithTheHandshake) {
  start();
  RawSocket client = connect();
  ASSERT_TRUE(
      client.send("GET /socket HTTP/1.1\r\nHost: [::1]:1\r\n" + upgradeFields + "\r\n" + textFrame("early")));
  ASSERT_EQ(client.readResponse()->status, 101);
  EXPECT_EQ(readFrame(client)->payload, "early");
  for (const std::size_t size : std::vector<std::size_t>{0, 1, 125, 126, 65535, 65536, 1000000}) {
    const std::string text(size, 'x');
    ASSERT_TRUE(client.send(textFrame(text)));
    const auto frame = readFrame(client);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->opcode, 1);
    EXPECT_TRUE(frame->payload == text);
  }
  EXPECT_EQ(endpoint->opened, 1);
}

TEST_F(WebSocketTest, FragmentsAreJoinedWithControlFramesBetween) {
  start();
  RawSocket client = open();
  ASSERT_TRUE(
      client.send(masked(0x01, "a\xC3") + masked(0x89, "ping") + masked(0x00, "") + masked(0x80, "\xA9z")));
  const auto pong = readFrame(client);
  ASSERT_TRUE(pong);
  EXPECT_EQ(pong->opcode, 10);
  EXPECT_EQ(pong->payload, "ping");
  EXPECT_EQ(readFrame(client)->payload, "a\xC3\xA9z");
}

TEST_F(WebSocketTest, ClosingByThePeerIsAnsweredAndReportedOnce) {
  start();
  RawSocket client = open();
  ASSERT_TRUE(client.send(closeFrame(1000)));
  const auto frame = readFrame(client);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->opcode, 8);
  EXPECT_EQ(frame->closeCode(), 1000);
  EXPECT_TRUE(client.isClosedByPeer());
  client.close();
  ASSERT_TRUE(endpoint->waitFor([&] { return endpoint->closed > 0; }));
  server.stop();
  EXPECT_EQ(endpoint->closed, 1);
}

TEST_F(WebSocketTest, ClosingByUsWaitsForThePeer) {
  start();
  RawSocket client = open();
  ASSERT_TRUE(endpoint->waitFor([&] { return endpoint->opened == 1; }));
  socket()->close(1001, "going");
  const auto frame = readFrame(client);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->closeCode(), 1001);
  EXPECT_EQ(frame->payload.substr(2), "going");
  ASSERT_TRUE(client.send(closeFrame(1001)));
  EXPECT_TRUE(client.isClosedByPeer());
  client.close();
  EXPECT_TRUE(endpoint->waitFor([&] { return endpoint->closed == 1; }));
}

TEST_F(WebSocketTest, APeerThatDoesNotAnswerTheCloseIsCutAtTheDeadline) {
  limits.webSocketCloseTimeout = 150ms;
  start();
  RawSocket client = open();
  ASSERT_TRUE(endpoint->waitFor([&] { return endpoint->opened == 1; }));
  socket()->close();
  ASSERT_TRUE(readFrame(client));
  EXPECT_TRUE(client.isClosedByPeer());
  EXPECT_TRUE(endpoint->waitFor([&] { return endpoint->closed == 1; }));
}

TEST_F(WebSocketTest, ViolationsAreClosedWithTheirCodes) {
  limits.webSocketMessage = 1000;
  start();
  EXPECT_EQ(closeCodeAfter(masked(0x82, "binary")), 1003);
  EXPECT_EQ(closeCodeAfter(textFrame("\xFF\xFE")), 1007);
  EXPECT_EQ(closeCodeAfter(masked(0x01, "\xC3") + masked(0x80, "x")), 1007);
  EXPECT_EQ(closeCodeAfter(textFrame(std::string(1001, 'x'))), 1009);
  EXPECT_EQ(closeCodeAfter(masked(0x01, std::string(600, 'x')) + masked(0x80, std::string(401, 'x'))), 1009);
  EXPECT_EQ(closeCodeAfter(std::string("\x81\x02hi", 4)), 1002) << "not masked";
  EXPECT_EQ(closeCodeAfter(masked(0xC1, "reserved bit")), 1002);
  EXPECT_EQ(closeCodeAfter(masked(0x83, "reserved opcode")), 1002);
  EXPECT_EQ(closeCodeAfter(masked(0x80, "continues nothing")), 1002);
  EXPECT_EQ(closeCodeAfter(masked(0x01, "a") + masked(0x81, "b")), 1002);
  EXPECT_EQ(closeCodeAfter(masked(0x09, "fragmented ping")), 1002);
  EXPECT_EQ(closeCodeAfter(masked(0x89, std::string(126, 'x'))), 1002);
  EXPECT_EQ(closeCodeAfter(masked(0x88, "x")), 1002);
  EXPECT_EQ(closeCodeAfter(closeFrame(1005)), 1002);
  server.stop();
  EXPECT_EQ(endpoint->opened, 14);
  EXPECT_EQ(endpoint->closed, 14);
  EXPECT_TRUE(endpoint->received.empty());
}

TEST_F(WebSocketTest, AReasonThatIsNotUtf8IsRefusedInWhateverPiecesItComes) {
  start();
  RawSocket client = open();
  const std::string frame = masked(0x88, "\x03\xE8good\xFF");
  for (const char byte : frame) {
    ASSERT_TRUE(client.send({&byte, 1}));
    std::this_thread::sleep_for(1ms);
  }
  const auto answer = readFrame(client);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->closeCode(), 1007);
}

TEST_F(WebSocketTest, AMessageAtTheLimitPasses) {
  limits.webSocketMessage = 1000;
  start();
  RawSocket client = open();
  ASSERT_TRUE(client.send(textFrame(std::string(1000, 'x'))));
  EXPECT_EQ(readFrame(client)->payload.size(), 1000U);
  ASSERT_TRUE(client.send(masked(0x01, std::string(600, 'x')) + masked(0x80, std::string(400, 'x'))));
  EXPECT_EQ(readFrame(client)->payload.size(), 1000U);
}

TEST_F(WebSocketTest, AnOversizedMessageGetsItsCloseFrameWhileItIsStillBeingSent) {
  limits.webSocketMessage = 1000;
  start();
  RawSocket client = open();
  ASSERT_TRUE(client.send(textFrame(std::string(3000000, 'x'))));
  const auto frame = readFrame(client);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->closeCode(), 1009);
}

TEST_F(WebSocketTest, SendsFromSeveralThreadsKeepEachThreadsOrder) {
  start();
  RawSocket client = open();
  ASSERT_TRUE(endpoint->waitFor([&] { return endpoint->opened == 1; }));
  const auto target = socket();
  std::vector<std::thread> senders;
  for (int t = 0; t < 4; ++t) {
    senders.emplace_back([&, t] {
      for (int n = 0; n < 200; ++n) target->sendMessage(std::to_string(t) + ":" + std::to_string(n));
    });
  }
  std::vector<int> next(4, 0);
  for (int i = 0; i < 800; ++i) {
    const auto frame = readFrame(client);
    ASSERT_TRUE(frame);
    const std::size_t from = static_cast<std::size_t>(frame->payload[0] - '0');
    EXPECT_EQ(frame->payload.substr(2), std::to_string(next[from]++));
  }
  for (auto& sender : senders) sender.join();
}

TEST_F(WebSocketTest, WhatIsSentBeforeTheUpgradeIsAnsweredFollowsIt) {
  const auto accept = script->webSocket;
  script->webSocket = [accept](std::string_view path, std::shared_ptr<WebSocketTransport> transport) {
    auto socket = accept(path, std::move(transport));
    socket->sendMessage("welcome");
    return socket;
  };
  start();
  RawSocket client = open();
  EXPECT_EQ(readFrame(client)->payload, "welcome");
}

TEST_F(WebSocketTest, APeerThatDoesNotReadIsCutAtTheQueueLimit) {
  limits.webSocketSendQueue = 1 << 20;
  start();
  RawSocket client = open();
  ASSERT_TRUE(endpoint->waitFor([&] { return endpoint->opened == 1; }));
  const auto target = socket();
  const std::string text(100000, 'x');
  for (int i = 0; i < 1000; ++i) target->sendMessage(text);
  EXPECT_TRUE(endpoint->waitFor([&] { return endpoint->closed == 1; }));
  EXPECT_FALSE(target->sendMessage("after the end"));
  target->close();
}

TEST_F(WebSocketTest, AListenerMayPauseAndResumeWhileMoreArrives) {
  std::string burst;
  std::vector<std::string> expected;
  for (int i = 0; i < 4000; ++i) {
    expected.push_back("message " + std::to_string(i));
    burst += textFrame(expected.back());
  }
  std::promise<void> allSent;
  const std::shared_future<void> sent = allSent.get_future().share();
  endpoint->echoes = false;
  endpoint->beforeTaking = [sent](WebSocket& socket) {
    // More waits in the socket than one read takes, whenever the pause ends.
    sent.wait();
    socket.setReading(false);
    socket.setReading(true);
  };
  start();
  RawSocket client = open();
  EXPECT_TRUE(client.send(burst));
  allSent.set_value();
  EXPECT_TRUE(endpoint->waitFor([&] { return endpoint->received.size() == expected.size(); }));
  EXPECT_EQ(endpoint->received, expected);
}

TEST_F(WebSocketTest, ASilentPeerIsPingedThenCut) {
  limits.webSocketIdleTimeout = 1s;
  start();
  RawSocket client = open();
  for (int i = 0; i < 2; ++i) {
    const auto ping = readFrame(client);
    ASSERT_TRUE(ping);
    EXPECT_EQ(ping->opcode, 9);
    ASSERT_TRUE(client.send(masked(0x8A, ping->payload)));
  }
  EXPECT_EQ(endpoint->closed, 0);
  EXPECT_EQ(readFrame(client)->opcode, 9);
  EXPECT_TRUE(client.isClosedByPeer());
  EXPECT_TRUE(endpoint->waitFor([&] { return endpoint->closed == 1; }));
}

TEST_F(WebSocketTest, ResetsAndServerStopsAreReportedOnce) {
  start();
  RawSocket first = open(), second = open();
  ASSERT_TRUE(endpoint->waitFor([&] { return endpoint->opened == 2; }));
  first.reset();
  ASSERT_TRUE(endpoint->waitFor([&] { return endpoint->closed == 1; }));
  const auto kept = socket();
  server.stop();
  EXPECT_EQ(endpoint->closed, 2);
  const auto close = readFrame(second);
  EXPECT_TRUE(close && close->opcode == 8);
  EXPECT_TRUE(second.isClosedByPeer());
  EXPECT_FALSE(kept->sendMessage("nobody there"));
  kept->close();
}

TEST_F(WebSocketTest, AServerThatStopsSaysSoBehindWhatItHasSent) {
  start();
  RawSocket client = open();
  ASSERT_TRUE(endpoint->waitFor([this] { return endpoint->opened == 1; }));
  socket()->sendMessage("the last word");
  server.stop();
  const auto text = readFrame(client);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->payload, "the last word");
  const auto close = readFrame(client);
  ASSERT_TRUE(close);
  EXPECT_EQ(close->opcode, 8);
  EXPECT_EQ(close->closeCode(), 1001);
  EXPECT_TRUE(client.isClosedByPeer());
  EXPECT_EQ(endpoint->closed, 1);
}

TEST_F(WebSocketTest, AddressesAreKnown) {
  start();
  RawSocket client = open();
  ASSERT_TRUE(endpoint->waitFor([&] { return endpoint->opened == 1; }));
  EXPECT_EQ(socket()->connectedHost(), "127.0.0.1");
  EXPECT_EQ(socket()->localPort(), server.port());
}

TEST_F(WebSocketTest, BadHandshakesAreRefused) {
  start();
  const std::string host = "Host: 127.0.0.1\r\n";
  const auto without = [](const std::string& name) {
    std::string fields = upgradeFields;
    const std::size_t at = fields.find(name);
    return fields.erase(at, fields.find('\n', at) - at + 1);
  };
  EXPECT_EQ(statusOf(host + upgradeFields, "GET /nothing HTTP/1.1"), 404);
  EXPECT_EQ(statusOf(host + without("Sec-WebSocket-Key")), 400);
  EXPECT_EQ(statusOf(host + without("Sec-WebSocket-Key") + "Sec-WebSocket-Key: short\r\n"), 400);
  EXPECT_EQ(statusOf(host + upgradeFields + "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"), 400);
  EXPECT_EQ(statusOf(host + upgradeFields, "POST /socket HTTP/1.1"), 400);
  EXPECT_EQ(statusOf(host + upgradeFields + "Content-Length: 3\r\n"), 400);
  EXPECT_EQ(statusOf(host + without("Upgrade:")), 404) << "an ordinary request, then";
  EXPECT_EQ(statusOf(host + upgradeFields, "GET /socket HTTP/1.0"), 404) << "HTTP/1.0 knows no upgrade";
  RawSocket old = connect();
  ASSERT_TRUE(old.send("GET /socket HTTP/1.1\r\n" + host + without("Sec-WebSocket-Version") +
                       "Sec-WebSocket-Version: 8\r\n\r\n"));
  const auto response = old.readResponse();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 426);
  EXPECT_EQ(response->field("sec-websocket-version"), "13");
  EXPECT_EQ(endpoint->opened, 0);
}

TEST_F(WebSocketTest, ForeignOriginsAndReboundHostsAreRefused) {
  server.setWebSocketAccess({{"https://panel.example.org"}, {"studio.example.org"}});
  start();
  const auto from = [&](const std::string& host, const std::string& origin) {
    return statusOf("Host: " + host + "\r\n" + (origin.empty() ? "" : "Origin: " + origin + "\r\n") +
                    upgradeFields);
  };
  EXPECT_EQ(from("127.0.0.1:80", ""), 101);
  EXPECT_EQ(from("[fe80::1]:16654", ""), 101);
  EXPECT_EQ(from("localhost:16654", ""), 101);
  EXPECT_EQ(from("EDIT-3.LOCAL.:16654", ""), 101);
  EXPECT_EQ(from("studio.example.org", ""), 101);
  char own[256] = {};
  ASSERT_EQ(::gethostname(own, sizeof own - 1), 0);
  EXPECT_EQ(from(own, ""), 101);
  EXPECT_EQ(from("evil.example.org", ""), 403);
  EXPECT_EQ(from("evil.example.org", "http://evil.example.org"), 403) << "a rebound name agrees with itself";
  EXPECT_EQ(from("local", ""), 403);
  EXPECT_EQ(from("127.0.0.1.example.org", ""), 403);
  EXPECT_EQ(from("127.0.0.1:16654", "http://127.0.0.1:16654"), 101);
  EXPECT_EQ(from("localhost", "http://localhost:80"), 101);
  EXPECT_EQ(from("127.0.0.1:16654", "https://panel.example.org"), 101);
  EXPECT_EQ(from("127.0.0.1:16654", "http://panel.example.org"), 403);
  EXPECT_EQ(from("127.0.0.1:16654", "http://127.0.0.1:3000"), 403);
  EXPECT_EQ(from("127.0.0.1:16654", "null"), 403);
  EXPECT_EQ(from("127.0.0.1:16654", "http://127.0.0.1:16654\r\nOrigin: http://evil.example.org"), 403);
  EXPECT_EQ(statusOf("Host: localhost\r\n" + upgradeFields, "GET http://evil.example.org/socket HTTP/1.1"),
            403);
}

}  // namespace
}  // namespace ferrox::test
