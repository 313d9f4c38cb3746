// An open client against peers that misbehave, and what exactly it puts on the wire.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <set>

#include "Tests/Platform/WebSocket/ClientFixture.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

class WebSocketClientHostilePeer : public ScriptedClientTest {
 protected:
  ~WebSocketClientHostilePeer() override {
    released_ = true;
    clients_.clear();
    server_.reset();
  }
  /// Sits still, reading nothing, until the test is over or says so.
  void waitForRelease() {
    while (!released_) std::this_thread::sleep_for(1ms);
  }
  /// The close code with which the client answers what the peer sends.
  int refusalOf(const std::string& bytes) {
    std::promise<int> code;
    serve([&](ScriptedPeer& peer, ScriptedConnection&) {
      peer.accept(bytes);
      const auto frame = peer.readFrame();
      code.set_value(frame && frame->opcode() == 8 ? frame->closeCode() : -1);
      EXPECT_FALSE(peer.readFrame()) << "nothing follows a close frame";
    });
    open();
    EXPECT_TRUE(waitForEnd());
    const int sent = code.get_future().get();
    EXPECT_EQ(delegate().closes, (Closes{{sent, "", false}}));
    EXPECT_EQ(client().refusal(), sent);
    EXPECT_TRUE(delegate().messages.empty());
    EXPECT_TRUE(waitFor([&] { return server_->openCount() == 0; }));
    return sent;
  }

  std::atomic<bool> released_ = false;
  /// What a script counts; its thread may outlive the test's own variables.
  std::atomic<std::size_t> counted_ = 0;
};

