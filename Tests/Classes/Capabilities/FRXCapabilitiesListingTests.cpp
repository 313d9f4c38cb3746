// A listing among peers that a test makes up.
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "Classes/Capabilities/FRXCapabilitiesListing.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/Base/Json.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Tests/Support/ManualClock.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Result = FRXCapabilitiesListing::Result;
using Accessors = FRXCapabilitiesListing::Accessors;

constexpr const char* bothEmpty = R"({"data":{"capabilities":{"streaming":[],"projectsharing":[]}}})";

/// The JSON of a reply to that message.
std::string reply(const FRXWebsocketMessage& request, std::optional<std::string> text) {
  return FRXWebsocketMessage::responseToMessage(&request, request.subject(), std::move(text), std::nullopt)
      .toJson()
      .value_or(std::string());
}

class FRXCapabilitiesListingTests : public testing::Test {
 protected:
  struct Request {
    FRXWebsocketMessage message;
    FRXCapabilitiesListingParts::ResponseCallback onResponse;
    FRXCapabilitiesListingParts::ErrorCallback onError;
    std::thread::id thread;
  };

  FRXCapabilitiesListingTests() { loop_.runPending(); }
  ~FRXCapabilitiesListingTests() override { background_.reset(); }

  FRXCapabilitiesListingParts parts() {
    return {.mainLoop = &loop_,
            .background = background_.get(),
            .currentServices = [this] { return services_; },
            .broadcastMessage =
                [this](const FRXWebsocketMessage& message, const std::string& toService, auto onResponse,
                       auto onError) {
                  const std::lock_guard lock(mutex_);
                  requests_.insert_or_assign(
                      toService, Request{message, onResponse, onError, std::this_thread::get_id()});
                },
            .forgetReply = [this](const std::string& id) { forgotten_.push_back(id); }};
  }
  std::string addPeer(const std::string& host) {
    services_.push_back(std::make_shared<FRXNetService>(host, 16654, "DEVICE-MTI=/" + host));
    return services_.back()->serviceId();
  }
  void list() {
    listing_->listCapabilities(
        [this](const Result& result) {
          results_.push_back(result);
          completedOn_ = std::this_thread::get_id();
        },
        [this](const FRXError&) { ++failures_; });
  }
  Request requestTo(const std::string& serviceId) {
    EXPECT_TRUE(waitFor(loop_, [&] {
      const std::lock_guard lock(mutex_);
      return requests_.contains(serviceId);
    }));
    const std::lock_guard lock(mutex_);
    return requests_.at(serviceId);
  }
  void answer(const std::string& serviceId, std::optional<std::string> text) {
    const Request request = requestTo(serviceId);
    request.onResponse(reply(request.message, std::move(text)));
  }
  bool isCompleted() const { return !results_.empty(); }
  /// The result of a listing whose only peer answers so.
  Result resultOfAnswer(const std::string& json) {
    const std::string peer = addPeer("MAC.LOCAL.");
    list();
    requestTo(peer).onResponse(json);
    EXPECT_EQ(results_.size(), 1U);
    return isCompleted() ? results_[0] : Result();
  }

  const LogRecording log_;
  ManualClock clock_;
  RunLoop loop_{clock_};
  std::unique_ptr<BackgroundQueue> background_ = BackgroundQueue::makePool(2);
  std::vector<std::shared_ptr<FRXNetService>> services_;
  std::mutex mutex_;
  std::map<std::string, Request> requests_;
  std::vector<std::string> forgotten_;
  std::vector<Result> results_;
  std::thread::id completedOn_;
  int failures_ = 0;
  std::unique_ptr<FRXCapabilitiesListing> listing_ = std::make_unique<FRXCapabilitiesListing>(parts());
};

// Whom it asks, and when it ends

TEST_F(FRXCapabilitiesListingTests, WithoutPeersItEndsAtOnceOnTheCallersThread) {
  std::thread caller([this] {
    list();
    EXPECT_EQ(completedOn_, std::this_thread::get_id());
  });
  caller.join();
  EXPECT_EQ(results_, std::vector<Result>{{}});
  EXPECT_EQ(failures_, 0);
}

TEST_F(FRXCapabilitiesListingTests, AsksWithTheCapabilitiesQueryOnABackgroundThread) {
  const std::string peer = addPeer("MAC.LOCAL.");
  list();
  const Request request = requestTo(peer);
  EXPECT_NE(request.thread, std::this_thread::get_id());
  EXPECT_EQ(request.message.messageType(), FRXMessageType::FRXMessageTypeQuery);
  EXPECT_EQ(request.message.subject(), "capabilities request");
  EXPECT_EQ(request.message.message(),
            "{ capabilities { streaming { name path contentType port } projectsharing { name id port } } }");
  EXPECT_EQ(request.message.userInfo().value_or(FRXDictionary{}), FRXDictionary{});
  EXPECT_EQ(request.message.id().value_or("").size(), 36U);
}

