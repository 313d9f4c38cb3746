#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Platform/Net/AddressOrder.h"

namespace ferrox::test {
namespace {

std::vector<std::string> ordered(const std::vector<std::string>& texts) {
  std::vector<SocketAddress> addresses;
  for (const auto& text : texts) addresses.push_back(*SocketAddress::fromText(text, 80));
  std::vector<std::string> result;
  for (const auto& address : interleavedByFamily(addresses)) result.push_back(address.hostText());
  return result;
}

using Texts = std::vector<std::string>;

TEST(AddressOrderTests, FamiliesTakeTurnsBeginningWithTheFirst) {
  EXPECT_EQ(ordered({"2001:db8::1", "2001:db8::2", "2001:db8::3", "10.0.0.1", "10.0.0.2"}),
            (Texts{"2001:db8::1", "10.0.0.1", "2001:db8::2", "10.0.0.2", "2001:db8::3"}));
  EXPECT_EQ(ordered({"10.0.0.1", "2001:db8::1", "2001:db8::2"}),
            (Texts{"10.0.0.1", "2001:db8::1", "2001:db8::2"}));
}

TEST(AddressOrderTests, OrderWithinAFamilyStays) {
  EXPECT_EQ(ordered({"10.0.0.3", "10.0.0.1", "10.0.0.2"}), (Texts{"10.0.0.3", "10.0.0.1", "10.0.0.2"}));
}

TEST(AddressOrderTests, DuplicatesAreTriedOnce) {
  EXPECT_EQ(ordered({"10.0.0.1", "10.0.0.1", "::1", "::1", "::1%lo"}), (Texts{"10.0.0.1", "::1", "::1%lo"}));
}

TEST(AddressOrderTests, NothingStaysNothing) { EXPECT_TRUE(interleavedByFamily({}).empty()); }

}  // namespace
}  // namespace ferrox::test