TEST_F(WebSocketClientHostilePeer, ViolationsAreRefusedWithTheirCodes) {
  request_.maxMessage = 1000;
  EXPECT_EQ(refusalOf(frameOf(0x82, "binary")), 1003);
  EXPECT_EQ(refusalOf(textFrame("\xFF\xFE")), 1007);
  EXPECT_EQ(refusalOf(frameOf(0x01, "\xC3") + frameOf(0x80, "x")), 1007);
  EXPECT_EQ(refusalOf(textFrame(std::string(1001, 'x'))), 1009);
  EXPECT_EQ(refusalOf(frameOf(0x01, std::string(600, 'x')) + frameOf(0x80, std::string(401, 'x'))), 1009);
  EXPECT_EQ(refusalOf(std::string("\x81\x82\0\0\0\0hi", 8)), 1002) << "masked by a server";
  EXPECT_EQ(refusalOf(frameOf(0xC1, "reserved bit")), 1002);
  EXPECT_EQ(refusalOf(frameOf(0x83, "reserved opcode")), 1002);
  EXPECT_EQ(refusalOf(frameOf(0x80, "continues nothing")), 1002);
  EXPECT_EQ(refusalOf(frameOf(0x01, "a") + frameOf(0x81, "b")), 1002);
  EXPECT_EQ(refusalOf(frameOf(0x09, "fragmented ping")), 1002);
  EXPECT_EQ(refusalOf(frameOf(0x89, std::string(126, 'x'))), 1002);
  EXPECT_EQ(refusalOf(frameOf(0x88, "x")), 1002);
  EXPECT_EQ(refusalOf(closeFrame(1005)), 1002);
  EXPECT_EQ(refusalOf(std::string("\x81\x7E\0\x05hello", 9)), 1002) << "not the shortest length";
  EXPECT_EQ(refusalOf(std::string("\x81\x7F\0\0\0\0\0\0\0\x05hello", 15)), 1002);
  EXPECT_EQ(refusalOf(std::string("\x81\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 10)), 1002);
  EXPECT_EQ(refusalOf(std::string("\x81\x7F\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 10)), 1009);
  EXPECT_EQ(refusalOf(closeFrame(1000, "\xFF")), 1007);
}

TEST_F(WebSocketClientHostilePeer, MessagesAtTheLimitPassAndFragmentsAreJoinedAroundAPing) {
  request_.maxMessage = 1000;
  serve([&](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept(textFrame(std::string(1000, 'x')) + frameOf(0x01, "a\xC3") + frameOf(0x89, "now") +
                frameOf(0x00, "") + frameOf(0x80, "\xA9z"));
    const auto pong = peer.readFrame();
    counted_ = pong && pong->opcode() == 10 && pong->payload == "now" ? 1 : 0;
    peer.waitForEnd();
  });
  openAndWait();
  ASSERT_TRUE(wait([&] { return delegate().messages.size() == 2 && counted_ == 1; }));
  EXPECT_EQ(delegate().messages[0].size(), 1000U);
  EXPECT_EQ(delegate().messages[1], "a\xC3\xA9z");
}

TEST_F(WebSocketClientHostilePeer, ACloseWithoutCodeIsReportedAsSuch) {
  serve([](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept(frameOf(0x88, ""));
    EXPECT_EQ(peer.readFrame()->payload, "");
  });
  open();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().closes, (Closes{{1005, "", true}}));
}

TEST_F(WebSocketClientHostilePeer, TheLongestReasonIsAnswered) {
  const std::string reason(123, 'r');
  std::promise<std::string> answer;
  serve([&](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept(textFrame("before") + closeFrame(4999, reason) + textFrame("after"));
    answer.set_value(peer.readFrame()->payload);
  });
  open();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().closes, (Closes{{4999, reason, true}}));
  EXPECT_EQ(delegate().messages, std::vector<std::string>{"before"});
  EXPECT_EQ(answer.get_future().get().substr(0, 2), std::string("\x13\x87"));
}

TEST_F(WebSocketClientHostilePeer, ACutOrResetConnectionIsLost) {
  for (const bool resets : {false, true}) {
    serve([resets](ScriptedPeer& peer, ScriptedConnection& connection) {
      peer.accept(textFrame("hello") + std::string("\x81\x05hal", 5));
      peer.readFrame();
      if (resets) connection.reset();
    });
    openAndWait();
    ASSERT_TRUE(wait([&] { return delegate().messages.size() == 1; }));
    client().send("go");
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(delegate().failureCode(), WebSocketClientErrorConnectionLost);
  }
}

TEST_F(WebSocketClientHostilePeer, APeerThatDoesNotAnswerTheCloseIsCutAtTheDeadline) {
  serve([](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    peer.waitForEnd();
  });
  request_.closeTimeout = 150ms;
  openAndWait();
  const auto begin = std::chrono::steady_clock::now();
  client().close();
  ASSERT_TRUE(waitForEnd());
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 150ms);
  EXPECT_EQ(delegate().closes, (Closes{{1006, "", false}}));
  EXPECT_TRUE(waitFor([&] { return server_->openCount() == 0; }));
}

TEST_F(WebSocketClientHostilePeer, AConnectionThatEndsWhileClosingIsNotClean) {
  serve([](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    peer.readFrame();
  });
  openAndWait();
  client().close(1000, "bye");
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().closes, (Closes{{1006, "", false}}));
}

TEST_F(WebSocketClientHostilePeer, APeerThatClosesInTheMiddleOfALongMessageIsStillAnswered) {
  std::size_t messageSize = 0;
  int answer = 0;
  serve([&](ScriptedPeer& peer, ScriptedConnection& connection) {
    peer.accept();
    peer.readFrame();
    peer.send(closeFrame(1009));
    connection.endSending();
    const auto message = peer.readFrame();
    const auto close = peer.readFrame();
    note([&] {
      messageSize = message ? message->payload.size() : 0;
      answer = close ? close->closeCode() : 0;
    });
  });
  constexpr std::size_t longerThanAnySocketBuffer = std::size_t{24} << 20;
  request_.maxSendQueue = 2 * longerThanAnySocketBuffer;
  openAndWait();
  client().send("go");
  client().send(std::string(longerThanAnySocketBuffer, 'x'));
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().closes, (Closes{{1009, "", true}}));
  ASSERT_TRUE(waitFor([&] { return server_->openCount() == 0; }));
  const std::lock_guard lock(mutex_);
  EXPECT_EQ(messageSize, longerThanAnySocketBuffer);
  EXPECT_EQ(answer, 1009);
}

TEST_F(WebSocketClientHostilePeer, APeerThatKeepsTheConnectionAfterTheHandshakeIsCut) {
  serve([&](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept(closeFrame(1000));
    peer.waitForEnd();
  });
  request_.closeTimeout = 100ms;
  open();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().closes, (Closes{{1000, "", true}}));
  EXPECT_TRUE(waitFor([&] { return server_->openCount() == 0; }));
}

TEST_F(WebSocketClientHostilePeer, CloseCodesAndReasonsThatMayNotBeSentAreNotSent) {
  const std::vector<std::pair<int, std::string>> given{
      {1005, "code"}, {999, ""}, {5000, ""}, {1000, "\xFF"}, {1000, std::string(122, 'x') + "\xC3\xA9"}};
  const std::vector<std::string> expected{"", "", "", "\x03\xE8", "\x03\xE8" + std::string(122, 'x')};
  for (std::size_t i = 0; i < given.size(); ++i) {
    std::promise<std::string> payload;
    serve([&](ScriptedPeer& peer, ScriptedConnection&) {
      peer.accept();
      payload.set_value(peer.readFrame()->payload);
    });
    openAndWait();
    client().close(given[i].first, given[i].second);
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(payload.get_future().get(), expected[i]) << i;
  }
}