TEST_F(FRXCapabilitiesListingTests, TwoPeersGiveTwoEntriesEachUnderTheirServiceIds) {
  const std::string a = addPeer("a.local."), b = addPeer("b.local.");
  list();
  answer(a,
         R"({"data":{"capabilities":{"streaming":[{"name":"S","path":"/streams/s","contentType":"VIDEO_ANGLE",
              "port":16654}],"projectsharing":null}}})");
  EXPECT_FALSE(isCompleted());
  answer(b,
         R"({"data":{"capabilities":{"streaming":[],"projectsharing":[{"name":"P","id":"p","port":7}]}}})");
  const Result expected{
      {"streaming", {{"A.LOCAL.:16654", {{"S", "http://A.LOCAL.:16654/streams/s"}}}, {"B.LOCAL.:16654", {}}}},
      {"projectsharing",
       {{"A.LOCAL.:16654", {}}, {"B.LOCAL.:16654", {{"P", "http://B.LOCAL.:7/projects/p"}}}}}};
  EXPECT_EQ(results_, std::vector<Result>{expected});
  EXPECT_EQ(completedOn_, std::this_thread::get_id());
}

TEST_F(FRXCapabilitiesListingTests, APeerWithoutOffersIsListedUnderBothNames) {
  const std::string peer = addPeer("MAC.LOCAL.");
  list();
  answer(peer, bothEmpty);
  EXPECT_EQ(results_, (std::vector<Result>{{{"streaming", {{peer, {}}}}, {"projectsharing", {{peer, {}}}}}}));
}

TEST_F(FRXCapabilitiesListingTests, APeerThatFailsIsLeftOutAndLogged) {
  const std::string failing = addPeer("FAILING"), nameless = addPeer("NAMELESS"), good = addPeer("GOOD");
  list();
  requestTo(failing).onError(FRXError{"domain", 1, "gone away"});
  requestTo(nameless).onError(std::nullopt);
  answer(good, bothEmpty);
  EXPECT_EQ(results_, (std::vector<Result>{{{"streaming", {{good, {}}}}, {"projectsharing", {{good, {}}}}}}));
  EXPECT_TRUE(log_->has(LogLevel::Warn, "Error retrieving capabilities from FAILING:16654 - gone away"));
  EXPECT_TRUE(log_->has(LogLevel::Warn, "Error retrieving capabilities from NAMELESS:16654 - unknown error"));
  EXPECT_EQ(failures_, 0);
}

TEST_F(FRXCapabilitiesListingTests, OnlyFailuresGiveAnEmptyResult) {
  const std::string peer = addPeer("FAILING");
  list();
  requestTo(peer).onError(std::nullopt);
  EXPECT_EQ(results_, std::vector<Result>{{}});
}

TEST_F(FRXCapabilitiesListingTests, APeerThatNeverAnswersIsLeftOutWhenTheTimeIsOver) {
  const std::string silent = addPeer("SILENT"), good = addPeer("GOOD");
  list();
  const Request request = requestTo(silent);
  answer(good, bothEmpty);
  clock_.advance(milliseconds(9999), loop_);
  EXPECT_FALSE(isCompleted());
  clock_.advance(milliseconds(1), loop_);
  EXPECT_EQ(results_, (std::vector<Result>{{{"streaming", {{good, {}}}}, {"projectsharing", {{good, {}}}}}}));
  EXPECT_TRUE(
      log_->has(LogLevel::Warn, "Error retrieving capabilities from SILENT:16654 - The request timed out."));
  EXPECT_EQ(forgotten_, std::vector<std::string>{request.message.id().value_or("")});
  EXPECT_EQ(failures_, 0);
}

TEST_F(FRXCapabilitiesListingTests, WhatComesAfterTheTimeIsOverIsIgnored) {
  const std::string peer = addPeer("LATE");
  list();
  requestTo(peer);
  clock_.advance(seconds(10), loop_);
  ASSERT_TRUE(isCompleted());
  log_->clear();
  answer(peer, bothEmpty);
  requestTo(peer).onError(std::nullopt);
  clock_.advance(seconds(10), loop_);
  EXPECT_EQ(results_, std::vector<Result>{{}});
  EXPECT_TRUE(log_->entries().empty());
}

