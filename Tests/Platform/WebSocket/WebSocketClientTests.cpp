// The client against this project's own server.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Platform/RunLoop/RunLoop.h"
#include "Platform/WebSocket/WebSocket.h"
#include "Platform/WebSocket/WebSocketClient.h"
#include "Tests/Platform/HTTP/Server/ServerFixture.h"
#include "Tests/Platform/WebSocket/RecordingDelegate.h"
#include "Tests/Support/ScriptedResolver.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

/// The server's end of the connections: echoes, and remembers the paths.
class EchoingListener : public WebSocketListener {
 public:
  void webSocketDidOpen(WebSocket& socket) override {
    if (!greeting.empty()) socket.sendMessage(greeting);
  }
  void webSocketDidReceiveMessage(WebSocket& socket, std::string_view text) override {
    ++received;
    if (text == "close please") return socket.close(3001, "as you asked");
    if (echoes) socket.sendMessage(std::string(text));
  }
  void webSocketDidClose(WebSocket&) override { ++closed; }

  std::string greeting;
  bool echoes = true;
  std::atomic<int> received = 0;
  std::atomic<int> closed = 0;
};

class WebSocketClientTest : public ServerTest {
 protected:
  WebSocketClientTest() {
    loop_.runPending();
    script->webSocket = [this](std::string_view path, std::shared_ptr<WebSocketTransport> transport) {
      if (!path.starts_with("/socket")) return std::shared_ptr<WebSocket>();
      auto socket = std::make_shared<WebSocket>(std::move(transport));
      socket->setDelegate(listener_);
      return socket;
    };
  }
  ~WebSocketClientTest() override {
    clients_.clear();
    server.stop();
  }

  std::string url(const std::string& path = "/socket", const std::string& host = "127.0.0.1") {
    return "ws://" + host + ":" + std::to_string(server.port()) + path;
  }
  std::shared_ptr<WebSocketClient> make(const std::string& where) {
    request_.url = where;
    FRXError error;
    auto client = WebSocketClient::make(request_, resolver_, loop_, &error);
    EXPECT_TRUE(client) << error.localizedDescription;
    return client;
  }
  std::shared_ptr<RecordingDelegate> listenTo(WebSocketClient& client) {
    auto delegate = std::make_shared<RecordingDelegate>(loop_);
    client.setDelegate(delegate);
    return delegate;
  }
  bool wait(const std::function<bool()>& done) { return waitFor(loop_, done); }
  /// `count` open sockets, each with its listener.
  void connectMany(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      clients_.push_back(make(url()));
      delegates_.push_back(listenTo(*clients_.back()));
      clients_.back()->open();
    }
    ASSERT_TRUE(wait([&] {
      return std::all_of(delegates_.begin(), delegates_.end(), [](const auto& d) { return d->opened == 1; });
    }));
  }

  RunLoop loop_;
  ScriptedResolver resolver_;
  std::shared_ptr<EchoingListener> listener_ = std::make_shared<EchoingListener>();
  WebSocketClientRequest request_;
  std::vector<std::shared_ptr<WebSocketClient>> clients_;
  std::vector<std::shared_ptr<RecordingDelegate>> delegates_;
};

TEST_F(WebSocketClientTest, OpensSendsReceivesAndCloses) {
  start();
  const auto client = make(url());
  const auto delegate = listenTo(*client);
  EXPECT_EQ(client->readyState(), WebSocketReadyState::Connecting);
  EXPECT_EQ(client->url(), url());
  client->send("too early");
  client->open();
  EXPECT_EQ(delegate->opened, 0) << "never inside the call";
  ASSERT_TRUE(wait([&] { return delegate->opened == 1; }));
  client->send("hello");
  client->send("\xC3\xA9t\xC3\xA9");
  ASSERT_TRUE(wait([&] { return delegate->messages.size() == 2; }));
  EXPECT_EQ(delegate->messages, (std::vector<std::string>{"hello", "\xC3\xA9t\xC3\xA9"}));
  client->close(1001, "going");
  EXPECT_EQ(client->readyState(), WebSocketReadyState::Closing);
  EXPECT_FALSE(delegate->hasEnded());
  ASSERT_TRUE(wait([&] { return delegate->hasEnded(); }));
  EXPECT_EQ(delegate->closes, (std::vector<RecordingDelegate::Close>{{1001, "going", true}}));
  EXPECT_TRUE(waitFor([&] { return listener_->closed == 1; }));
}

TEST_F(WebSocketClientTest, TextsOfEverySizePassUnchanged) {
  start();
  connectMany(1);
  const std::vector<std::size_t> sizes{0, 1, 7, 8, 31, 32, 33, 125, 126, 65535, 65536, 1000003};
  for (const std::size_t size : sizes) {
    std::string text(size, 'a');
    for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + (i * 7 + i / 26) % 26);
    delegates_[0]->messages.clear();
    clients_[0]->send(text);
    ASSERT_TRUE(wait([&] { return delegates_[0]->messages.size() == 1; })) << size;
    EXPECT_TRUE(delegates_[0]->messages[0] == text) << size;
  }
}

TEST_F(WebSocketClientTest, WhatTheServerSendsWithItsAnswerIsReceived) {
  listener_->greeting = "welcome";
  start();
  connectMany(1);
  ASSERT_TRUE(wait([&] { return delegates_[0]->messages.size() == 1; }));
  EXPECT_EQ(delegates_[0]->messages[0], "welcome");
}

