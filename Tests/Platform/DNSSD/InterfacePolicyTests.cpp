#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/DNSSD/InterfacePolicy.h"

namespace ferrox::dnssd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

NetworkInterface interfaceNamed(const std::string& name, int index) {
  return {.index = index,
          .name = name,
          .up = true,
          .loopback = false,
          .multicast = true,
          .hasIPv4 = true,
          .hasIPv6 = true,
          .hasDefaultRoute = false};
}

NetworkInterface loopback() {
  return {.index = 1,
          .name = "lo",
          .up = true,
          .loopback = true,
          .multicast = false,
          .hasIPv4 = true,
          .hasIPv6 = true,
          .hasDefaultRoute = false};
}

std::vector<std::string> namesInUse(const InterfaceSelection& selection) {
  std::vector<std::string> names;
  for (const auto& interface : selection.inUse) names.push_back(interface.name);
  return names;
}

class InterfacePolicyTest : public testing::Test {
 protected:
  InterfaceSelection select() const { return InterfacePolicy(configuration_).select(present_); }
  DNSSDConfiguration configuration_;
  std::vector<NetworkInterface> present_{loopback(), interfaceNamed("eth0", 2)};
};

TEST(InterfacePattern, MayEndInAStar) {
  EXPECT_TRUE(matchesInterfacePattern("veth12", "veth*"));
  EXPECT_TRUE(matchesInterfacePattern("veth", "veth*"));
  EXPECT_TRUE(matchesInterfacePattern("anything", "*"));
  EXPECT_TRUE(matchesInterfacePattern("eth0", "eth0"));
  EXPECT_FALSE(matchesInterfacePattern("eth01", "eth0"));
  EXPECT_FALSE(matchesInterfacePattern("eth0", ""));
}

TEST_F(InterfacePolicyTest, LoopbackGivesWayToARealInterface) {
  EXPECT_THAT(namesInUse(select()), ElementsAre("eth0"));
  EXPECT_THAT(select().permittedNames, UnorderedElementsAre("lo", "eth0"));
  EXPECT_TRUE(select().everythingPermitted);
}

TEST_F(InterfacePolicyTest, LoopbackServesWhenNothingElseIsUp) {
  present_[1].up = false;
  EXPECT_THAT(namesInUse(select()), ElementsAre("lo"));
  EXPECT_THAT(select().permittedNames, UnorderedElementsAre("lo", "eth0"));
}

TEST_F(InterfacePolicyTest, AnInterfaceWithoutAddressOrMulticastIsNotUsed) {
  present_[1].hasIPv4 = present_[1].hasIPv6 = false;
  EXPECT_THAT(namesInUse(select()), ElementsAre("lo"));
  present_[1].hasIPv6 = true;
  EXPECT_THAT(namesInUse(select()), ElementsAre("eth0"));
  present_[1].multicast = false;
  EXPECT_THAT(namesInUse(select()), ElementsAre("lo"));
}

TEST_F(InterfacePolicyTest, VirtualBridgesAreLeftOutAndTunnelsKept) {
  int index = 3;
  for (const char* name : {"docker0", "br-1a2b", "veth9", "virbr0", "vmnet8", "vboxnet0", "tun0", "wg0"}) {
    present_.push_back(interfaceNamed(name, index++));
  }
  EXPECT_THAT(namesInUse(select()), UnorderedElementsAre("eth0", "tun0", "wg0"));
  EXPECT_FALSE(select().everythingPermitted);
}

TEST_F(InterfacePolicyTest, ABridgeThatCarriesTheDefaultRouteIsTheNetwork) {
  present_.push_back(interfaceNamed("br-lan", 3));
  EXPECT_THAT(namesInUse(select()), ElementsAre("eth0"));
  present_.back().hasDefaultRoute = true;
  EXPECT_THAT(namesInUse(select()), UnorderedElementsAre("eth0", "br-lan"));
}

TEST_F(InterfacePolicyTest, AListOfTheHostsOwnIsTakenLiterally) {
  present_[1].hasDefaultRoute = true;
  configuration_.deniedInterfaces = {"eth*"};
  EXPECT_THAT(namesInUse(select()), ElementsAre("lo"));
  present_.push_back(interfaceNamed("docker0", 3));
  EXPECT_THAT(namesInUse(select()), ElementsAre("docker0"));
}

TEST_F(InterfacePolicyTest, OnlyAllowedInterfacesAreUsed) {
  present_.push_back(interfaceNamed("eth1", 3));
  configuration_.allowedInterfaces = {"eth1"};
  EXPECT_THAT(namesInUse(select()), ElementsAre("eth1"));
  EXPECT_THAT(select().permittedNames, ElementsAre("eth1"));
  configuration_.allowedInterfaces = {"eth9"};
  EXPECT_THAT(namesInUse(select()), IsEmpty());
}

TEST_F(InterfacePolicyTest, LoopbackIsUsedBesideOthersWhenItIsAskedForByName) {
  configuration_.allowedInterfaces = {"lo", "eth0"};
  EXPECT_THAT(namesInUse(select()), UnorderedElementsAre("lo", "eth0"));
}

TEST_F(InterfacePolicyTest, AllowingABridgeByNameOverridesTheDefaultDenial) {
  present_.push_back(interfaceNamed("docker0", 3));
  configuration_.allowedInterfaces = {"docker0"};
  EXPECT_THAT(namesInUse(select()), ElementsAre("docker0"));
  configuration_.deniedInterfaces = {"docker*"};
  EXPECT_THAT(namesInUse(select()), IsEmpty());
}

TEST(NetworkInterfaces, LoopbackOfThisMachineIsSeen) {
  bool seen = false;
  for (const auto& interface : currentNetworkInterfaces()) {
    if (interface.name != "lo") continue;
    seen = true;
    EXPECT_TRUE(interface.loopback);
    EXPECT_GT(interface.index, 0);
    EXPECT_FALSE(interface.hasDefaultRoute);
  }
  EXPECT_TRUE(seen);
}

}  // namespace
}  // namespace ferrox::dnssd
