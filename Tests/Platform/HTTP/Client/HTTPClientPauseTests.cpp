// A receiver that holds a streamed body up, and goes on with it.
#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <future>
#include <stdexcept>

#include "Platform/HTTP/Client/HTTPClient.h"
#include "Tests/Platform/HTTP/Client/Exchange.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

/// Wants only so many bytes of the body until the test allows more.
struct Receiver {
  std::atomic<std::size_t> allowance{0};
  std::atomic<std::size_t> taken{0};
  std::atomic<std::size_t> largestPiece{0};
  std::atomic<int> refusals{0};
  std::atomic<bool> cancelsAtNextPiece{false};
  std::atomic<bool> throws{false};
  std::string body;
  std::promise<std::optional<FRXError>> completed;
  std::future<std::optional<FRXError>> completion = completed.get_future();
  std::shared_ptr<HTTPClientTask> task;

  HTTPClientCallbacks callbacks() {
    HTTPClientCallbacks out;
    out.wantsData = [this] {
      if (throws) throw std::runtime_error("no");
      if (taken < allowance) return true;
      ++refusals;
      return false;
    };
    out.onData = [this](std::string_view piece) {
      body.append(piece);
      largestPiece = std::max(largestPiece.load(), piece.size());
      taken += piece.size();
      return !cancelsAtNextPiece;
    };
    out.onCompletion = [this](std::optional<FRXError> error, const HTTPClientResponse&) {
      completed.set_value(std::move(error));
    };
    return out;
  }
  void allow(std::size_t bytes) {
    allowance = bytes;
    task->resume();
  }
  bool waitUntilHeldUp(int refusalsBefore = 0) {
    return waitFor([this, refusalsBefore] { return refusals > refusalsBefore; }, 30s);
  }
  std::optional<FRXError> result() {
    if (completion.wait_for(30s) != std::future_status::ready) return FRXError{"test", 1, "no completion"};
    return completion.get();
  }
};

std::string countingBody(std::size_t size) {
  std::string body(size, '\0');
  for (std::size_t i = 0; i < size; ++i) body[i] = static_cast<char>('a' + (i / 7) % 26);
  return body;
}

std::string chunked(std::string_view body, std::size_t chunkSize) {
  std::string out = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (std::size_t at = 0; at < body.size(); at += chunkSize) {
    const auto chunk = body.substr(at, chunkSize);
    char head[32];
    std::snprintf(head, sizeof head, "%zx\r\n", chunk.size());
    out.append(head).append(chunk).append("\r\n");
  }
  return out + "0\r\n\r\n";
}

std::chrono::nanoseconds processorTime() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

class HTTPClientPauseTests : public ::testing::Test {
 protected:
  ~HTTPClientPauseTests() override { client_.reset(); }

  void request(const std::string& url, std::chrono::milliseconds timeout = 60s) {
    receiver_.task = client_->send({.url = url, .inactivityTimeout = timeout}, receiver_.callbacks());
  }

  Receiver receiver_;
  ScriptedResolver resolver_;
  std::unique_ptr<HTTPClient> client_ = HTTPClient::make(resolver_);
};

TEST_F(HTTPClientPauseTests, BodyStandsStillUntilTheReceiverWantsIt) {
  const std::string body = countingBody(3 << 20);
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer(body)));
  request(server.url());
  ASSERT_TRUE(receiver_.waitUntilHeldUp());
  EXPECT_EQ(receiver_.taken, 0u);

  const int refusals = receiver_.refusals;
  receiver_.allow(1 << 20);
  ASSERT_TRUE(receiver_.waitUntilHeldUp(refusals));
  EXPECT_GE(receiver_.taken, 1u << 20);
  EXPECT_LE(receiver_.taken, (1u << 20) + receiver_.largestPiece);

  receiver_.allow(body.size());
  EXPECT_EQ(receiver_.result(), std::nullopt);
  EXPECT_EQ(receiver_.body, body);
}

TEST_F(HTTPClientPauseTests, SenderIsHeldBackInsteadOfBufferedWithoutEnd) {
  constexpr std::size_t total = std::size_t{256} << 20;
  std::atomic<std::size_t> sent{0};
  std::atomic<bool> isDone{false};
  ScriptedHTTPServer server([&](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(total) + "\r\n\r\n");
    const std::string block(1 << 20, 'x');
    while (sent < total && connection.send(block)) sent += block.size();
    isDone = true;
  });
  request(server.url());
  ASSERT_TRUE(receiver_.waitUntilHeldUp());
  // The server stops by itself only when every buffer between the two is full.
  std::size_t before = 0;
  ASSERT_TRUE(waitFor(
      [&] {
        const std::size_t now = sent;
        const bool stands = now == before;
        before = now;
        if (stands) std::this_thread::sleep_for(200ms);
        return stands && sent == now;
      },
      30s));
  EXPECT_FALSE(isDone);
  EXPECT_LT(sent, total / 2);
  receiver_.task->cancel();
  EXPECT_EQ(receiver_.result()->code, HTTPClientErrorCancelled);
}