TEST_F(WebSocketClientTest, TheFarSidesCloseIsAnsweredAndReported) {
  start();
  connectMany(1);
  clients_[0]->send("close please");
  ASSERT_TRUE(wait([&] { return delegates_[0]->hasEnded(); }));
  EXPECT_EQ(delegates_[0]->closes, (std::vector<RecordingDelegate::Close>{{3001, "as you asked", true}}));
  EXPECT_TRUE(waitFor([&] { return listener_->closed == 1; }));
}

TEST_F(WebSocketClientTest, AStoppedServerSaysThatItGoes) {
  start();
  connectMany(1);
  server.stop();
  ASSERT_TRUE(wait([&] { return delegates_[0]->hasEnded(); }));
  EXPECT_EQ(delegates_[0]->closes, (std::vector<RecordingDelegate::Close>{{1001, "", true}}));
}

TEST_F(WebSocketClientTest, ARefusedPathIsAFailedHandshake) {
  start();
  const auto client = make(url("/elsewhere"));
  const auto delegate = listenTo(*client);
  client->open();
  ASSERT_TRUE(wait([&] { return delegate->hasEnded(); }));
  EXPECT_EQ(delegate->failureCode(), WebSocketClientErrorHandshake);
  EXPECT_NE(delegate->failures[0].localizedDescription.find("404"), std::string::npos);
}

TEST_F(WebSocketClientTest, NamesUnderLocalAreLookedUpAndAccepted) {
  start();
  resolver_.setAddresses("edit-3.local.", {"127.0.0.1"});
  const auto client = make(url("/socket?id=a%20b", "edit-3.local."));
  const auto delegate = listenTo(*client);
  client->open();
  ASSERT_TRUE(wait([&] { return delegate->opened == 1; }));
}

TEST_F(WebSocketClientTest, BroadcastReachesEveryOpenSocketInOrder) {
  start();
  connectMany(8);
  clients_.push_back(make(url()));  // not open
  clients_.push_back(nullptr);
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(WebSocketClient::broadcast(clients_, "to all " + std::to_string(i)), delegates_.size());
    if (i % 10 == 3) {
      EXPECT_TRUE(clients_[2]->send("to one " + std::to_string(i)));
    }
  }
  std::vector<std::string> all, withSingles;
  for (int i = 0; i < 50; ++i) {
    all.push_back("to all " + std::to_string(i));
    withSingles.push_back(all.back());
    if (i % 10 == 3) withSingles.push_back("to one " + std::to_string(i));
  }
  for (std::size_t i = 0; i < delegates_.size(); ++i) {
    const auto& expected = i == 2 ? withSingles : all;
    ASSERT_TRUE(wait([&] { return delegates_[i]->messages.size() >= expected.size(); })) << i;
    EXPECT_EQ(delegates_[i]->messages, expected) << i;
  }
}

TEST_F(WebSocketClientTest, TellsWhetherItTookAText) {
  start();
  connectMany(1);
  WebSocketClient& client = *clients_[0];
  clients_.push_back(make(url()));
  EXPECT_FALSE(clients_[1]->send("too early"));
  EXPECT_TRUE(client.send("text"));
  EXPECT_FALSE(client.send("\xFF\xFE"));
  EXPECT_EQ(WebSocketClient::broadcast(clients_, "\xFF\xFE"), 0U);
  EXPECT_EQ(WebSocketClient::broadcast(clients_, "text"), 1U) << "only one is open";
  client.close();
  EXPECT_FALSE(client.send("too late"));
  EXPECT_EQ(WebSocketClient::broadcast(clients_, "too late"), 0U);
}

TEST_F(WebSocketClientTest, MessagesSentBeforeCloseArriveBeforeIt) {
  start();
  connectMany(1);
  for (int i = 0; i < 100; ++i) clients_[0]->send("last words");
  clients_[0]->close();
  clients_[0]->send("after close");
  clients_[0]->close(1001);
  ASSERT_TRUE(wait([&] { return delegates_[0]->hasEnded(); }));
  EXPECT_EQ(delegates_[0]->closes, (std::vector<RecordingDelegate::Close>{{1000, "", true}}));
  EXPECT_EQ(listener_->received, 100);
  EXPECT_TRUE(delegates_[0]->messages.empty()) << "no messages while closing";
}

TEST_F(WebSocketClientTest, ASocketDroppedWhileItClosesStillSaysGoodbye) {
  start();
  connectMany(1);
  clients_[0]->send("last words");
  clients_[0]->close();
  clients_.clear();
  ASSERT_TRUE(wait([&] { return listener_->closed == 1; }));
  EXPECT_EQ(listener_->received, 1);
  EXPECT_FALSE(delegates_[0]->hasEnded()) << "nothing after the last reference is gone";
}

TEST_F(WebSocketClientTest, ADroppedSocketIsCutAndSilent) {
  start();
  connectMany(1);
  clients_.clear();
  ASSERT_TRUE(wait([&] { return listener_->closed == 1; }));
  EXPECT_FALSE(delegates_[0]->hasEnded());
}

TEST_F(WebSocketClientTest, ADetachedDelegateHearsNothingMore) {
  start();
  connectMany(1);
  clients_[0]->setDelegate({});
  EXPECT_EQ(clients_[0]->delegate(), nullptr);
  clients_[0]->send("echo");
  clients_[0]->close();
  ASSERT_TRUE(wait([&] { return clients_[0]->readyState() == WebSocketReadyState::Closed; }));
  EXPECT_TRUE(delegates_[0]->messages.empty());
  EXPECT_FALSE(delegates_[0]->hasEnded());
}

}  // namespace
}  // namespace ferrox::test
