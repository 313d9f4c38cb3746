#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <optional>

#include "Apps/ferrox/Node/CommandIdentity.h"
#include "Apps/ferrox/Node/NodeOptions.h"

namespace ferrox::command {
namespace {

using BackEnd = DNSSDConfiguration::BackEnd;

std::optional<NodeOptions> parse(const std::string& line) {
  CLI::App app("test", "ferrox");
  NodeOptions options;
  declareNodeOptions(app, options, 16654);
  try {
    app.parse(line);
  } catch (const CLI::ParseError&) {
    return std::nullopt;
  }
  return options;
}

TEST(NodeOptions, HaveTheStatedDefaults) {
  const auto options = parse("");
  ASSERT_TRUE(options);
  EXPECT_EQ(options->port, 16654);
  EXPECT_FALSE(options->computerName || options->deviceUUID || options->hostName || options->json);
  EXPECT_TRUE(options->interfaces.empty());
  EXPECT_TRUE(options->peers.empty());
  EXPECT_EQ(options->discovery, BackEnd::Auto);
  EXPECT_EQ(options->logLevel, LogLevel::Warn);
}

TEST(NodeOptions, AreAllRead) {
  const auto options = parse(
      "--port 0 --computer-name 'Edit Suite' --device-uuid 01234567-89ab-cdef-0123-456789abcdef "
      "--host-name suite-3 --interface eth0 --interface tun1 --discovery embedded --peer 10.0.0.7 "
      "--peer [fe80::1%eth0]:7000 --json --log-level debug");
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

class WrongUsage : public testing::TestWithParam<const char*> {};

TEST_P(WrongUsage, IsRefused) { EXPECT_FALSE(parse(GetParam())) << GetParam(); }

INSTANTIATE_TEST_SUITE_P(
    NodeOptions, WrongUsage,
    testing::Values("--port -1", "--port 65536", "--port x", "--port", "--device-uuid 1234",
                    "--device-uuid 01234567-89ab-cdef-0123-456789abcdeg",
                    "--device-uuid 01234567x89ab-cdef-0123-456789abcdef", "--host-name a.b", "--host-name ''",
                    "--host-name -a", "--host-name a_b",
                    "--host-name 0123456789012345678901234567890123456789012345678901234567890123",
                    "--computer-name ''", "--computer-name 'a\x1b[2J'", "--computer-name '\xff'",
                    "--interface 0123456789abcdef", "--interface a/b", "--discovery bonjour", "--peer ''",
                    "--peer host:0", "--peer host:65536", "--peer 'a b'", "--peer http://x",
                    "--log-level loud", "--unknown", "stray", "--host-name a --discovery avahi"));

TEST(NodeOptions, AHostNameOfItsOwnAsksForTheEmbeddedStack) {
  EXPECT_EQ(discoveryConfiguration(*parse("--host-name a")).backEnd, BackEnd::Embedded);
  EXPECT_EQ(discoveryConfiguration(*parse("")).backEnd, BackEnd::Auto);
  EXPECT_EQ(discoveryConfiguration(*parse("--discovery avahi")).backEnd, BackEnd::Daemon);
  EXPECT_EQ(discoveryConfiguration(*parse("--interface eth1")).allowedInterfaces,
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