TEST_F(HTTPClientPauseTests, WholeBodyIsDeliveredHoweverOftenItIsHeldUp) {
  const std::string body = countingBody(300'000);
  const std::string closing = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body;
  ScriptedHTTPServer server([&](ScriptedConnection& connection) {
    const std::string head = connection.readRequest();
    if (head.starts_with("GET /sized")) connection.send(ScriptedHTTPServer::answer(body));
    if (head.starts_with("GET /chunked")) connection.send(chunked(body, 5000));
    if (head.starts_with("GET /closing")) connection.send(closing);
  });
  for (const char* const path : {"/sized", "/chunked", "/closing"}) {
    SCOPED_TRACE(path);
    Receiver receiver;
    receiver.task = client_->send({.url = server.url(path)}, receiver.callbacks());
    int refusals = 0;
    while (receiver.taken < body.size()) {
      ASSERT_TRUE(
          waitFor([&] { return receiver.refusals > refusals || receiver.taken == body.size(); }, 30s));
      refusals = receiver.refusals;
      receiver.allow(receiver.taken + 1);
    }
    EXPECT_GT(refusals, 10);
    EXPECT_EQ(receiver.result(), std::nullopt);
    EXPECT_EQ(receiver.body, body);
  }
}

TEST_F(HTTPClientPauseTests, NoTimeoutRunsWhileTheReceiverHoldsTheBodyUp) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("abc")));
  request(server.url(), 100ms);
  ASSERT_TRUE(receiver_.waitUntilHeldUp());
  EXPECT_EQ(receiver_.completion.wait_for(600ms), std::future_status::timeout);
  receiver_.allow(3);
  EXPECT_EQ(receiver_.result(), std::nullopt);
  EXPECT_EQ(receiver_.body, "abc");
}

TEST_F(HTTPClientPauseTests, SilenceAfterGoingOnTimesOutAgain) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc");
    connection.stall();
  });
  request(server.url(), 200ms);
  ASSERT_TRUE(receiver_.waitUntilHeldUp());
  EXPECT_EQ(receiver_.completion.wait_for(400ms), std::future_status::timeout);
  receiver_.allow(6);
  const auto error = receiver_.result();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, HTTPClientErrorTimedOut);
  EXPECT_EQ(receiver_.body, "abc");
}

TEST_F(HTTPClientPauseTests, SilentServerTimesOutHoweverLittleIsWanted) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) { connection.stall(); });
  request(server.url(), 100ms);
  const auto error = receiver_.result();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, HTTPClientErrorTimedOut);
}

TEST_F(HTTPClientPauseTests, HeldUpRequestCanBeCancelled) {
  ScriptedHTTPServer server(
      ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer(countingBody(1 << 20))));
  request(server.url());
  ASSERT_TRUE(receiver_.waitUntilHeldUp());
  receiver_.task->cancel();
  const auto error = receiver_.result();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, HTTPClientErrorCancelled);
  EXPECT_EQ(receiver_.taken, 0u);
  receiver_.task->resume();
}

TEST_F(HTTPClientPauseTests, PieceRefusedOnGoingOnCancels) {
  ScriptedHTTPServer server(
      ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer(countingBody(1 << 20))));
  request(server.url());
  ASSERT_TRUE(receiver_.waitUntilHeldUp());
  receiver_.cancelsAtNextPiece = true;
  receiver_.allow(1 << 20);
  const auto error = receiver_.result();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, HTTPClientErrorCancelled);
}

TEST_F(HTTPClientPauseTests, ReceiverThatThrowsCancels) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("abc")));
  receiver_.throws = true;
  request(server.url());
  const auto error = receiver_.result();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, HTTPClientErrorCancelled);
}

TEST_F(HTTPClientPauseTests, ConnectionLostMeanwhileIsNoticedOnGoingOn) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 600000\r\n\r\nabc");
  });
  request(server.url());
  ASSERT_TRUE(receiver_.waitUntilHeldUp());
  receiver_.allow(600000);
  EXPECT_TRUE(receiver_.result());
  EXPECT_EQ(receiver_.body, "abc");
}

TEST_F(HTTPClientPauseTests, OthersGoOnAndTheConnectionServesTheNextRequest) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("abc")));
  request(server.url());
  ASSERT_TRUE(receiver_.waitUntilHeldUp());
  const auto other = Exchange::start(*client_, {.url = server.url()});
  ASSERT_TRUE(other->wait(30s));
  EXPECT_EQ(other->response.body, "abc");
  receiver_.allow(3);
  EXPECT_EQ(receiver_.result(), std::nullopt);
  EXPECT_EQ(server.acceptCount(), 2u);
  const auto next = Exchange::start(*client_, {.url = server.url()});
  ASSERT_TRUE(next->wait(30s));
  EXPECT_EQ(server.acceptCount(), 2u);
}

TEST_F(HTTPClientPauseTests, GoingOnWithNothingHeldUpDoesNothing) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("abc")));
  receiver_.allowance = 3;
  request(server.url());
  for (int i = 0; i < 100; ++i) receiver_.task->resume();
  EXPECT_EQ(receiver_.result(), std::nullopt);
  receiver_.task->resume();
  EXPECT_EQ(receiver_.body, "abc");
}

TEST_F(HTTPClientPauseTests, WaitingCostsNoProcessorTime) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + countingBody(900'000));
    connection.stall();
  });
  request(server.url());
  ASSERT_TRUE(receiver_.waitUntilHeldUp());
  const auto before = processorTime();
  std::this_thread::sleep_for(500ms);
  const auto heldUp = processorTime() - before;
  receiver_.allow(1'000'000);
  ASSERT_TRUE(waitFor([this] { return receiver_.taken == 900'000u; }, 30s));
  const auto resumed = processorTime();
  std::this_thread::sleep_for(500ms);
  EXPECT_LT(heldUp, 250ms);
  EXPECT_LT(processorTime() - resumed, 250ms);
}

TEST_F(HTTPClientPauseTests, DestroyingTheClientEndsWhatIsHeldUp) {
  ScriptedHTTPServer server(
      ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer(countingBody(1 << 20))));
  request(server.url());
  ASSERT_TRUE(receiver_.waitUntilHeldUp());
  client_.reset();
  EXPECT_EQ(receiver_.result()->code, HTTPClientErrorCancelled);
}

}  // namespace
}  // namespace ferrox::test