TEST_F(WebSocketClientHostilePeer, WhatIsSentInOneTurnArrivesInOneReadWithEveryKeyFresh) {
  constexpr int peers = 3, messages = 20;
  std::vector<std::string> reads;
  serve([&](ScriptedPeer& peer, ScriptedConnection& connection) {
    peer.accept();
    const std::string first = connection.readOnce();
    note([&] { reads.push_back(first); });
    peer.waitForEnd();
  });
  for (int i = 0; i < peers; ++i) openAndWait();
  for (int i = 0; i < messages; ++i) WebSocketClient::broadcast(clients_, "message " + std::to_string(i));
  clients_[0]->send("for you alone");
  ASSERT_TRUE(wait([&] {
    const std::lock_guard lock(mutex_);
    return reads.size() == peers;
  }));
  std::set<std::string> keys;
  int singles = 0;
  std::set<std::string> commonParts;
  for (std::string bytes : reads) {
    std::string common;
    for (int i = 0; i < messages; ++i) {
      const auto frame = takeFrame(bytes);
      ASSERT_TRUE(frame) << "not all of the turn came at once";
      EXPECT_EQ(frame->payload, "message " + std::to_string(i));
      EXPECT_NE(frame->key, std::string(4, '\0'));
      common += frame->key;
      keys.insert(frame->key);
    }
    commonParts.insert(common);
    const auto single = takeFrame(bytes);
    if (single) ++singles;
    EXPECT_TRUE(bytes.empty());
  }
  EXPECT_EQ(commonParts.size(), 1U) << "one broadcast is masked once for all";
  EXPECT_EQ(keys.size(), static_cast<std::size_t>(messages)) << "every message has its own key";
  EXPECT_EQ(singles, 1);
}

TEST_F(WebSocketClientHostilePeer, PongsAndCloseKeepTheirPlaceAmongMessages) {
  std::vector<ClientFrame> frames;
  serve([&](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    peer.readFrame();
    peer.send(frameOf(0x89, "one") + textFrame("go on"));
    while (const auto frame = peer.readFrame()) {
      note([&] { frames.push_back(*frame); });
      if (frame->opcode() == 8) peer.send(closeFrame(1000));
    }
  });
  openAndWait();
  delegate().onMessage = [](WebSocketClient& socket, std::string_view) {
    socket.send("two");
    socket.close(1000);
    socket.send("three");
  };
  client().send("begin");
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().closes, (Closes{{1000, "", true}}));
  server_.reset();
  ASSERT_EQ(frames.size(), 3U);
  EXPECT_EQ(frames[0].opcode(), 10);
  EXPECT_EQ(frames[0].payload, "one");
  EXPECT_EQ(frames[1].payload, "two");
  EXPECT_EQ(frames[2].opcode(), 8);
}

TEST_F(WebSocketClientHostilePeer, APeerThatDoesNotReadFailsAtTheLimitAndNoOtherWaits) {
  const LogRecording log(LogLevel::Warn);
  serve([&](ScriptedPeer& peer, ScriptedConnection& connection) {
    peer.accept();
    if (connection.index() == 0) return waitForRelease();
    while (const auto frame = peer.readFrame()) ++counted_;
  });
  request_.maxSendQueue = 1 << 20;
  openAndWait();
  openAndWait();
  const std::string text(100'000, 'x');
  std::size_t sent = 0;
  while (!delegates_[0]->hasEnded() && sent < 1000) {
    WebSocketClient::broadcast(clients_, text);
    ++sent;
    ASSERT_TRUE(wait([&] { return counted_ == sent; })) << "the healthy peer waits at " << sent;
  }
  ASSERT_TRUE(wait([&] { return delegates_[0]->hasEnded(); }));
  EXPECT_EQ(delegates_[0]->failureCode(), WebSocketClientErrorSendQueueFull);
  EXPECT_FALSE(delegates_[1]->hasEnded());
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "does not read"));
}