TEST_F(FRXCapabilitiesListingTests, OnlyTheFirstAnswerOfAPeerCounts) {
  const std::string twice = addPeer("TWICE"), other = addPeer("OTHER");
  list();
  answer(twice, bothEmpty);
  answer(twice, "garbage");
  requestTo(twice).onError(std::nullopt);
  EXPECT_FALSE(isCompleted());
  answer(other, bothEmpty);
  ASSERT_EQ(results_.size(), 1U);
  EXPECT_EQ(results_[0].at("streaming").size(), 2U);
}

TEST_F(FRXCapabilitiesListingTests, TheTimeCanBeSet) {
  EXPECT_EQ(listing_->responseTimeout(), seconds(10));
  listing_->setResponseTimeout(milliseconds(500));
  addPeer("SILENT");
  list();
  clock_.advance(milliseconds(499), loop_);
  EXPECT_FALSE(isCompleted());
  clock_.advance(milliseconds(1), loop_);
  EXPECT_TRUE(isCompleted());
}

TEST_F(FRXCapabilitiesListingTests, WithoutATimeItWaitsForEver) {
  listing_->setResponseTimeout(seconds(0));
  const std::string peer = addPeer("SLOW");
  list();
  requestTo(peer);
  clock_.advance(std::chrono::hours(24 * 365), loop_);
  EXPECT_FALSE(isCompleted());
  answer(peer, bothEmpty);
  EXPECT_TRUE(isCompleted());
}

TEST_F(FRXCapabilitiesListingTests, ATimeBeyondAllClocksIsForEver) {
  listing_->setResponseTimeout(std::chrono::nanoseconds::max());
  const std::string peer = addPeer("SLOW");
  list();
  clock_.advance(std::chrono::hours(1), loop_);
  EXPECT_FALSE(isCompleted());
  answer(peer, bothEmpty);
  EXPECT_TRUE(isCompleted());
}

TEST_F(FRXCapabilitiesListingTests, TheTimeCountsFromACallOnAnotherThread) {
  const std::string peer = addPeer("SILENT");
  std::thread([this] { list(); }).join();
  clock_.advance(seconds(10), loop_);
  EXPECT_TRUE(isCompleted());
  EXPECT_EQ(completedOn_, std::this_thread::get_id());
}

