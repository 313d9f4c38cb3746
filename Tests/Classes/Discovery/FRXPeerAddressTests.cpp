#include <gtest/gtest.h>

#include "Classes/Discovery/FRXPeerAddress.h"

namespace ferrox::test {
namespace {

std::string urlOf(std::string_view text) {
  const auto address = FRXPeerAddress::fromText(text);
  return address ? address->url("/service") : "refused";
}

TEST(FRXPeerAddressTest, ReadsHostsWithAndWithoutPort) {
  EXPECT_EQ(urlOf("10.0.0.7"), "http://10.0.0.7:16654/service");
  EXPECT_EQ(urlOf("10.0.0.7:80"), "http://10.0.0.7:80/service");
  EXPECT_EQ(urlOf("bay-3.local."), "http://bay-3.local.:16654/service");
  EXPECT_EQ(urlOf("bay-3.example:65535"), "http://bay-3.example:65535/service");
  EXPECT_EQ(urlOf("m\xC3\xBCller.local:1"), "http://m\xC3\xBCller.local:1/service");
}

TEST(FRXPeerAddressTest, ReadsIPv6AddressesAndTheirScope) {
  EXPECT_EQ(urlOf("::1"), "http://[::1]:16654/service");
  EXPECT_EQ(urlOf("[::1]"), "http://[::1]:16654/service");
  EXPECT_EQ(urlOf("[::1]:80"), "http://[::1]:80/service");
  EXPECT_EQ(urlOf("fe80::1%lo"), "http://[fe80::1%25lo]:16654/service");
  EXPECT_EQ(urlOf("[fe80::1%lo]:7"), "http://[fe80::1%25lo]:7/service");
}

TEST(FRXPeerAddressTest, RefusesWhatIsNeitherHostNorPort) {
  for (const char* text :
       {"",         ":",         ":80",           "host:",    "host:0", "host:65536", "host:-1",
        "host:80x", "host: 80",  "host:+80",      "[]",       "[]:80",  "[::1",       "::1]",
        "[::1]x",   "[host]:80", "[10.0.0.7]:80", "1:2:3",    "a/b",    "a@b",        "a b",
        "a\tb",     "host\n",    "a..b",          "http://a", "%6c",    "a\\b:c:d",   "\xC3("}) {
    EXPECT_EQ(urlOf(text), "refused") << text;
  }
  EXPECT_FALSE(FRXPeerAddress::make("host", 0));
  EXPECT_FALSE(FRXPeerAddress::make(std::string_view("a\0b", 3)));
  EXPECT_FALSE(FRXPeerAddress::make(std::string(256, 'a')));
}

}  // namespace
}  // namespace ferrox::test
