#include <gtest/gtest.h>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Discovery/FRXPeerCheck.h"

namespace ferrox::test {
namespace {

TEST(FRXPeerCheckTest, HostNamesAndAddressesArePlausible) {
  for (const char* name : {"mac.local.", "MAC.LOCAL", "a", "a-b_c.example", "10.0.0.7", "::1", "FE80::1%LO",
                           "m\xC3\xBCller.local.", "m\\195\\188ller.local."}) {
    EXPECT_TRUE(isPlausibleHostName(name)) << name;
  }
}

TEST(FRXPeerCheckTest, BlanksControlsAndDelimitersAreNot) {
  for (const char* name : {"",
                           ".",
                           ".local",
                           "a..b",
                           "a b",
                           " a",
                           "a ",
                           "a\tb",
                           "a\nb",
                           "a\x7F",
                           "a\x1B[2J",
                           "a/b",
                           "a?b",
                           "a#b",
                           "a@b",
                           "a:b",
                           "a%20b",
                           "[::1]",
                           "a\"b",
                           "a<b",
                           "a>b",
                           "a{b",
                           "a|b",
                           "a^b",
                           "a`b",
                           "a\xC2\x85"
                           "b",
                           "a\xC2\xA0"
                           "b",
                           "a\xE2\x80\xA8"
                           "b",
                           "a\xE2\x80\x8B"
                           "b",
                           "a\xE3\x80\x80"
                           "b",
                           "a\xFF",
                           "\xC3"}) {
    EXPECT_FALSE(isPlausibleHostName(name)) << name;
  }
  EXPECT_FALSE(isPlausibleHostName(std::string_view("a\0b", 3)));
  EXPECT_FALSE(isPlausibleHostName(std::string(256, 'a')));
  EXPECT_FALSE(isPlausibleHostName(std::string(100, 'a') + "." + std::string(200, 'b')));
}

TEST(FRXPeerCheckTest, ARecordNeedsHostPortAndName) {
  const auto why = [](std::optional<std::string> host, std::int64_t port, std::optional<std::string> name) {
    return whyNotAPeer(FRXNetService(std::move(host), port, std::move(name))).value_or("");
  };
  EXPECT_EQ(why("a.local.", 1, "N"), "");
  EXPECT_EQ(why("a.local.", 65535, std::string(255, 'n')), "");
  EXPECT_EQ(why(std::nullopt, 1, "N"), "no host name");
  EXPECT_EQ(why("", 1, "N"), "implausible host name");
  EXPECT_EQ(why("a.local.", 0, "N"), "port outside 1..65535");
  EXPECT_EQ(why("a.local.", 65536, "N"), "port outside 1..65535");
  EXPECT_EQ(why("a.local.", INT64_MIN, "N"), "port outside 1..65535");
  EXPECT_EQ(why("a.local.", 1, std::nullopt), "no service name");
  EXPECT_EQ(why("a.local.", 1, ""), "no service name");
  EXPECT_EQ(why("a.local.", 1, std::string(256, 'n')), "implausible service name");
  EXPECT_EQ(why("a.local.", 1, "N\r\nX"), "implausible service name");
}

}  // namespace
}  // namespace ferrox::test