TEST_F(FRXCapabilitiesListingTests, AnswersOnAnyThreadCompleteOnTheMainOne) {
  for (int i = 0; i < 32; ++i) addPeer("PEER" + std::to_string(i));
  list();
  std::vector<std::thread> threads;
  for (const auto& service : services_) {
    threads.emplace_back([request = requestTo(service->serviceId())] {
      request.onResponse(reply(request.message, bothEmpty));
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(isCompleted());
  ASSERT_TRUE(waitFor(loop_, [this] { return isCompleted(); }));
  EXPECT_EQ(completedOn_, std::this_thread::get_id());
  EXPECT_EQ(results_[0].at("projectsharing").size(), 32U);
}

TEST_F(FRXCapabilitiesListingTests, CallsAreIndependentOfEachOther) {
  const std::string peer = addPeer("PEER");
  list();
  const Request first = requestTo(peer);
  {
    const std::lock_guard lock(mutex_);
    requests_.clear();
  }
  list();
  const Request second = requestTo(peer);
  EXPECT_NE(first.message.id(), second.message.id());
  second.onResponse(reply(second.message, bothEmpty));
  EXPECT_EQ(results_.size(), 1U);
  first.onResponse(reply(first.message, "{}"));
  ASSERT_EQ(results_.size(), 2U);
  EXPECT_EQ(results_[1], Result{});
}

TEST_F(FRXCapabilitiesListingTests, TheListingMayGoWhileACallIsUnderWay) {
  const std::string good = addPeer("GOOD");
  addPeer("SILENT");
  list();
  listing_.reset();
  answer(good, bothEmpty);
  clock_.advance(seconds(10), loop_);
  ASSERT_TRUE(isCompleted());
  EXPECT_TRUE(results_[0].at("streaming").contains(good));
}

TEST_F(FRXCapabilitiesListingTests, ACallMayBeginInACompletion) {
  const std::string peer = addPeer("PEER");
  listing_->listCapabilities([this](const Result&) {
    listing_.reset();
    FRXCapabilitiesListing(parts()).listCapabilities(
        [this](const Result& result) { results_.push_back(result); });
  });
  answer(peer, bothEmpty);
  EXPECT_FALSE(isCompleted());
  clock_.advance(seconds(10), loop_);
  EXPECT_TRUE(isCompleted());
}

TEST_F(FRXCapabilitiesListingTests, ACompletionMayThrowOrBeMissing) {
  const auto throwing = [](const Result&) { throw std::runtime_error("host's fault"); };
  listing_->listCapabilities(throwing);
  const std::string peer = addPeer("PEER");
  listing_->listCapabilities(throwing);
  answer(peer, bothEmpty);
  EXPECT_EQ(log_->count(LogLevel::Error, "The completion of a capabilities listing failed: host's fault"),
            2U);
  listing_->listCapabilities(nullptr);
  clock_.advance(seconds(10), loop_);
}

// What it makes of an answer

TEST_F(FRXCapabilitiesListingTests, WhatIsNoMessageIsLoggedAndLeftOut) {
  EXPECT_EQ(resultOfAnswer("no json"), Result{});
  EXPECT_TRUE(log_->mentions(LogLevel::Warn, "Unable to create FRXWebsocketMessage from json: "));
}

TEST_F(FRXCapabilitiesListingTests, AMessageWithoutTextIsLoggedAndLeftOut) {
  EXPECT_EQ(resultOfAnswer(R"({"type":2,"id":"X"})"), Result{});
  EXPECT_TRUE(log_->has(LogLevel::Warn, "Unable to create FRXWebsocketMessage from json: nil"));
}

TEST_F(FRXCapabilitiesListingTests, ATextThatIsNoJsonIsLoggedAndLeftOut) {
  EXPECT_EQ(resultOfAnswer(R"({"type":2,"id":"X","message":"{ oops"})"), Result{});
  EXPECT_TRUE(log_->mentions(LogLevel::Warn, "An error was returned on JSON deserialization: "));
  EXPECT_TRUE(log_->mentions(LogLevel::Warn, "Error parsing message json: "));
}

TEST_F(FRXCapabilitiesListingTests, DocumentsWithoutCapabilitiesAreLeftOutSilently) {
  for (const char* text : {"{}", "[]", "7", "null", R"({"data":null})", R"({"data":[]})", R"({"data":{}})",
                           R"({"data":{"capabilities":null}})", R"({"data":{"capabilities":[]}})",
                           R"({"errors":[{"message":"no"}]})", R"({"capabilities":{"streaming":[]}})"}) {
    services_.clear();
    results_.clear();
    requests_.clear();
    const std::string peer = addPeer("PEER");
    list();
    answer(peer, text);
    EXPECT_EQ(results_, std::vector<Result>{{}}) << text;
  }
  EXPECT_TRUE(log_->entries().empty());
}

// Reading offers

Accessors streamsOf(const std::string& elements) {
  const auto data = parseJson(R"({"streaming":)" + elements + "}");
  return FRXCapabilitiesListing::getStreamsFromData(data.value_or(FRXValue()), "MAC.LOCAL.");
}
Accessors projectsOf(const std::string& elements) {
  const auto data = parseJson(R"({"projectsharing":)" + elements + "}");
  return FRXCapabilitiesListing::getProjectsFromData(data.value_or(FRXValue()), "MAC.LOCAL.");
}

TEST_F(FRXCapabilitiesListingTests, StreamsKeepTheirOrderAndNeedNamePathAndPort) {
  EXPECT_EQ(streamsOf(R"([{"name":"b","path":"/streams/b","port":1,"contentType":7},{"path":"/x","port":1},
                          {"name":"x","port":1},{"name":"x","path":"/x"},{"name":"x","path":"/x","port":null},
                          {"name":"","path":"/streams/a","port":"2"}])"),
            (Accessors{{"b", "http://MAC.LOCAL.:1/streams/b"}, {"", "http://MAC.LOCAL.:2/streams/a"}}));
  EXPECT_TRUE(log_->entries().empty());
}

TEST_F(FRXCapabilitiesListingTests, ProjectsKeepTheirOrderAndNeedNameAndId) {
  EXPECT_EQ(projectsOf(R"([{"name":"b","id":"b","port":1},{"id":"x","port":1},{"name":"x","port":1},
                           {"name":"","id":"x"},{"name":"x","id":""},{"name":"a","id":"a/b","port":2}])"),
            (Accessors{{"b", "http://MAC.LOCAL.:1/projects/b"}, {"a", "http://MAC.LOCAL.:2/projects/a/b"}}));
}

TEST_F(FRXCapabilitiesListingTests, AnIdThatCannotStandInAURLIsEscaped) {
  EXPECT_EQ(projectsOf(R"([{"name":"a","id":"My Film","port":1},{"name":"b","id":"100%","port":1},
                           {"name":"c","id":"\u00e4","port":1}])"),
            (Accessors{{"a", "http://MAC.LOCAL.:1/projects/My%20Film"},
                       {"b", "http://MAC.LOCAL.:1/projects/100%25"},
                       {"c", "http://MAC.LOCAL.:1/projects/%C3%A4"}}));
  EXPECT_TRUE(log_->entries().empty());
}

TEST_F(FRXCapabilitiesListingTests, AProjectWithoutPortHoldsNullInParentheses) {
  const Accessors expected{{"P", "http://MAC.LOCAL.:(null)/projects/p"}};
  EXPECT_EQ(projectsOf(R"([{"name":"P","id":"p"}])"), expected);
  EXPECT_EQ(projectsOf(R"([{"name":"P","id":"p","port":null}])"), expected);
}

TEST_F(FRXCapabilitiesListingTests, MembersOfOtherTypesCountAsMissing) {
  for (const char* elements :
       {"null", "7", "\"text\"", "{}", "[]", "[null,7,\"x\",[],{}]",
        R"([{"name":7,"path":"/a","id":"a","port":1}])", R"([{"name":"x","path":[],"id":{},"port":1}])"}) {
    EXPECT_EQ(streamsOf(elements), Accessors{}) << elements;
    EXPECT_EQ(projectsOf(elements), Accessors{}) << elements;
  }
  for (const FRXValue& data : {FRXValue(), FRXValue(7), FRXValue("x"), FRXValue(FRXArray{1})}) {
    EXPECT_EQ(FRXCapabilitiesListing::getStreamsFromData(data, "MAC"), Accessors{});
    EXPECT_EQ(FRXCapabilitiesListing::getProjectsFromData(data, "MAC"), Accessors{});
  }
  EXPECT_TRUE(log_->entries().empty());
}

TEST_F(FRXCapabilitiesListingTests, WhatMakesNoURLIsLeftOutAndLoggedOnceEscaped) {
  EXPECT_EQ(streamsOf(R"([{"name":"x","path":"/a\nb","port":1},{"name":"x","path":"/a b","port":1},
                          {"name":"x","path":"@evil/","port":1},{"name":"x","path":"/a","port":70000},
                          {"name":"good","path":"/a","port":1}])"),
            (Accessors{{"good", "http://MAC.LOCAL.:1/a"}}));
  ASSERT_EQ(log_->entries().size(), 1U);
  const LogEntry entry = log_->entries()[0];
  EXPECT_EQ(entry.level, LogLevel::Warn);
  EXPECT_NE(entry.message.find("Left out 4 streams of MAC.LOCAL."), std::string::npos) << entry.message;
  EXPECT_EQ(entry.message.find('\n'), std::string::npos);
  log_->clear();
  EXPECT_EQ(projectsOf(R"([{"name":"x","id":"a","port":-1},{"name":"x","id":"a","port":true},
                           {"name":"x","id":"x\r\nHost: evil","port":1}])"),
            Accessors{});
  EXPECT_EQ(log_->entries().size(), 1U);
}

