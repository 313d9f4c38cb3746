#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <string>

#include "Platform/Net/SocketAddress.h"

namespace ferrox {
namespace {

using namespace std::string_literals;

SocketAddress address(std::string_view text, std::uint16_t port = 80) {
  const auto result = SocketAddress::fromText(text, port);
  EXPECT_TRUE(result) << text;
  return result.value_or(SocketAddress());
}

TEST(SocketAddress, ReadsIPv4) {
  const SocketAddress a = address("10.0.0.7", 16654);
  EXPECT_EQ(a.hostText(), "10.0.0.7");
  EXPECT_EQ(a.port(), 16654);
  EXPECT_FALSE(a.isIPv6());
  EXPECT_EQ(a.nativeLength(), sizeof(sockaddr_in));
  EXPECT_EQ(a.native()->sa_family, AF_INET);
}

TEST(SocketAddress, ReadsIPv6) {
  const SocketAddress a = address("2001:DB8::1", 80);
  EXPECT_EQ(a.hostText(), "2001:db8::1");
  EXPECT_TRUE(a.isIPv6());
  EXPECT_EQ(a.nativeLength(), sizeof(sockaddr_in6));
}

TEST(SocketAddress, ReadsAScopeByNameNumberAndInAnotherCase) {
  const unsigned index = if_nametoindex("lo");
  ASSERT_NE(index, 0U);
  EXPECT_EQ(address("fe80::1%lo").hostText(), "fe80::1%lo");
  EXPECT_EQ(address("fe80::1%" + std::to_string(index)).hostText(), "fe80::1%lo");
  EXPECT_EQ(address("FE80::1%LO").hostText(), "fe80::1%lo");
  EXPECT_EQ(address("fe80::1%4000000000").hostText(), "fe80::1%4000000000");
}

TEST(SocketAddress, RefusesWhatIsNoLiteral) {
  for (const std::string& text :
       {""s, "localhost"s, "127.1"s, "0x7f.0.0.1"s, "010.0.0.1 "s, "1.2.3.4.5"s, "1.2.3"s, "256.0.0.1"s,
        "[::1]"s, "::1::"s, "fe80::1%"s, "fe80::1%nowhere0"s, "fe80::1%0"s, "fe80::1%99999999999"s,
        "10.0.0.1%lo"s, "10.0.0.1\0x"s, "::1\0"s, "10.0.0.1:80"s, " 10.0.0.1"s}) {
    EXPECT_FALSE(SocketAddress::fromText(text, 80)) << text;
  }
}

TEST(SocketAddress, KeepsAnIPv4AddressInIPv6ClothesAsIPv4) {
  const SocketAddress a = address("::ffff:10.0.0.7", 81);
  EXPECT_FALSE(a.isIPv6());
  EXPECT_EQ(a.hostText(), "10.0.0.7");
  EXPECT_EQ(a, address("10.0.0.7", 81));
}

TEST(SocketAddress, KnowsLoopbackAndLinkLocal) {
  EXPECT_TRUE(address("127.0.0.1").isLoopback());
  EXPECT_TRUE(address("127.9.9.9").isLoopback());
  EXPECT_TRUE(address("::1").isLoopback());
  EXPECT_TRUE(address("::ffff:127.0.0.1").isLoopback());
  EXPECT_FALSE(address("128.0.0.1").isLoopback());
  EXPECT_FALSE(address("::2").isLoopback());
  EXPECT_TRUE(address("169.254.3.4").isLinkLocal());
  EXPECT_TRUE(address("fe80::1").isLinkLocal());
  EXPECT_TRUE(address("febf::1").isLinkLocal());
  EXPECT_FALSE(address("fec0::1").isLinkLocal());
  EXPECT_FALSE(address("169.253.3.4").isLinkLocal());
}

TEST(SocketAddress, IsEqualByAddressPortAndScope) {
  EXPECT_EQ(address("10.0.0.1", 1), address("10.0.0.1", 1));
  EXPECT_NE(address("10.0.0.1", 1), address("10.0.0.1", 2));
  EXPECT_NE(address("10.0.0.1"), address("10.0.0.2"));
  EXPECT_NE(address("fe80::1%1"), address("fe80::1%2"));
  EXPECT_NE(address("::1"), address("127.0.0.1"));
  EXPECT_EQ(SocketAddress(), SocketAddress());
}

TEST(SocketAddress, ChangesItsPort) {
  SocketAddress four = address("10.0.0.1", 1);
  SocketAddress six = address("::1", 1);
  SocketAddress none;
  four.setPort(65535);
  six.setPort(0x1234);
  none.setPort(5);
  EXPECT_EQ(four.port(), 65535);
  EXPECT_EQ(six.port(), 0x1234);
  EXPECT_EQ(six.hostText(), "::1");
  EXPECT_EQ(none.port(), 0);
}

TEST(SocketAddress, RoundTripsThroughItsNativeForm) {
  for (const char* text : {"10.0.0.7", "fe80::1%lo"}) {
    const SocketAddress a = address(text, 99);
    EXPECT_EQ(SocketAddress::fromNative(a.native(), a.nativeLength()), a);
  }
}

TEST(SocketAddress, IsNoAddressForOtherFamiliesAndShortLengths) {
  sockaddr_un local{};
  local.sun_family = AF_UNIX;
  const auto* native = reinterpret_cast<const sockaddr*>(&local);
  EXPECT_EQ(SocketAddress::fromNative(native, sizeof local).hostText(), "");
  const SocketAddress six = address("::1", 1);
  EXPECT_EQ(SocketAddress::fromNative(six.native(), sizeof(sockaddr_in)), SocketAddress());
  EXPECT_EQ(SocketAddress::fromNative(six.native(), 1), SocketAddress());
  EXPECT_EQ(SocketAddress::fromNative(nullptr, 0), SocketAddress());
  EXPECT_EQ(SocketAddress().hostText(), "");
  EXPECT_FALSE(SocketAddress().isLoopback());
  EXPECT_FALSE(SocketAddress().isLinkLocal());
  EXPECT_EQ(SocketAddress().nativeLength(), 0U);
}

}  // namespace
}  // namespace ferrox
