#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "Platform/Base/JsonStream.h"

namespace ferrox {
namespace {

/// Writes the events down.
class Recorder final : public JsonStreamEvents {
 public:
  bool onObjectBegin() override { return note("{"); }
  bool onObjectEnd() override { return note("}"); }
  bool onArrayBegin() override { return note("["); }
  bool onArrayEnd() override { return note("]"); }
  bool onKey(std::string_view key) override { return note(std::string(key) + ":"); }
  bool onText(std::string_view text) override { return note("'" + std::string(text) + "'"); }
  bool onOther() override { return note("#"); }

  std::string events;
  std::string stopsAt;

 private:
  bool note(const std::string& event) {
    events += event;
    return stopsAt.empty() || event != stopsAt;
  }
};

/// The events of a text that arrives in pieces of that size, or the code of its error.
std::string eventsOf(std::string_view text, std::size_t pieceSize, const JsonLimits& limits = {}) {
  Recorder recorder;
  JsonStreamReader reader(recorder, limits);
  bool usable = true;
  for (std::size_t at = 0; at < text.size() && usable; at += pieceSize) {
    usable = reader.write(text.substr(at, pieceSize));
  }
  usable = reader.finish();
  EXPECT_EQ(usable, !reader.error().has_value());
  return usable ? recorder.events : "error " + std::to_string(reader.error()->code);
}

TEST(JsonStreamTests, EventsDoNotDependOnHowTheTextIsCut) {
  const std::string text =
      R"( {"files":["a","\u00e9\n\ud83c\udfac",""],"n":[1,-2.5e3,true,false,null,{"x":{}}],"long key \" here":"end"} )";
  const std::string expected =
      "{files:['a''\xC3\xA9\n\xF0\x9F\x8E\xAC''']n:[#####{x:{}}]long key \" here:'end'}";
  for (std::size_t size = 1; size <= text.size(); ++size) EXPECT_EQ(eventsOf(text, size), expected) << size;
}

TEST(JsonStreamTests, WhatIsNoWholeJSONIsRefused) {
  for (const char* text : {"", " ", "{", "[1,", "{\"a\":1}}", "[1] 2", "nul", "'a'", "[\"\\ud800\"]",
                           "[\"\xFF\"]", "[1,]", "{\"a\"}", "[01]"}) {
    for (const std::size_t size : {1U, 100U}) EXPECT_EQ(eventsOf(text, size), "error 1") << text;
  }
}

TEST(JsonStreamTests, LimitsHold) {
  JsonLimits limits;
  limits.bytes = 5;
  EXPECT_EQ(eventsOf("[1,2]", 2, limits), "[##]");
  EXPECT_EQ(eventsOf("[1,2] ", 2, limits), "error 2");
  limits = {};
  limits.depth = 3;
  EXPECT_EQ(eventsOf("[[[]]]", 2, limits), "[[[]]]");
  EXPECT_EQ(eventsOf("[[[[]]]]", 2, limits), "error 1");
}

TEST(JsonStreamTests, TheReceiverMayStopIt) {
  Recorder recorder;
  recorder.stopsAt = "'b'";
  JsonStreamReader reader(recorder);
  EXPECT_FALSE(reader.write(R"(["a","b","c"])"));
  EXPECT_EQ(recorder.events, "['a''b'");
  ASSERT_TRUE(reader.error());
  EXPECT_EQ(reader.error()->code, JsonErrorStopped);
  EXPECT_FALSE(reader.write("]"));
  EXPECT_FALSE(reader.finish());
}

TEST(JsonStreamTests, FinishingTwiceChangesNothing) {
  Recorder recorder;
  JsonStreamReader reader(recorder);
  EXPECT_TRUE(reader.write("[]"));
  EXPECT_TRUE(reader.finish());
  EXPECT_TRUE(reader.finish());
}

}  // namespace
}  // namespace ferrox
