#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <regex>
#include <stdexcept>
#include <string>

#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/Base/Json.h"
#include "Tests/Support/ScopedLocalServices.h"

namespace ferrox {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using test::ScopedLocalServices;

constexpr auto Notification = FRXMessageType::FRXMessageTypeNotification;
constexpr auto Heartbeat = FRXMessageType::FRXMessageTypeHeartbeat;
constexpr auto Query = FRXMessageType::FRXMessageTypeQuery;

FRXDate at(std::int64_t millisecondsSince1970) { return FRXDate(milliseconds(millisecondsSince1970)); }

std::int32_t wireType(const FRXWebsocketMessage& message) {
  return static_cast<std::int32_t>(message.messageType());
}

FRXWebsocketMessage read(std::string_view json) {
  FRXError error;
  auto message = FRXWebsocketMessage::fromJson(json, &error);
  if (!message) throw std::runtime_error(std::string(json) + ": " + error.localizedDescription);
  return *message;
}

FRXWebsocketMessage full() {
  return {Query,
          "capabilities request",
          "{ capabilities }",
          FRXDictionary{{"a", 1}, {"b", FRXArray{true, 2.5, "\u00e9"}}},
          at(1709298309123),
          "DEVICE-V/NAME",
          16654,
          "SESSION"};
}

FRXWebsocketMessage with(FRXDictionary userInfo) { return {Notification, "N", "F", std::move(userInfo)}; }

void expectSame(const FRXWebsocketMessage& a, const FRXWebsocketMessage& b) {
  EXPECT_EQ(a.id(), b.id());
  EXPECT_EQ(a.messageType(), b.messageType());
  EXPECT_EQ(a.subject(), b.subject());
  EXPECT_EQ(a.message(), b.message());
  EXPECT_EQ(a.userInfo(), b.userInfo());
  EXPECT_EQ(a.timestamp(), b.timestamp());
  EXPECT_EQ(a.from(), b.from());
  EXPECT_EQ(a.port(), b.port());
  EXPECT_EQ(a.serviceSessionId(), b.serviceSessionId());
}

class FRXWebsocketMessageTest : public testing::Test {
 protected:
  const ScopedLocalServices local_;
};

// Making messages

TEST_F(FRXWebsocketMessageTest, ANewOneIsStampedWithThisInstanceAndNow) {
  const auto before = std::chrono::system_clock::now();
  const FRXWebsocketMessage message(Notification, "N", "F", FRXDictionary{{"k", "v"}});
  EXPECT_GE(message.timestamp(), before);
  EXPECT_LE(message.timestamp(), std::chrono::system_clock::now());
  EXPECT_EQ(message.from(), ScopedLocalServices::frxId);
  EXPECT_EQ(message.port(), ScopedLocalServices::port);
  EXPECT_EQ(message.serviceSessionId(), ScopedLocalServices::session);
  EXPECT_EQ(message.subject(), "N");
  EXPECT_EQ(message.message(), "F");
  EXPECT_EQ(message.userInfo(), (FRXDictionary{{"k", "v"}}));
}

TEST(FRXWebsocketMessage, WithoutServerAndBrowserTheStampIsEmpty) {
  const FRXWebsocketMessage message(Heartbeat, std::nullopt, std::nullopt, std::nullopt);
  EXPECT_EQ(message.from(), std::nullopt);
  EXPECT_EQ(message.port(), 0);
  EXPECT_EQ(message.serviceSessionId(), "");
}

TEST_F(FRXWebsocketMessageTest, EachHasAnUpperCaseUUIDOfItsOwn) {
  const std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  const FRXWebsocketMessage first = full();
  EXPECT_TRUE(std::regex_match(first.id().value(), uuid)) << *first.id();
  EXPECT_NE(first.id(), full().id());
}

TEST_F(FRXWebsocketMessageTest, AbsentFieldsStayAbsentButUserInfoAndSession) {
  const FRXWebsocketMessage message(Notification, std::nullopt, std::nullopt, std::nullopt, at(0),
                                    std::nullopt, 0, std::nullopt);
  EXPECT_EQ(message.subject(), std::nullopt);
  EXPECT_EQ(message.message(), std::nullopt);
  EXPECT_EQ(message.from(), std::nullopt);
  EXPECT_EQ(message.userInfo(), FRXDictionary());
  EXPECT_EQ(message.serviceSessionId(), "");
}

// Replies

TEST_F(FRXWebsocketMessageTest, AReplyCarriesIdAndTypeOfTheRequestAndAStampOfItsOwn) {
  const FRXWebsocketMessage request = full();
  const auto before = std::chrono::system_clock::now();
  const auto reply =
      FRXWebsocketMessage::responseToMessage(&request, "subject", "response", FRXDictionary{{"k", 1}});
  EXPECT_EQ(reply.id(), request.id());
  EXPECT_EQ(reply.messageType(), Query);
  EXPECT_EQ(reply.subject(), "subject");
  EXPECT_EQ(reply.message(), "response");
  EXPECT_EQ(reply.userInfo(), (FRXDictionary{{"k", 1}}));
  EXPECT_GE(reply.timestamp(), before);
  EXPECT_EQ(reply.from(), ScopedLocalServices::frxId);
  EXPECT_EQ(reply.port(), ScopedLocalServices::port);
  EXPECT_EQ(reply.serviceSessionId(), ScopedLocalServices::session);
}

TEST_F(FRXWebsocketMessageTest, AReplyKeepsAnAbsentUserInfoAbsentAndWritesAnEmptyObject) {
  const FRXWebsocketMessage request = full();
  const auto reply =
      FRXWebsocketMessage::responseToMessage(&request, std::nullopt, std::nullopt, std::nullopt);
  EXPECT_EQ(reply.userInfo(), std::nullopt);
  EXPECT_EQ(*parseJson(reply.toJson().value())->member("userInfo"), FRXValue(FRXDictionary()));
}

TEST_F(FRXWebsocketMessageTest, AReplyToNothingHasEveryFieldUnset) {
  const auto reply = FRXWebsocketMessage::responseToMessage(nullptr, "s", "m", FRXDictionary{{"k", 1}});
  EXPECT_EQ(reply.id(), std::nullopt);
  EXPECT_EQ(reply.messageType(), Notification);
  EXPECT_EQ(reply.subject(), std::nullopt);
  EXPECT_EQ(reply.message(), std::nullopt);
  EXPECT_EQ(reply.userInfo(), std::nullopt);
  EXPECT_EQ(reply.from(), std::nullopt);
  EXPECT_EQ(reply.timestamp(), FRXDate());
  EXPECT_EQ(reply.port(), 0);
  EXPECT_EQ(reply.serviceSessionId(), "");
  EXPECT_FALSE(reply.isWritable());
  EXPECT_THROW((void)reply.toJson(), std::logic_error);
}

TEST_F(FRXWebsocketMessageTest, AReplyToAMessageWithoutIdHasNone) {
  const FRXWebsocketMessage request = read("{}");
  const auto reply = FRXWebsocketMessage::responseToMessage(&request, "s", "m", std::nullopt);
  EXPECT_EQ(reply.id(), std::nullopt);
}

// Writing

TEST_F(FRXWebsocketMessageTest, WritesExactlyNineMembersCompactly) {
  FRXWebsocketMessage message = full();
  message.setId("X");
  EXPECT_EQ(message.toJson(),
            R"({"id":"X","type":2,"subject":"capabilities request","message":"{ capabilities }",)"
            R"("userInfo":{"a":1,"b":[true,2.5,"é"]},"timestamp":1709298309123,"from":"DEVICE-V/NAME",)"
            R"("port":16654,"serviceSessionId":"SESSION"})");
}

TEST_F(FRXWebsocketMessageTest, WritesAbsentTextsAsEmptyOnesAndReadsThemBackAsEmpty) {
  const FRXWebsocketMessage message(Notification, std::nullopt, std::nullopt, std::nullopt, at(5),
                                    std::nullopt, 0, std::nullopt);
  const FRXWebsocketMessage copy = read(message.toJson().value());
  EXPECT_EQ(copy.subject(), "");
  EXPECT_EQ(copy.message(), "");
  EXPECT_EQ(copy.from(), "");
  EXPECT_EQ(copy.serviceSessionId(), "");
  EXPECT_EQ(copy.userInfo(), FRXDictionary());
}

TEST_F(FRXWebsocketMessageTest, WritesTheTypeAsAnUnsigned32BitNumber) {
  for (const auto& [type, written] :
       {std::pair{0, 0LL}, {3, 3LL}, {7, 7LL}, {-1, 4294967295LL}, {INT32_MIN, 2147483648LL}}) {
    const FRXWebsocketMessage message(static_cast<FRXMessageType>(type), "s", "m", std::nullopt);
    const auto json = message.toJson().value();
    EXPECT_EQ(*parseJson(json)->member("type"), FRXValue(written));
    EXPECT_EQ(wireType(read(json)), type);
  }
}

TEST_F(FRXWebsocketMessageTest, TruncatesTheTimestampTowardZeroToMilliseconds) {
  const std::pair<microseconds, std::int64_t> samples[] = {{microseconds(1709298309123999), 1709298309123},
                                                           {microseconds(999), 0},
                                                           {microseconds(-999), 0},
                                                           {microseconds(-1999), -1},
                                                           {microseconds(-2000), -2}};
  for (const auto& [time, written] : samples) {
    const FRXWebsocketMessage message(Notification, "s", "m", std::nullopt, FRXDate(time), "f", 1, "x");
    const auto json = message.toJson().value();
    EXPECT_EQ(*parseJson(json)->member("timestamp"), FRXValue(written));
    EXPECT_EQ(read(json).timestamp(), at(written));
  }
}

TEST_F(FRXWebsocketMessageTest, WritesNothingWhenItHoldsWhatJsonCannotCarry) {
  FRXValue deep;
  for (int i = 0; i < 600; ++i) deep = FRXArray{std::move(deep)};
  const FRXWebsocketMessage unwritable[] = {
      with({{"when", FRXDate()}}),
      with({{"list", FRXArray{FRXDictionary{{"when", FRXDate()}}}}}),
      with({{"number", std::nan("")}}),
      with({{"number", std::numeric_limits<double>::infinity()}}),
      with({{"text", "\xff"}}),
      with({{"\xc3", 1}}),
      with({{"deep", deep}}),
      {Notification, "\xff", "F", std::nullopt},
      {Notification, "N", "\xed\xa0\x80", std::nullopt},
      {Notification, "N", "F", std::nullopt, at(0), "\xc0\x80", 1, "s"},
      {Notification, "N", "F", std::nullopt, at(0), "f", 1, "\x80"},
  };
  for (const FRXWebsocketMessage& message : unwritable) {
    EXPECT_FALSE(message.isWritable());
    EXPECT_EQ(message.toJson(), std::nullopt);
  }
  EXPECT_TRUE(full().isWritable());
}

TEST_F(FRXWebsocketMessageTest, WritingWithoutAnIdIsAMistakeOfTheCaller) {
  FRXWebsocketMessage message = full();
  message.setId(std::nullopt);
  EXPECT_FALSE(message.isWritable());
  EXPECT_THROW((void)message.toJson(), std::logic_error);
  message.setId("");
  EXPECT_TRUE(message.isWritable());
  EXPECT_TRUE(message.toJson());
}

// Reading

TEST_F(FRXWebsocketMessageTest, ARoundTripKeepsEveryField) {
  const FRXWebsocketMessage message = full();
  expectSame(read(message.toJson().value()), message);
}

TEST_F(FRXWebsocketMessageTest, ARoundTripKeepsTextsOfEveryKind) {
  using namespace std::string_literals;
  const std::string texts[] = {"\0 before and after \0"s, "\"\\/\b\f\n\r\t\x01\x1f\x7f",
                               "\u00e9\U0001f600\u2028", std::string(5000, 'x') + "\n", " "};
  for (const std::string& text : texts) {
    FRXWebsocketMessage message(Notification, text, text, FRXDictionary{{text, text}}, at(1), text, 1, text);
    message.setId(text);
    expectSame(read(message.toJson().value()), message);
  }
}

TEST_F(FRXWebsocketMessageTest, AnEmptyObjectIsANotificationWithoutId) {
  const FRXWebsocketMessage message = read("{}");
  EXPECT_EQ(message.id(), std::nullopt);
  EXPECT_EQ(wireType(message), 0);
  EXPECT_EQ(message.timestamp(), FRXDate());
  EXPECT_EQ(message.port(), 0);
  EXPECT_EQ(message.serviceSessionId(), "");
  EXPECT_EQ(message.subject(), std::nullopt);
  EXPECT_EQ(message.message(), std::nullopt);
  EXPECT_EQ(message.from(), std::nullopt);
  EXPECT_EQ(message.userInfo(), FRXDictionary());
  EXPECT_THROW((void)message.toJson(), std::logic_error);
}

TEST_F(FRXWebsocketMessageTest, AMemberThatSaysReplyChangesNothing) {
  const std::string json = full().toJson().value();
  for (const char* reply : {"true", "false", "1", "\"yes\"", "null", "{}"}) {
    std::string withReply = json;
    withReply.insert(1, std::string("\"reply\":") + reply + ",");
    expectSame(read(withReply), read(json));
  }
}

TEST_F(FRXWebsocketMessageTest, MembersNobodyKnowsChangeNothing) {
  const std::string json = full().toJson().value();
  std::string more = json;
  more.insert(1, R"("ID":"other","":1,"types":[[[]]],"userInfo ":{},"id\u0000":"nul",)");
  expectSame(read(more), read(json));
}

TEST_F(FRXWebsocketMessageTest, KeysAreFoundHoweverTheyAreEscaped) {
  EXPECT_EQ(read(R"({"\u0069d":"X","serv\u0069ceSessionId":"S"})").id(), "X");
  EXPECT_EQ(read(R"({"serv\u0069ceSessionId":"S"})").serviceSessionId(), "S");
}

TEST_F(FRXWebsocketMessageTest, TheLastOfARepeatedMemberCounts) {
  const FRXWebsocketMessage message = read(
      R"({"id":"a","type":2,"subject":"a","message":"a","userInfo":{"a":1},"timestamp":"a","from":"a","port":1,)"
      R"("serviceSessionId":"a","id":"b","type":1,"subject":"b","message":7,"userInfo":{"b":2},"timestamp":9,)"
      R"("from":null,"port":"2","serviceSessionId":[]})");
  EXPECT_EQ(message.id(), "b");
  EXPECT_EQ(message.messageType(), Heartbeat);
  EXPECT_EQ(message.subject(), "b");
  EXPECT_EQ(message.message(), std::nullopt) << "absent, because the last one is no text";
  EXPECT_EQ(message.userInfo(), (FRXDictionary{{"b", 2}}));
  EXPECT_EQ(message.timestamp(), at(9));
  EXPECT_EQ(message.from(), std::nullopt);
  EXPECT_EQ(message.port(), 2);
  EXPECT_EQ(message.serviceSessionId(), "");
}

TEST_F(FRXWebsocketMessageTest, AMemberOfAnotherTypeCountsAsAbsent) {
  for (const char* value : {"null", "true", "7", "2.5", "[]", "[\"x\"]", "{}"}) {
    for (const char* key : {"id", "subject", "message", "from", "serviceSessionId"}) {
      const FRXWebsocketMessage message = read(std::string("{\"") + key + "\":" + value + "}");
      EXPECT_EQ(message.id(), std::nullopt) << key << value;
      EXPECT_EQ(message.subject(), std::nullopt) << key << value;
      EXPECT_EQ(message.message(), std::nullopt) << key << value;
      EXPECT_EQ(message.from(), std::nullopt) << key << value;
      EXPECT_EQ(message.serviceSessionId(), "") << key << value;
    }
  }
  for (const char* value : {"null", "true", "7", "\"x\"", "[]", "[{\"a\":1}]"}) {
    EXPECT_EQ(read(std::string("{\"userInfo\":") + value + "}").userInfo(), FRXDictionary()) << value;
  }
}

struct LenientNumber {
  const char* json;
  std::int64_t number;
};

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();

const LenientNumber lenientNumbers[] = {
    {"2", 2},
    {"-2", -2},
    {"2.9", 2},
    {"-2.9", -2},
    {"2e0", 2},
    {"1e3", 1000},
    {"4294967298", 4294967298},
    {"9223372036854775807", largest},
    {"9223372036854775808", largest},
    {"-9223372036854775809", smallest},
    {"1e300", largest},
    {"-1e300", smallest},
    {"1e-300", 0},
    {"\"2\"", 2},
    {"\"+2\"", 2},
    {"\"-2\"", -2},
    {"\" \\t\\n2\"", 2},
    {"\"2 \"", 2},
    {"\"2x\"", 2},
    {"\"2.9\"", 2},
    {"\"0x10\"", 0},
    {"\"1e3\"", 1},
    {"\"002\"", 2},
    {"\"\"", 0},
    {"\" \"", 0},
    {"\"x2\"", 0},
    {"\"- 2\"", 0},
    {"\"+-2\"", 0},
    {"\"2\\u00002\"", 2},
    {"\"\\u0662\"", 0},
    {"\"9223372036854775808\"", largest},
    {"\"-99999999999999999999999\"", smallest},
    {"null", 0},
    {"true", 0},
    {"[2]", 0},
    {"{\"2\":2}", 0},
};

TEST_F(FRXWebsocketMessageTest, TypeAndPortAreTakenLeniently) {
  for (const LenientNumber& sample : lenientNumbers) {
    const FRXWebsocketMessage message =
        read(std::string("{\"type\":") + sample.json + ",\"port\":" + sample.json + "}");
    EXPECT_EQ(message.port(), sample.number) << sample.json;
    EXPECT_EQ(wireType(message), static_cast<std::int32_t>(sample.number)) << sample.json;
  }
  EXPECT_EQ(wireType(read(R"({"type":4294967298})")), 2) << "the type keeps its lower 32 bits";
  EXPECT_EQ(wireType(read(R"({"type":"4294967295"})")), -1);
  EXPECT_EQ(wireType(read(R"({"type":1e300})")), -1) << "no number out of range passes for a notification";
}

TEST_F(FRXWebsocketMessageTest, ATimestampIsTheNearestDateThereIs) {
  constexpr std::int64_t last = std::numeric_limits<std::int64_t>::max() / 1000000;
  const std::pair<const char*, std::int64_t> samples[] = {{"0", 0},
                                                          {"-1", -1},
                                                          {"1709298309123", 1709298309123},
                                                          {"1709298309123.999", 1709298309123},
                                                          {"1.709298309123e12", 1709298309123},
                                                          {"-1.9", -1},
                                                          {"9223372036854", last},
                                                          {"9223372036855", last},
                                                          {"-9223372036854", -last},
                                                          {"-9223372036855", -last},
                                                          {"9223372036854775807", last},
                                                          {"-9223372036854775808", -last},
                                                          {"18446744073709551615", last},
                                                          {"1e300", last},
                                                          {"-1e300", -last}};
  for (const auto& [json, expected] : samples) {
    FRXWebsocketMessage message = read(std::string("{\"timestamp\":") + json + "}");
    EXPECT_EQ(message.timestamp(), at(expected)) << json;
    message.setId("X");
    EXPECT_EQ(read(message.toJson().value()).timestamp(), message.timestamp()) << json;
  }
}

TEST_F(FRXWebsocketMessageTest, ATimestampThatIsNoNumberIsAnError) {
  for (const char* value : {"\"1709298309123\"", "\"\"", "null", "true", "[]", "[1]", "{}"}) {
    FRXError error;
    EXPECT_FALSE(FRXWebsocketMessage::fromJson(std::string("{\"timestamp\":") + value + "}", &error))
        << value;
    EXPECT_EQ(error.domain, FRXWebsocketMessageErrorDomain);
    EXPECT_EQ(error.code, FRXWebsocketMessageErrorNotAMessage);
    EXPECT_EQ(error.localizedDescription, "The \"timestamp\" of the message is no number.");
  }
}

TEST_F(FRXWebsocketMessageTest, ATopLevelThatIsNoObjectIsAnError) {
  for (const char* json : {"[]", "[{}]", "\"{}\"", "7", "-1.5", "true", "null"}) {
    FRXError error;
    EXPECT_FALSE(FRXWebsocketMessage::fromJson(json, &error)) << json;
    EXPECT_EQ(error.domain, FRXWebsocketMessageErrorDomain) << json;
    EXPECT_EQ(error.code, FRXWebsocketMessageErrorNotAMessage) << json;
    EXPECT_FALSE(error.localizedDescription.empty()) << json;
  }
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST_F(FRXWebsocketMessageTest, RefusesWhatIsNotJson) {
  using namespace std::string_literals;
  const std::string bad[] = {
      "",
      " ",
      "not json",
      "{",
      "}",
      R"({"id":"X")",
      R"({"id":"X",})",
      R"({"id" "X"})",
      R"({id:"X"})",
      R"({'id':'X'})",
      R"({"id":"X"}})",
      R"({"id":"X"}{"id":"Y"})",
      R"({"id":"X"} trailing)",
      R"({"id":"X"})"s + '\0',
      "\0"s,
      "\xef\xbb\xbf{}",
      "{\"id\":\"\xff\"}",
      "{\"id\":\"\xc0\x80\"}",
      "{\"id\":\"\xed\xa0\x80\"}",
      "{\"id\":\"line\nbreak\"}",
      "{\"id\":\"nul\0\"}"s,
      R"({"id":"\ud800"})",
      R"({"id":"\udc00"})",
      R"({"id":"\ud800\u0041"})",
      R"({"\ud800":1})",
      R"({"id":"\x41"})",
      R"({"type":01})",
      R"({"type":+1})",
      R"({"type":0x1})",
      R"({"type":1.})",
      R"({"type":NaN})",
      R"({"type":1e999})",
      R"({"port":-1e999})",
      R"({"timestamp":1e400})",
      R"({"userInfo":{"a":[1,{"b":1e999}]}})",
      R"({"unknown":Infinity})",
      R"({"unknown":)" + nested(32) + "}",
      R"({"userInfo":)" + std::string(1'000'000, '['),
      "// comment\n{}",
  };
  for (const std::string& json : bad) {
    FRXError error;
    EXPECT_FALSE(FRXWebsocketMessage::fromJson(json, &error)) << json.substr(0, 80);
    EXPECT_EQ(error.domain, JsonErrorDomain) << json.substr(0, 80);
    EXPECT_NE(error.code, 0) << json.substr(0, 80);
    EXPECT_FALSE(error.localizedDescription.empty()) << json.substr(0, 80);
    EXPECT_FALSE(FRXWebsocketMessage::fromJson(json)) << "no place for an error is needed";
  }
  EXPECT_TRUE(FRXWebsocketMessage::fromJson(R"({"unknown":)" + nested(31) + "}"));
}

TEST_F(FRXWebsocketMessageTest, RefusesATextAboveTheSizeLimit) {
  const JsonLimits limits;
  std::string json = R"({"message":")";
  json.append(limits.bytes - json.size() - 2, 'x');
  json += "\"}";
  ASSERT_EQ(json.size(), limits.bytes);
  EXPECT_TRUE(FRXWebsocketMessage::fromJson(json));
  json += ' ';
  EXPECT_FALSE(FRXWebsocketMessage::fromJson(json));
}

TEST_F(FRXWebsocketMessageTest, NumbersOfUserInfoKeepTheirKind) {
  const FRXWebsocketMessage message = read(
      R"({"id":"X","userInfo":{"i":9223372036854775807,"d":1.0,"u":18446744073709551615,"small":5e-324,"n":null}})");
  const FRXDictionary expected{{"i", largest},
                               {"d", 1.0},
                               {"u", 18446744073709551615.0},
                               {"small", std::numeric_limits<double>::denorm_min()},
                               {"n", nullptr}};
  EXPECT_EQ(message.userInfo(), expected);
  EXPECT_EQ(read(message.toJson().value()).userInfo(), expected);
}

}  // namespace
}  // namespace ferrox
