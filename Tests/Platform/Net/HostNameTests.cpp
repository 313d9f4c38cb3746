#include <gtest/gtest.h>

#include <string>

#include "Platform/Net/HostName.h"

namespace ferrox::test {
namespace {

std::string nameOfSize(std::size_t size) {
  std::string name;
  while (name.size() < size) name += name.size() % 64 == 63 ? '.' : 'a';
  return name;
}

TEST(HostNameTests, OrdinaryNamesAndLiteralsAreUsable) {
  for (const char* name : {"mac.local.", "PEER-MAC.LOCAL", "localhost", "10.0.0.7", "fe80::1%eth0", "::1",
                           "under_score.test", "b\xC3\xBCro.local"}) {
    EXPECT_TRUE(isUsableHostName(name)) << name;
  }
}

TEST(HostNameTests, HostileNamesAreNot) {
  for (const std::string& name :
       {std::string(), std::string("."), std::string(".."), std::string("a..b"), std::string(".a"),
        std::string("a b"), std::string(" a"), std::string("a\t"), std::string("a\r\nb"),
        std::string("a\0b", 3), std::string("a\x1b[0m"), std::string("a\x7f"), std::string(64, 'a'),
        "x." + std::string(64, 'a')}) {
    EXPECT_FALSE(isUsableHostName(name)) << name;
  }
}

TEST(HostNameTests, LengthIsLimitedTo253BytesAndATrailingDot) {
  EXPECT_TRUE(isUsableHostName(nameOfSize(253)));
  EXPECT_TRUE(isUsableHostName(nameOfSize(253) + "."));
  EXPECT_FALSE(isUsableHostName(nameOfSize(254)));
}

TEST(HostNameTests, NamesUnderLocalBelongToMulticast) {
  for (const char* name : {"mac.local", "mac.local.", "MAC.LOCAL.", "a.b.Local"}) {
    EXPECT_TRUE(isMulticastHostName(name)) << name;
  }
  for (const char* name : {"local", "local.", ".local", "maclocal", "mac.local.test", "mac.locals", ""}) {
    EXPECT_FALSE(isMulticastHostName(name)) << name;
  }
}

}  // namespace
}  // namespace ferrox::test