TEST_F(WebSocketClientHostilePeer, ASlowPeerGetsEverythingInTheEnd) {
  std::vector<std::string> received;
  serve([&](ScriptedPeer& peer, ScriptedConnection& connection) {
    peer.accept();
    if (connection.index() == 0) waitForRelease();
    while (const auto frame = peer.readFrame()) {
      if (connection.index() == 0) note([&] { received.push_back(frame->payload); });
    }
  });
  openAndWait();
  openAndWait();
  std::vector<std::string> sent;
  // More than the system's own buffers hold, in many turns.
  for (int i = 0; i < 70; ++i) {
    sent.push_back(std::to_string(i) + std::string(100'000, static_cast<char>('a' + i % 26)));
    WebSocketClient::broadcast(clients_, sent.back());
    if (i % 7 == 0) {
      sent.push_back("alone " + std::to_string(i));
      clients_[0]->send(sent.back());
    }
    loop_.runPending();
  }
  released_ = true;
  ASSERT_TRUE(wait([&] {
    const std::lock_guard lock(mutex_);
    return received.size() == sent.size();
  }));
  EXPECT_TRUE(received == sent);
}

TEST_F(WebSocketClientHostilePeer, AFloodIsBoundedUntilTheMainThreadTakesIt) {
  constexpr std::size_t count = 400;
  const std::string text(100'000, 'x');
  serve([&](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    for (std::size_t i = 0; i < count && peer.send(textFrame(text)); ++i) ++counted_;
    peer.waitForEnd();
  });
  openAndWait();
  // The main thread takes nothing: the peer comes to a stop.
  std::size_t before = 0;
  ASSERT_TRUE(waitFor([&] {
    std::this_thread::sleep_for(100ms);
    return std::exchange(before, counted_.load()) == counted_;
  }));
  EXPECT_LT(counted_, count);
  ASSERT_TRUE(wait([&] { return delegate().messages.size() == count; }));
  EXPECT_FALSE(delegate().hasEnded());
}

TEST_F(WebSocketClientHostilePeer, AFloodOfPingsWithoutReadingFailsAtTheLimit) {
  serve([this](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    std::string pings;
    for (int i = 0; i < 1000; ++i) pings += frameOf(0x89, std::string(125, 'p'));
    while (!released_ && peer.send(pings)) {
    }
  });
  request_.maxSendQueue = 100'000;
  openAndWait();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().failureCode(), WebSocketClientErrorSendQueueFull);
}

TEST_F(WebSocketClientHostilePeer, AQuietPeerIsPingedAndStays) {
  serve([&](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    while (const auto frame = peer.readFrame()) {
      if (frame->opcode() != 9) continue;
      ++counted_;
      peer.send(frameOf(0x8A, frame->payload));
    }
  });
  request_.pingInterval = 100ms;
  request_.pongTimeout = 5s;
  openAndWait();
  EXPECT_TRUE(wait([&] { return counted_ >= 3; }));
  EXPECT_FALSE(delegate().hasEnded());
}

TEST_F(WebSocketClientHostilePeer, APeerThatIsGoneWithoutAWordIsNoticed) {
  serve([&](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    peer.waitForEnd();
  });
  request_.pingInterval = 100ms;
  request_.pongTimeout = 200ms;
  const auto begin = std::chrono::steady_clock::now();
  openAndWait();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(delegate().failureCode(), WebSocketClientErrorNoPong);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
}

TEST_F(WebSocketClientHostilePeer, CheckingNowPingsAtOnceEvenWithoutAnInterval) {
  serve([&](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    while (const auto frame = peer.readFrame()) counted_ += frame->opcode() == 9 ? 1U : 0U;
  });
  request_.pingInterval = 0ms;
  request_.pongTimeout = 150ms;
  openAndWait();
  loop_.runUntil([] { return false; }, 200ms);
  EXPECT_EQ(counted_, 0U);
  client().checkNow();
  ASSERT_TRUE(waitForEnd());
  EXPECT_EQ(counted_, 1U);
  EXPECT_EQ(delegate().failureCode(), WebSocketClientErrorNoPong);
}

TEST_F(WebSocketClientHostilePeer, TextThatIsNotUtf8IsNotSent) {
  std::promise<std::string> promise;
  auto first = promise.get_future();
  serve([&](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept();
    promise.set_value(peer.readFrame()->payload);
  });
  const LogRecording log(LogLevel::Warn);
  openAndWait();
  client().send("\xFF");
  WebSocketClient::broadcast(clients_, "\xC0\x80");
  client().send("sound");
  ASSERT_TRUE(wait([&] { return first.wait_for(0s) == std::future_status::ready; }));
  EXPECT_EQ(first.get(), "sound");
  EXPECT_TRUE(log->mentions(LogLevel::Warn, "not UTF-8"));
}

TEST_F(WebSocketClientHostilePeer, ADelegateThatThrowsOrDropsTheSocketHarmsNobody) {
  serve([](ScriptedPeer& peer, ScriptedConnection&) {
    peer.accept(textFrame("one") + textFrame("two") + textFrame("three"));
    peer.waitForEnd();
  });
  const LogRecording log(LogLevel::Error);
  open();
  delegate().onMessage = [this](WebSocketClient&, std::string_view text) {
    if (text == "one") throw std::runtime_error("not today");
    clients_.clear();
  };
  ASSERT_TRUE(wait([&] { return delegates_[0]->messages.size() >= 2; }));
  ASSERT_TRUE(waitFor([&] { return server_->openCount() == 0; }));
  loop_.runPending();
  EXPECT_EQ(delegates_[0]->messages.size(), 3U) << "those of one read belong together";
  EXPECT_TRUE(log->mentions(LogLevel::Error, "not today"));
}

}  // namespace
}  // namespace ferrox::test
