#include <gtest/gtest.h>
#include <unicode/timezone.h>

#include <atomic>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Host/Text.h"

namespace ferrox::text {
namespace {

using namespace std::string_literals;

TEST(Text, CaselessFormsAreEqualForTextsThatADiskMayTakeForTheSame) {
  EXPECT_EQ(caselessForm("Take 1.MOV"), caselessForm("take 1.mov"));
  EXPECT_EQ(caselessForm("\u00c4\u00e9"), caselessForm("a\u0308E\u0301"));
  EXPECT_EQ(caselessForm("STRASSE"), caselessForm("stra\u00dfe"));
  EXPECT_EQ(caselessForm("\u03a3"), caselessForm("\u03c2"));
  EXPECT_NE(caselessForm("a"), caselessForm("\u00e4"));
  EXPECT_NE(caselessForm("fi"), caselessForm("f i"));
  EXPECT_NE(caselessForm("2"), caselessForm("\u00b2"));
  EXPECT_EQ(caselessForm(""), "");
}

TEST(Text, UpperCasesByUnicodeRules) {
  EXPECT_EQ(upperCased("abc-1"), "ABC-1");
  EXPECT_EQ(upperCased("stra\u00dfe \u0151 \u03c3\u03c2"), "STRASSE \u0150 \u03a3\u03a3");
  EXPECT_EQ(upperCased("i\u0131"), "II");
  EXPECT_EQ(upperCased("a\xff"
                       "b"),
            "A\ufffdB");
  EXPECT_EQ(upperCased(""), "");
}

TEST(Text, ComparesWithoutRegardToCase) {
  EXPECT_TRUE(equalsIgnoringCase("Edit Suite", "eDIT sUITE"));
  EXPECT_TRUE(equalsIgnoringCase("\u00c9\u03a3", "\u00e9\u03c3"));
  EXPECT_TRUE(equalsIgnoringCase("", ""));
  EXPECT_FALSE(equalsIgnoringCase("a", "ab"));
  EXPECT_FALSE(equalsIgnoringCase("ab", "a"));
  EXPECT_FALSE(equalsIgnoringCase("\u00df", "ss")) << "simple folding maps one character to one";
  EXPECT_TRUE(equalsIgnoringCase("A\xff", "a\xff"));
  EXPECT_FALSE(equalsIgnoringCase("A\xff", "a\xfe"));
  EXPECT_FALSE(equalsIgnoringCase("\xff", "x"));
}

TEST(Text, TrimsWhiteSpaceAndNewlines) {
  EXPECT_EQ(trimmed(" \t\r\n\v\f a b \n"), "a b");
  EXPECT_EQ(trimmed("\u00a0\u3000\u2028\u2029\u0085x\u2003"), "x");
  EXPECT_EQ(trimmed("\u200bx"), "\u200bx") << "a zero-width space is no white space";
  EXPECT_EQ(trimmed("   "), "");
  EXPECT_EQ(trimmed(""), "");
  EXPECT_EQ(trimmed(" \xff "), "\xff");
}

TEST(Text, KeepsLettersMarksAndDigits) {
  EXPECT_EQ(alphanumericOnly("Ren\u00e9's-Mac/Pro_2 (a)"), "Ren\u00e9sMacPro2a");
  EXPECT_EQ(alphanumericOnly("e\u0301\u0968\u65e5"), "e\u0301\u0968\u65e5");
  EXPECT_EQ(alphanumericOnly("\u00bd \u2019 \U0001f600 \xff"), "");
}

TEST(Text, CountsAndCutsByCharacters) {
  EXPECT_EQ(characterCount("a\u00e9\U0001f600"), 3U);
  EXPECT_EQ(prefix("a\u00e9\U0001f600z", 3), "a\u00e9\U0001f600");
  EXPECT_EQ(prefix("ab", 9), "ab");
  EXPECT_EQ(prefix("ab", 0), "");
}

TEST(Text, CutsByBytesOnlyBetweenCharacters) {
  const std::string text = "a\u00e9\u20ac\U0001f600";
  EXPECT_EQ(prefixOfBytes(text, 100), text);
  EXPECT_EQ(prefixOfBytes(text, 10), text);
  for (const std::size_t bytes : {9U, 8U, 7U, 6U}) EXPECT_EQ(prefixOfBytes(text, bytes), "a\u00e9\u20ac");
  for (const std::size_t bytes : {5U, 4U, 3U}) EXPECT_EQ(prefixOfBytes(text, bytes), "a\u00e9");
  EXPECT_EQ(prefixOfBytes(text, 2), "a");
  EXPECT_EQ(prefixOfBytes(text, 0), "");
  EXPECT_EQ(prefixOfBytes("\x80\x80\x80\x80\x80\x80", 5).size(), 5U) << "no characters to keep whole";
}

TEST(Text, CodesBase64) {
  const std::pair<std::string, std::string> vectors[] = {{"", ""},
                                                         {"f", "Zg=="},
                                                         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},
                                                         {"foob", "Zm9vYg=="},
                                                         {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"}};
  for (const auto& [bytes, coded] : vectors) {
    EXPECT_EQ(base64Encoded(bytes), coded);
    EXPECT_EQ(base64Decoded(coded), bytes);
  }
  EXPECT_EQ(base64Encoded("\xff\xfe\x00"s), "//4A");
  EXPECT_EQ(base64Decoded("//4A"), "\xff\xfe\x00"s);
}

TEST(Text, RefusesBase64ThatIsNot) {
  for (const char* text : {"Z", "Zg", "Zg=", "Zg===", "Zm9v=", "=", "====", "Zm=v", "Z===", "Zm 9", "Zm9\n",
                           "Zm9-", "Zm9_", "Zh==", "Zm9="}) {
    EXPECT_FALSE(base64Decoded(text)) << text;
  }
}

TEST(Text, MakesRandomUUIDs) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string uuid = randomUUID();
    EXPECT_TRUE(std::regex_match(uuid, form)) << uuid;
    seen.insert(uuid);
  }
  EXPECT_EQ(seen.size(), 100U);
}

/// In a zone an hour east of Greenwich, whatever the machine's own is.
struct DateFormatterTest : testing::Test {
  void SetUp() override { icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone("Etc/GMT-1")); }
  void TearDown() override { icu::TimeZone::adoptDefault(icu::TimeZone::detectHostTimeZone()); }
  static constexpr FRXDate date{std::chrono::seconds(1709298309)};
  static constexpr const char* pattern = "yyyy-MM-dd' 'HH:mm:ssZ";
};

