#include <gtest/gtest.h>

#include "Classes/Utilities/PercentCoding.h"

namespace ferrox {
namespace {

TEST(PercentCoding, HostSetKeepsSubDelimitersColonAndBrackets) {
  const std::string kept = "AZaz09-._~!$&'()*+,;=:[]";
  EXPECT_EQ(percentEncoded(kept, PercentSet::Host), kept);
  EXPECT_EQ(percentEncoded("/?#%@ \"<>\\^`{|}", PercentSet::Host),
            "%2F%3F%23%25%40%20%22%3C%3E%5C%5E%60%7B%7C%7D");
}

TEST(PercentCoding, PathSetKeepsSlashAndAtSignInstead) {
  EXPECT_EQ(percentEncoded("/@:", PercentSet::Path), "/@:");
  EXPECT_EQ(percentEncoded("[]?# %", PercentSet::Path), "%5B%5D%3F%23%20%25");
}

TEST(PercentCoding, EveryByteSurvivesTheWayThereAndBack) {
  std::string text;
  for (int byte = 0; byte < 128; ++byte) text += static_cast<char>(byte);
  text += "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(percentDecoded(percentEncoded(text, PercentSet::Host)), text);
  EXPECT_EQ(percentDecoded(percentEncoded(text, PercentSet::Path)), text);
}

TEST(PercentCoding, DecodesOnceAndInEitherCase) {
  EXPECT_EQ(percentDecoded("%252e%2F%2f"), "%2e//");
  EXPECT_EQ(percentDecoded("a+b"), "a+b");
  EXPECT_EQ(percentDecoded("%00"), std::string(1, '\0'));
}

TEST(PercentCoding, RefusesMalformedEscapesAndWhatIsNotUtf8) {
  for (const char* bad : {"%", "%2", "a%", "%g0", "%0g", "% 1", "%+1", "%-1", "%ff", "%C0%AE", "%E0%80%AE",
                          "%ED%A0%80", "\xFF"}) {
    EXPECT_EQ(percentDecoded(bad), std::nullopt) << bad;
  }
}

}  // namespace
}  // namespace ferrox
