// A listing over real sockets: peers that are this process's own server, and peers that misbehave.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <optional>

#include "Classes/Capabilities/FRXCapabilitiesListing.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Tests/Classes/Capabilities/SocketFixture.h"
#include "Tests/Platform/WebSocket/ScriptedPeer.h"
#include "Tests/Support/ScriptedHTTPServer.h"

namespace ferrox::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Result = FRXCapabilitiesListing::Result;
using Accessors = FRXCapabilitiesListing::Accessors;

constexpr const char* oneStream =
    R"({"data":{"capabilities":{"streaming":[{"name":"S","path":"/streams/s","port":1}]}}})";
/// What a listing makes of that.
Result resultOf(const std::string& peer) {
  return {{"streaming", {{peer, {{"S", "http://127.0.0.1:1/streams/s"}}}}}, {"projectsharing", {{peer, {}}}}};
}

/// What a peer's script does with the text of a request; nothing keeps it silent.
using AnswerScript = std::function<std::optional<std::string>(const FRXWebsocketMessage& request)>;

/// The whole reply whose message is `text`.
AnswerScript replyingWith(std::string text) {
  return [text = std::move(text)](const FRXWebsocketMessage& request) {
    return FRXWebsocketMessage::responseToMessage(&request, request.subject(), text, std::nullopt).toJson();
  };
}

class ListingOverSockets : public SocketFixture {
 protected:
  ~ListingOverSockets() override {
    manager_->stop();
    background_.reset();
    // The loop's tasks hold what belongs to the manager.
    while (loop_.runPending() > 0) {
    }
  }

  /// A peer that answers each request with what the script says.
  std::string addScripted(AnswerScript script) {
    scripted_.push_back(std::make_unique<ScriptedHTTPServer>([script](ScriptedConnection& connection) {
      ScriptedPeer peer(connection);
      peer.accept();
      while (const auto frame = peer.readFrame()) {
        if (frame->opcode() != 1) return;
        const auto request = FRXWebsocketMessage::fromJson(frame->payload);
        const auto answer = request ? script(*request) : std::nullopt;
        if (answer && !peer.send(textFrame(*answer))) return;
      }
    }));
    return addPeer("127.0.0.1", scripted_.back()->port());
  }
  void list() {
    FRXCapabilitiesListing({.mainLoop = &loop_,
                            .background = background_.get(),
                            .currentServices = [this] { return peers_; },
                            .broadcastMessage =
                                [this](const FRXWebsocketMessage& message, const std::string& toService,
                                       const auto& onResponse, const auto& onError) {
                                  const auto counted = [this, onResponse](const std::string& json) {
                                    onResponse(json);
                                    ++answers_;
                                  };
                                  manager_->broadcastMessage(message, toService, counted, onError);
                                },
                            .forgetReply = [this](const std::string& id) { manager_->forgetReply(id); }})
        .listCapabilities([this](const Result& result) { result_ = result; });
  }
  bool waitForAnswers(int count) {
    return waitFor(
        loop_, [this, count] { return answers_ == count; }, longTime);
  }
  bool waitForResult() {
    return waitFor(
        loop_, [this] { return result_.has_value(); }, longTime);
  }
  /// The result of asking all peers, which are connected.
  Result resultOfAll() {
    connectAll();
    list();
    EXPECT_TRUE(waitForResult());
    return result_.value_or(Result());
  }
  /// The time of those who never answer is over.
  void passTime() { clock_.advance(seconds(10), loop_); }

  std::unique_ptr<BackgroundQueue> background_ = BackgroundQueue::makePool(2);
  std::vector<std::unique_ptr<ScriptedHTTPServer>> scripted_;
  std::optional<Result> result_;
  int answers_ = 0;
};

TEST_F(ListingOverSockets, WithoutPeersThereIsAnEmptyResultAtOnce) {
  list();
  EXPECT_EQ(result_, Result{});
}

TEST_F(ListingOverSockets, TwoPeersTellWhatTheyOffer) {
  offerStream("cam A", "file:///tmp");
  shareProject("P1", "file:///tmp");
  const std::string a = addOwnServer("127.0.0.1"), b = addOwnServer("127.0.0.2");
  const std::string port = std::to_string(server_->port());
  const Result expected{
      {"streaming",
       {{a, {{"Stream", "http://127.0.0.1:" + port + "/streams/cam%20A"}}},
        {b, {{"Stream", "http://127.0.0.2:" + port + "/streams/cam%20A"}}}}},
      {"projectsharing",
       {{a, {{"Project", "http://127.0.0.1:" + port + "/projects/P1"}}},
        {b, {{"Project", "http://127.0.0.2:" + port + "/projects/P1"}}}}},
  };
  EXPECT_EQ(resultOfAll(), expected);
}

