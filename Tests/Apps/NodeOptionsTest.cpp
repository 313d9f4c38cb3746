#include <gtest/gtest.h>

#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Node/CommandIdentity.h"
#include "Apps/ferrox/Node/NodeOptions.h"

namespace ferrox::command {
namespace {

using BackEnd = DNSSDConfiguration::BackEnd;

using Arguments = std::vector<std::string>;

Arguments words(const std::string& line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), {}};
}

std::optional<NodeOptions> parse(const Arguments& arguments) {
  CommandLine line("ferrox", "test");
  NodeOptions options;
  declareNodeOptions(line, options, 16654);
  std::ostringstream output;
  std::ostringstream errors;
  if (line.parse(arguments, output, errors)) return std::nullopt;
  return options;
}

TEST(NodeOptions, HaveTheStatedDefaults) {
  const auto options = parse({});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->port, 16654);
  EXPECT_FALSE(options->computerName || options->deviceUUID || options->hostName || options->json);
  EXPECT_TRUE(options->interfaces.empty());
  EXPECT_TRUE(options->peers.empty());
  EXPECT_EQ(options->discovery, BackEnd::Auto);
  EXPECT_EQ(options->logLevel, LogLevel::Warn);
}

TEST(NodeOptions, AreAllRead) {
  Arguments arguments = words(
      "--port 0 --device-uuid 01234567-89ab-cdef-0123-456789abcdef --host-name suite-3 --interface eth0 "
      "--interface tun1 --discovery embedded --peer 10.0.0.7 --peer [fe80::1%eth0]:7000 --json "
      "--log-level debug");
  arguments.insert(arguments.end(), {"--computer-name", "Edit Suite"});
  const auto options = parse(arguments);
  ASSERT_TRUE(options);
  EXPECT_EQ(options->port, 0);
  EXPECT_EQ(options->computerName, "Edit Suite");
  EXPECT_EQ(options->deviceUUID, "01234567-89AB-CDEF-0123-456789ABCDEF");
  EXPECT_EQ(options->hostName, "suite-3");
  EXPECT_EQ(options->interfaces, (std::vector<std::string>{"eth0", "tun1"}));
  EXPECT_EQ(options->discovery, BackEnd::Embedded);
  ASSERT_EQ(options->peers.size(), 2U);
  EXPECT_EQ(options->peers[0].port(), 16654);
  EXPECT_EQ(options->peers[1].host(), "fe80::1%eth0");
  EXPECT_EQ(options->peers[1].port(), 7000);
  EXPECT_TRUE(options->json);
  EXPECT_EQ(options->logLevel, LogLevel::Debug);
}

class WrongUsage : public testing::TestWithParam<Arguments> {};

TEST_P(WrongUsage, IsRefused) { EXPECT_FALSE(parse(GetParam())); }

INSTANTIATE_TEST_SUITE_P(
    NodeOptions, WrongUsage,
    testing::Values(
        Arguments{"--port", "-1"}, Arguments{"--port", "65536"}, Arguments{"--port", "x"},
        Arguments{"--port"}, Arguments{"--device-uuid", "1234"},
        Arguments{"--device-uuid", "01234567-89ab-cdef-0123-456789abcdeg"},
        Arguments{"--device-uuid", "01234567x89ab-cdef-0123-456789abcdef"}, Arguments{"--host-name", "a.b"},
        Arguments{"--host-name", ""}, Arguments{"--host-name", "-a"}, Arguments{"--host-name", "a_b"},
        Arguments{"--host-name", "0123456789012345678901234567890123456789012345678901234567890123"},
        Arguments{"--computer-name", ""}, Arguments{"--computer-name", "a\x1b[2J"},
        Arguments{"--computer-name", "\xff"}, Arguments{"--interface", "0123456789abcdef"},
        Arguments{"--interface", "a/b"}, Arguments{"--discovery", "bonjour"}, Arguments{"--peer", ""},
        Arguments{"--peer", "host:0"}, Arguments{"--peer", "host:65536"}, Arguments{"--peer", "a b"},
        Arguments{"--peer", "http://x"}, Arguments{"--log-level", "loud"}, Arguments{"--unknown"},
        Arguments{"stray"}, Arguments{"--host-name", "a", "--discovery", "avahi"}));

TEST(NodeOptions, AHostNameOfItsOwnAsksForTheEmbeddedStack) {
  EXPECT_EQ(discoveryConfiguration(*parse({"--host-name", "a"})).backEnd, BackEnd::Embedded);
  EXPECT_EQ(discoveryConfiguration(*parse({})).backEnd, BackEnd::Auto);
  EXPECT_EQ(discoveryConfiguration(*parse({"--discovery", "avahi"})).backEnd, BackEnd::Daemon);
  EXPECT_EQ(discoveryConfiguration(*parse({"--interface", "eth1"})).allowedInterfaces,
            std::vector<std::string>{"eth1"});
}

TEST(NodeOptions, ShortLivedNodesAreSomebodyNewEachTime) {
  NodeOptions options;
  EXPECT_EQ(deviceIdentity(options), std::nullopt) << "the machine's own";
  options.defaultIdentity = DefaultIdentity::New;
  const auto first = deviceIdentity(options);
  ASSERT_TRUE(first);
  EXPECT_NE(deviceIdentity(options), first);
  EXPECT_NE(first, HostIdentity::ofMachine()->deviceUUID());
  options.deviceUUID = "01234567-89AB-CDEF-0123-456789ABCDEF";
  EXPECT_EQ(deviceIdentity(options), options.deviceUUID);
}

TEST(CommandIdentity, ReplacesOnlyWhatWasGiven) {
  const auto machine = HostIdentity::ofMachine();
  const CommandIdentity identity(machine, std::nullopt, "Suite", std::nullopt);
  EXPECT_EQ(identity.computerName(), "Suite");
  EXPECT_EQ(identity.deviceUUID(), machine->deviceUUID());
  EXPECT_EQ(identity.hostName(), machine->hostName());
}

}  // namespace
}  // namespace ferrox::command