TEST_F(FRXCapabilitiesListingTests, AHugeAnswerIsReadInProportionToItsSize) {
  std::string elements = "[";
  for (std::size_t i = 0; i < 50'000; ++i)
    elements += R"({"name":"x","path":")" + std::string(i % 2, ' ') + R"(/a","port":1},)";
  elements.back() = ']';
  EXPECT_EQ(streamsOf(elements).size(), 25'000U);
  EXPECT_EQ(log_->entries().size(), 1U);
  EXPECT_LT(log_->entries()[0].message.size(), 400U);
}

TEST_F(FRXCapabilitiesListingTests, ParseJSONHandsOutValueOrError) {
  EXPECT_EQ(FRXCapabilitiesListing::parseJSON("[1]"), FRXValue(FRXArray{1}));
  EXPECT_TRUE(log_->entries().empty());
  FRXError error;
  EXPECT_EQ(FRXCapabilitiesListing::parseJSON("[1", &error), std::nullopt);
  EXPECT_FALSE(error.localizedDescription.empty());
  EXPECT_TRUE(log_->has(LogLevel::Warn,
                        "An error was returned on JSON deserialization: " + error.localizedDescription));
  EXPECT_EQ(FRXCapabilitiesListing::parseJSON(std::string(100'000, '[')), std::nullopt);
}

TEST(FRXClientAccessor, HoldsNameAndURL) {
  const FRXClientAccessor accessor("Camera", "http://MAC.LOCAL.:1/streams/a");
  EXPECT_EQ(accessor.name(), "Camera");
  EXPECT_EQ(accessor.accessURL(), "http://MAC.LOCAL.:1/streams/a");
}

}  // namespace
}  // namespace ferrox::test
