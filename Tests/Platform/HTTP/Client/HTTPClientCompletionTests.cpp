#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Tests/Platform/HTTP/Client/Exchange.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"

namespace ferrox::test {
namespace {

/// Where completions are called, for those who want it otherwise than usual.
class HTTPClientCompletionTests : public ::testing::Test {
 protected:
  using Completion = std::function<void(const std::optional<FRXError>&, const HTTPClientResponse&)>;

  void sendQuick(const std::string& url, Completion completion) {
    HTTPClientCallbacks callbacks;
    callbacks.onCompletion = std::move(completion);
    callbacks.completesQuickly = true;
    client_->send({.url = url}, std::move(callbacks));
  }

  ScriptedHTTPServer server_{ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("x"))};
  ScriptedResolver resolver_;
  std::unique_ptr<HTTPClient> client_ = HTTPClient::make(resolver_);
};

TEST_F(HTTPClientCompletionTests, AQuickOneComesOnTheTransferThread) {
  std::atomic<std::thread::id> transferThread;
  std::promise<std::thread::id> completionThread;
  HTTPClientCallbacks callbacks;
  callbacks.onResponse = [&](const HTTPClientResponse&) {
    transferThread = std::this_thread::get_id();
    return true;
  };
  callbacks.onCompletion = [&](const std::optional<FRXError>&, const HTTPClientResponse& response) {
    EXPECT_EQ(response.body, "x");
    completionThread.set_value(std::this_thread::get_id());
  };
  callbacks.completesQuickly = true;
  client_->send({.url = server_.url()}, std::move(callbacks));
  const auto thread = completionThread.get_future().get();
  EXPECT_EQ(thread, transferThread.load());
}

// Nobody else would wake the transfer thread for them.
TEST_F(HTTPClientCompletionTests, WhatAQuickOneSendsIsSentAtOnce) {
  constexpr int count = 500;
  std::atomic<int> done{0};
  Completion next = [&](const std::optional<FRXError>& error, const HTTPClientResponse&) {
    EXPECT_FALSE(error);
    if (++done < count) sendQuick(server_.url(), next);
  };
  sendQuick(server_.url(), next);
  EXPECT_TRUE(waitFor([&done] { return done == count; }));
}

TEST_F(HTTPClientCompletionTests, AQuickOneIsNeverCalledInsideSend) {
  std::promise<std::thread::id> refused;
  sendQuick("not a url", [&](const std::optional<FRXError>& error, const HTTPClientResponse&) {
    EXPECT_TRUE(error);
    refused.set_value(std::this_thread::get_id());
  });
  EXPECT_NE(refused.get_future().get(), std::this_thread::get_id());
}

TEST_F(HTTPClientCompletionTests, AQuickOneThatThrowsHarmsNobodyElse) {
  sendQuick(server_.url(), [](const std::optional<FRXError>&, const HTTPClientResponse&) {
    throw std::runtime_error("no paper");
  });
  const auto other = Exchange::start(*client_, {.url = server_.url()});
  ASSERT_TRUE(other->wait());
  EXPECT_EQ(other->response.body, "x");
}

TEST_F(HTTPClientCompletionTests, AQueueOfOnesOwnTakesThem) {
  const auto queue = BackgroundQueue::makePool(1);
  std::promise<std::thread::id> queueThread;
  queue->post([&] { queueThread.set_value(std::this_thread::get_id()); });
  std::promise<std::thread::id> completionThread;
  HTTPClientCallbacks callbacks;
  callbacks.onCompletion = [&](const std::optional<FRXError>& error, const HTTPClientResponse&) {
    EXPECT_FALSE(error);
    completionThread.set_value(std::this_thread::get_id());
  };
  callbacks.completionQueue = queue.get();
  client_->send({.url = server_.url()}, std::move(callbacks));
  EXPECT_EQ(completionThread.get_future().get(), queueThread.get_future().get());
}

// Whoever waits for the completion does not know whether the thread that sent has come out of `send`.
TEST_F(HTTPClientCompletionTests, AfterTheLastOneTheClientMayGoWhileSendReturns) {
  constexpr int rounds = 300;
  for (int i = 0; i < rounds; ++i) {
    auto client = HTTPClient::make(resolver_);
    std::promise<void> completed;
    HTTPClientCallbacks callbacks;
    callbacks.onCompletion = [&](const std::optional<FRXError>&, const HTTPClientResponse&) {
      completed.set_value();
    };
    callbacks.completesQuickly = i % 2 == 0;
    const std::string url = i % 3 == 0 ? "not a url" : server_.url();
    std::thread sender([client = client.get(), url, given = std::move(callbacks)]() mutable {
      EXPECT_NE(client->send({.url = url}, std::move(given)), nullptr);
    });
    completed.get_future().wait();
    client.reset();
    sender.join();
  }
}

TEST_F(HTTPClientCompletionTests, AWrongGuessOfTheSizeLosesNothing) {
  const std::string body(1 << 20, 'b');
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer(body)));
  for (const std::uint64_t likely : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{100'000},
                                     std::uint64_t{1} << 20, ~std::uint64_t{0}}) {
    const auto exchange = Exchange::stream(*client_, {.url = server.url(), .likelyBodySize = likely});
    ASSERT_TRUE(exchange->wait());
    EXPECT_EQ(exchange->code(), 0) << likely;
    EXPECT_TRUE(exchange->streamed == body) << likely;
  }
}

}  // namespace
}  // namespace ferrox::test