TEST_F(ListingOverSockets, APeerWithoutCapabilitiesIsListedWithNothing) {
  const std::string peer = addOwnServer();
  EXPECT_EQ(resultOfAll(), (Result{{"streaming", {{peer, {}}}}, {"projectsharing", {{peer, {}}}}}));
}

TEST_F(ListingOverSockets, APeerThatNeverAnswersIsLeftOutWhenTheTimeIsOver) {
  const std::string silent = addScripted([](const auto&) { return std::nullopt; });
  const std::string good = addScripted(replyingWith(oneStream));
  connectAll();
  list();
  ASSERT_TRUE(waitForAnswers(1));
  EXPECT_FALSE(result_);
  passTime();
  EXPECT_EQ(result_, resultOf(good));
  EXPECT_TRUE(log_->has(LogLevel::Warn,
                        "Error retrieving capabilities from " + silent + " - The request timed out."));
}

TEST_F(ListingOverSockets, AnAnswerThatComesLateIsIgnored) {
  const auto isOver = std::make_shared<std::atomic<bool>>(false);
  const auto reply = replyingWith(oneStream);
  const std::string late = addScripted([isOver, reply](const FRXWebsocketMessage& request) {
    EXPECT_TRUE(waitFor([&] { return isOver->load(); }, longTime));
    return reply(request);
  });
  connectAll();
  list();
  // The peer is known to have been asked when the background has nothing to do any more.
  background_ = BackgroundQueue::makePool(2);
  while (loop_.runPending() > 0) {
  }
  passTime();
  ASSERT_EQ(result_, Result{});
  *isOver = true;
  // The answers of one peer come in order: the late one is dealt with when the next is here.
  result_.reset();
  list();
  ASSERT_TRUE(waitForResult());
  EXPECT_EQ(result_, resultOf(late));
  EXPECT_EQ(answers_, 1) << "the late one reached nobody";
}

TEST_F(ListingOverSockets, AnswersWithoutCapabilitiesAreLeftOut) {
  const auto sending = [](std::string text) {
    return [text = std::move(text)](const FRXWebsocketMessage& request) -> std::optional<std::string> {
      return R"({"type":2,"id":")" + request.id().value_or("") + "\"," + text + "}";
    };
  };
  for (const char* text : {R"("message":"garbage")", R"("message":"")", R"("message":7)",
                           R"("subject":"none")", R"("message":"{}")", R"("message":"[]")",
                           R"("message":"{\"data\":null}")", R"("message":"{\"data\":{\"capabilities\":7}}")",
                           R"("message":"{\"errors\":[{\"message\":\"no\"}]}")"}) {
    addScripted(sending(text));
  }
  const std::string good = addScripted(replyingWith(oneStream));
  EXPECT_EQ(resultOfAll(), resultOf(good));
  EXPECT_EQ(answers_, 10);
  EXPECT_TRUE(log_->has(LogLevel::Warn, "Unable to create FRXWebsocketMessage from json: nil"));
  EXPECT_TRUE(log_->mentions(LogLevel::Warn, "Error parsing message json: "));
}

TEST_F(ListingOverSockets, OffersWithoutTheirMembersAreSkipped) {
  const std::string peer = addScripted(replyingWith(
      R"({"data":{"capabilities":{"streaming":[{"name":"S","path":"/streams/s"},{"name":"T","path":"/t","port":2},7],
          "projectsharing":[{"name":"P","id":"p"},{"id":"q","port":1},{"name":"R","id":"r\u0000","port":1}]}}})"));
  const Result expected{
      {"streaming", {{peer, {{"T", "http://127.0.0.1:2/t"}}}}},
      {"projectsharing", {{peer, {{"P", "http://127.0.0.1:(null)/projects/p"}}}}},
  };
  EXPECT_EQ(resultOfAll(), expected);
}

TEST_F(ListingOverSockets, APeerThatEndsTheConnectionInsteadIsLeftOut) {
  addScripted([](const auto&) { return std::string(5 << 20, 'x'); });
  const std::string good = addScripted(replyingWith(oneStream));
  connectAll();
  list();
  ASSERT_TRUE(waitFor(
      loop_, [&] { return !manager_->isConnectedToService(peers_[0]->serviceId()); }, longTime));
  ASSERT_TRUE(waitForAnswers(1));
  passTime();
  EXPECT_EQ(result_, resultOf(good));
}

TEST_F(ListingOverSockets, APeerThatIsNotConnectedIsLeftOutWhenTheTimeIsOver) {
  const std::string gone = addPeer("127.0.0.1", 1);
  list();
  EXPECT_FALSE(result_);
  passTime();
  ASSERT_TRUE(waitForResult());
  EXPECT_EQ(result_, Result{});
  EXPECT_TRUE(log_->mentions(LogLevel::Warn, "Error retrieving capabilities from " + gone));
}

}  // namespace
}  // namespace ferrox::test
