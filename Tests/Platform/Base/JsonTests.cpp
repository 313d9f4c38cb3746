#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Base/Json.h"

namespace ferrox {
namespace {

using namespace std::string_literals;

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(Json, ReadsEveryKindOfValue) {
  const auto value = parseJson(
      R"({"n":null,"t":true,"f":false,"i":-7,"d":2.5,"s":"a\u00e9\ud83d\ude00\n","a":[1,[]],"o":{"k":"v"}})");
  ASSERT_TRUE(value);
  EXPECT_TRUE(value->member("n")->isNull());
  EXPECT_TRUE(*value->member("t")->asBool());
  EXPECT_FALSE(*value->member("f")->asBool());
  EXPECT_EQ(*value->member("i")->asInteger(), -7);
  EXPECT_EQ(*value->member("d")->asDouble(), 2.5);
  EXPECT_EQ(*value->member("s")->asText(), "a\u00e9\U0001f600\n");
  EXPECT_EQ(*value->member("a")->asArray(), (FRXArray{1, FRXArray{}}));
  EXPECT_EQ(*value->member("o")->member("k")->asText(), "v");
  EXPECT_EQ(value->member("missing"), nullptr);
  EXPECT_EQ(value->member("i")->member("k"), nullptr);
}

TEST(Json, KeepsTheLastOfARepeatedMember) {
  EXPECT_EQ(parseJson(R"({"a":1,"a":2})"), FRXValue(FRXDictionary{{"a", 2}}));
}

TEST(Json, KeepsTheWholeRangeOfIntegers) {
  EXPECT_EQ(parseJson("9223372036854775807"), FRXValue(std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(parseJson("-9223372036854775808"), FRXValue(std::numeric_limits<std::int64_t>::min()));
}

TEST(Json, MakesADoubleOfAnIntegerThatDoesNotFit) {
  EXPECT_EQ(parseJson("9223372036854775808"), FRXValue(9223372036854775808.0));
  EXPECT_EQ(parseJson("18446744073709551616"), FRXValue(18446744073709551616.0));
  EXPECT_EQ(parseJson("-9223372036854775809"), FRXValue(-9223372036854775808.0));
}

TEST(Json, RefusesNumbersThatAreNotFinite) {
  for (const char* text : {"1e400", "-1e400", R"([1,{"a":1e999}])", "NaN", "Infinity", "-Infinity"}) {
    FRXError error;
    EXPECT_FALSE(parseJson(text, &error)) << text;
    EXPECT_FALSE(error.localizedDescription.empty()) << text;
  }
}

TEST(Json, RefusesMalformedText) {
  const std::string malformed[] = {"",
                                   " ",
                                   "{",
                                   "[1,]",
                                   "{\"a\":1,}",
                                   "{a:1}",
                                   "'a'",
                                   "01",
                                   "1 2",
                                   "+1",
                                   ".5",
                                   "1.",
                                   "\"\t\"",
                                   "\"\\x\"",
                                   "\"\\ud800\"",
                                   "\"open",
                                   "tru",
                                   "null x",
                                   "[1 2]",
                                   "\"\xff\"",
                                   "\"\xc0\x80\"",
                                   "\"\xed\xa0\x80\"",
                                   "\xef\xbb\xbf{}",
                                   "1\0"s,
                                   "// c",
                                   "[1]]"};
  for (const std::string& text : malformed) {
    FRXError error;
    EXPECT_FALSE(parseJson(text, &error)) << text;
    EXPECT_EQ(error.domain, "com.ferrox.json.ErrorDomain") << text;
    EXPECT_NE(error.code, 0) << text;
  }
}

TEST(Json, NeedsNoPlaceForAnError) { EXPECT_FALSE(parseJson("[")); }

TEST(Json, ReadsTheNearestDouble) {
  // Read digit by digit in floating point, each of these would be off by one place.
  const std::pair<const char*, double> samples[] = {
      {"0.1", 0.1},
      {"5e-324", 5e-324},
      {"2.2250738585072011e-308", 2.2250738585072011e-308},
      {"1.7976931348623157e308", 1.7976931348623157e308},
      {"9007199254740993.0", 9007199254740992.0},
      {"3.0540412E5", 305404.12},
      {"[123456789012345678901234567890]", 123456789012345678901234567890.0},
      {"8.988465674311581e307", 8.988465674311581e307},
      {"6.631236846766476e-316", 6.631236846766476e-316}};
  for (const auto& [text, number] : samples) {
    const auto read = parseJson(text);
    ASSERT_TRUE(read) << text;
    EXPECT_EQ(*(read->asArray() ? read->asArray()->front() : *read).asDouble(), number) << text;
  }
  EXPECT_EQ(parseJson("1e-400"), FRXValue(0.0)) << "too small to be told from 0";
}

TEST(Json, RandomDoublesReadBackTheSame) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    const auto number = std::bit_cast<double>(random());
    if (!std::isfinite(number)) continue;
    ASSERT_EQ(parseJson(writeJson(number).value()), FRXValue(number)) << *writeJson(number);
  }
}

TEST(Json, ReadsTextsWithEscapesThatAreLongerThanAnyBufferOnTheWay) {
  std::string plain;
  for (int i = 0; i < 3000; ++i) plain += "\n\"" + std::to_string(i) + std::string(3, 'x');
  const FRXValue value(FRXDictionary{{plain, plain}, {"a", FRXArray{plain, 1.5, plain}}});
  EXPECT_EQ(parseJson(writeJson(value).value()), value);
}

TEST(Json, ReadsUpToTheDepthLimitAndNotBeyond) {
  EXPECT_TRUE(parseJson(nested(JsonLimits().depth)));
  EXPECT_FALSE(parseJson(nested(JsonLimits().depth + 1)));
  EXPECT_TRUE(parseJson(nested(3), nullptr, {.depth = 3}));
  EXPECT_FALSE(parseJson(nested(4), nullptr, {.depth = 3}));
  EXPECT_FALSE(parseJson(nested(1'000'000)));
}

TEST(Json, ReadsUpToTheSizeLimitAndNotBeyond) {
  FRXError error;
  EXPECT_TRUE(parseJson("[1,2]", &error, {.bytes = 5}));
  EXPECT_FALSE(parseJson("[1,23]", &error, {.bytes = 5}));
  EXPECT_EQ(error.localizedDescription, "The text is longer than 5 bytes.");
}

TEST(Json, ReadsTextLargerThanItsFirstBuffer) {
  FRXArray array;
  for (int i = 0; i < 5000; ++i) array.emplace_back("element " + std::to_string(i));
  EXPECT_EQ(parseJson(writeJson(array).value()), FRXValue(array));
}

struct RecordedMembers : JsonMembers {
  void onMember(std::string_view key, FRXValue&& value) override {
    seen.emplace_back(std::string(key), std::move(value));
  }
  std::vector<std::pair<std::string, FRXValue>> seen;
};

TEST(Json, HandsOverTheMembersOfAnObjectInOrderWithNestedOnesInside) {
  RecordedMembers members;
  ASSERT_TRUE(readJsonObject(
      R"( {"b":1,"a":{"x":[1,{"y":null}],"x":2},"a":[],"a rather long key with \u0041n escape":"t","":-1.5} )",
      members));
  const std::vector<std::pair<std::string, FRXValue>> expected{{"b", 1},
                                                               {"a", FRXDictionary{{"x", 2}}},
                                                               {"a", FRXArray{}},
                                                               {"a rather long key with An escape", "t"},
                                                               {"", -1.5}};
  EXPECT_EQ(members.seen, expected);
}

TEST(Json, HandsOverNothingOfAnEmptyObject) {
  RecordedMembers members;
  EXPECT_TRUE(readJsonObject("{}", members));
  EXPECT_TRUE(members.seen.empty());
}

TEST(Json, ATopLevelThatIsNoObjectHasNoMembers) {
  for (const char* text : {"[]", "[{\"a\":1}]", "\"a\"", "1", "1.5", "true", "null", " [ 1 "}) {
    RecordedMembers members;
    FRXError error;
    EXPECT_FALSE(readJsonObject(text, members, &error)) << text;
    EXPECT_EQ(error.code, JsonErrorNotAnObject) << text;
    EXPECT_TRUE(members.seen.empty()) << text;
  }
}

TEST(Json, ReadingMembersRefusesWhatReadingValuesRefuses) {
  for (const char* text : {"", "{", "{\"a\":1", "{\"a\":1}}", "{\"a\":1e999}", "{\"a\":[1,}", "{\"a\" 1}"}) {
    RecordedMembers members;
    FRXError error;
    EXPECT_FALSE(readJsonObject(text, members, &error)) << text;
    EXPECT_NE(error.code, 0) << text;
    EXPECT_NE(error.code, JsonErrorNotAnObject) << text;
  }
  RecordedMembers members;
  EXPECT_TRUE(readJsonObject(R"({"a":[[]]})", members, nullptr, {.depth = 3}));
  EXPECT_FALSE(readJsonObject(R"({"a":[[[]]]})", members, nullptr, {.depth = 3}));
  EXPECT_FALSE(readJsonObject(R"({"a":1})", members, nullptr, {.bytes = 6}));
}

TEST(Json, WritesCompactText) {
  const FRXDictionary value{
      {"b", FRXArray{nullptr, true, 1, "x"}}, {"a", FRXDictionary{}}, {"c", FRXArray{}}};
  EXPECT_EQ(writeJson(value), R"({"a":{},"b":[null,true,1,"x"],"c":[]})");
}

TEST(Json, EscapesWhatHasToBeEscapedAndNothingElse) {
  EXPECT_EQ(writeJson("\"\\/\b\f\n\r\t\x01\x1f\x7f\u00e9\u2028"s),
            "\"\\\"\\\\/\\u0008\\u000c\\n\\r\\t\\u0001\\u001f\x7f\u00e9\u2028\"");
  EXPECT_EQ(writeJson("a\0b"s), "\"a\\u0000b\"");
}

TEST(Json, EscapesAcrossThePiecesThatLongTextsAreWrittenIn) {
  std::mt19937 random(7);
  for (const unsigned plainInHundred : {0U, 50U, 90U, 99U}) {
    for (std::size_t size = 200; size < 1100; size += 37) {
      std::string text;
      std::string expected = "\"";
      for (std::size_t i = 0; i < size; ++i) {
        const char c = random() % 100 < plainInHundred ? 'x' : "\"\\\n\x01"[random() % 4];
        text += c;
        expected += c == 'x' ? "x" : c == '\n' ? "\\n" : c == '\x01' ? "\\u0001" : std::string("\\") + c;
      }
      expected += '"';
      std::string written = "before ";
      appendJsonString(written, text);
      ASSERT_EQ(written, "before " + expected) << size;
    }
  }
}

TEST(Json, EscapesAtEveryPlaceOfATextOfEveryLength) {
  for (std::size_t size = 1; size < 40; ++size) {
    for (std::size_t place = 0; place < size; ++place) {
      for (const char special : {'"', '\\', '\n', '\x1f', '\0'}) {
        std::string text(size, '\x7f');
        text[place] = special;
        const auto written = writeJson(text);
        ASSERT_EQ(parseJson(written.value()), FRXValue(text)) << size << " " << place;
      }
      std::string text(size, ' ');
      text[place] = '\xff';
      ASSERT_FALSE(writeJson(text)) << size << " " << place;
    }
  }
}

TEST(Json, DoublesStayDoublesAndReadBackTheSame) {
  const double samples[] = {0.0,
                            -0.0,
                            1.0,
                            5.0,
                            0.1,
                            1e22,
                            1e-300,
                            123456789.125,
                            std::numeric_limits<double>::max(),
                            std::numeric_limits<double>::denorm_min()};
  for (const double sample : samples) {
    const auto text = writeJson(sample);
    ASSERT_TRUE(text);
    const auto read = parseJson(*text);
    ASSERT_TRUE(read && read->asDouble()) << *text;
    EXPECT_EQ(*read->asDouble(), sample) << *text;
    EXPECT_EQ(std::signbit(*read->asDouble()), std::signbit(sample)) << *text;
  }
}

TEST(Json, RefusesToWriteWhatJsonCannotCarry) {
  EXPECT_FALSE(writeJson(FRXDate{}));
  EXPECT_FALSE(writeJson(std::nan("")));
  EXPECT_FALSE(writeJson(std::numeric_limits<double>::infinity()));
  EXPECT_FALSE(writeJson("\xff"));
  EXPECT_FALSE(writeJson(FRXDictionary{{"a", FRXArray{1, FRXDate{}}}}));
  EXPECT_FALSE(writeJson(FRXDictionary{{"\xc3", 1}}));
}

TEST(Json, AnObjectIsWritableExactlyWhenItIsWritten) {
  FRXValue deep;
  for (int i = 0; i < 511; ++i) deep = FRXArray{std::move(deep)};
  const FRXDictionary samples[] = {{},
                                   {{"a", FRXArray{1, "x", FRXDictionary{{"b", true}}}}, {"n", nullptr}},
                                   {{"a", deep}},
                                   {{"a", FRXArray{deep}}},
                                   {{"a", FRXDate{}}},
                                   {{"a", FRXArray{FRXDictionary{{"b", FRXDate{}}}}}},
                                   {{"a", std::nan("")}},
                                   {{"a", "\xff"}},
                                   {{"\xc3", 1}}};
  int written = 0;
  for (const FRXDictionary& sample : samples) {
    std::string text = "before ";
    EXPECT_EQ(isWritableJson(sample), writeJson(sample).has_value());
    EXPECT_EQ(isWritableJson(sample), appendJsonObject(text, sample));
    if (!isWritableJson(sample)) continue;
    EXPECT_EQ(text, "before " + *writeJson(sample));
    ++written;
  }
  EXPECT_EQ(written, 3);
}

TEST(Json, WritesUpToItsDepthAndNotBeyond) {
  FRXValue value;
  for (int i = 0; i < 512; ++i) value = FRXArray{std::move(value)};
  EXPECT_TRUE(writeJson(value));
  EXPECT_FALSE(writeJson(FRXDictionary{{"a", value}}));
}

TEST(FRXValue, HoldsIntegersOfAnyType) {
  EXPECT_EQ(*FRXValue(7U).asInteger(), 7);
  EXPECT_EQ(*FRXValue(std::int8_t{-7}).asInteger(), -7);
  EXPECT_EQ(*FRXValue(std::numeric_limits<std::uint64_t>::max()).asDouble(), 18446744073709551615.0);
}

TEST(FRXValue, IsEqualOnlyToTheSameTypeAndContent) {
  EXPECT_EQ(FRXValue(), FRXValue(nullptr));
  EXPECT_NE(FRXValue(1), FRXValue(1.0));
  EXPECT_NE(FRXValue(0), FRXValue(false));
  EXPECT_NE(FRXValue(""), FRXValue());
}

}  // namespace
}  // namespace ferrox