TEST_F(DateFormatterTest, FormatsAndReadsInTheCurrentZone) {
  const DateFormatter formatter(pattern);
  EXPECT_EQ(formatter.format(date), "2024-03-01 14:05:09+0100");
  EXPECT_EQ(formatter.parse("2024-03-01 14:05:09+0100"), date);
  EXPECT_EQ(formatter.parse("2024-03-01 06:05:09-0700"), date);
  EXPECT_EQ(formatter.format(date + std::chrono::milliseconds(999)), "2024-03-01 14:05:09+0100");
  EXPECT_EQ(formatter.format(FRXDate(std::chrono::milliseconds(-1))), "1970-01-01 00:59:59+0100");
}

TEST_F(DateFormatterTest, RefusesWhatIsNoDate) {
  const DateFormatter formatter(pattern);
  for (const char* text :
       {"", "x", "2024-03-01", "2024-03-01 14:05:09", "2024-13-01 14:05:09+0100", "2024-02-30 14:05:09+0100",
        "2024-03-01 24:05:09+0100", "2024-03-01 14:05:09+0100 ", "2024-03-01 14:05:09+0100x",
        "99999-03-01 14:05:09+0100", "\xff"}) {
    EXPECT_FALSE(formatter.parse(text)) << text;
  }
}

TEST_F(DateFormatterTest, APatternThatIsNotUsableGivesNothing) {
  const DateFormatter formatter("'open");
  (void)formatter.format(date);
  EXPECT_FALSE(formatter.parse("2024"));
}

TEST_F(DateFormatterTest, ServesManyThreadsAtOnce) {
  const DateFormatter formatter(pattern);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 100; ++i) {
        const FRXDate mine = date + std::chrono::hours(t * 1000 + i);
        if (formatter.parse(formatter.format(mine)) != mine) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace ferrox::text
