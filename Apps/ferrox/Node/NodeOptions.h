// The options of every subcommand that starts a node, and what they change in the process.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Classes/Discovery/FRXPeerAddress.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/Log/Log.h"

namespace ferrox::command {

class CommandLine;

/// Who a node is when the command line does not say.
enum class DefaultIdentity {
  Machine,  ///< the machine's own, the same at every start
  New       ///< a new one at every start, so that it also meets a node that has the machine's
};

struct NodeOptions {
  /// 0: any free one.
  std::uint16_t port = 0;
  DefaultIdentity defaultIdentity = DefaultIdentity::Machine;
  std::optional<std::string> computerName;
  /// Upper case.
  std::optional<std::string> deviceUUID;
  std::optional<std::string> hostName;
  std::vector<std::string> interfaces;
  DNSSDConfiguration::BackEnd discovery = DNSSDConfiguration::BackEnd::Auto;
  std::vector<FRXPeerAddress> peers;
  bool json = false;
  LogLevel logLevel = LogLevel::Warn;
};

/// Declares the options on a subcommand; `options` has to outlive the parsing, which tells what is wrong.
void declareNodeOptions(CommandLine& subcommand, NodeOptions& options, std::uint16_t defaultPort,
                        DefaultIdentity defaultIdentity = DefaultIdentity::Machine);
/// Only --json and --log-level, for subcommands that start no node.
void declareOutputOptions(CommandLine& subcommand, NodeOptions& options);

/// The device identity as the options ask for it; nothing for the machine's own. A new one differs from call
/// to call.
std::optional<std::string> deviceIdentity(const NodeOptions& options);
/// Discovery as the options ask for it.
DNSSDConfiguration discoveryConfiguration(const NodeOptions& options);

/// Sets log, identity and discovery up. Call it before the first use of the library. Thread: main
void applyNodeOptions(const NodeOptions& options);

}  // namespace ferrox::command
