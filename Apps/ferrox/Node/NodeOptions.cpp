#include "Apps/ferrox/Node/NodeOptions.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <map>

#include "Apps/ferrox/Node/CommandIdentity.h"
#include "Apps/ferrox/Node/LogOutput.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Platform/Host/Text.h"
#include "Platform/PlatformServices.h"

namespace ferrox::command {
namespace {

using BackEnd = DNSSDConfiguration::BackEnd;

bool isAlnum(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 && (c & 0x80) == 0; }

// A validator answers with what is wrong, or with nothing.
std::string checkUUID(const std::string& text) {
  bool good = text.size() == 36;
  for (std::size_t i = 0; good && i < text.size(); ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    good = dash ? text[i] == '-' : std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
  }
  return good ? "" : "a UUID has the form 8-4-4-4-12 hexadecimal digits";
}

std::string checkHostName(const std::string& text) {
  const bool good = !text.empty() && text.size() <= 63 && text.front() != '-' && text.back() != '-' &&
                    std::all_of(text.begin(), text.end(), [](char c) { return isAlnum(c) || c == '-'; });
  return good ? "" : "a host name is one label of at most 63 letters, digits and dashes, without .local";
}

std::string checkComputerName(const std::string& text) {
  if (text.empty() || text.size() > 255) return "a computer name has 1 to 255 bytes";
  return escapedForTerminal(text) == text ? "" : "a computer name is UTF-8 text without control characters";
}

std::string checkInterface(const std::string& text) {
  const bool good = !text.empty() && text.size() <= 15 && text.find('/') == std::string::npos &&
                    escapedForTerminal(text) == text;
  return good ? "" : "an interface name has 1 to 15 characters and no slash";
}

std::string checkPeer(const std::string& text) {
  return FRXPeerAddress::fromText(text) ? "" : "a peer is HOST, HOST:PORT, an IPv6 address or [IPv6]:PORT";
}

std::string upperCasedAscii(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

const char* identityDescription(DefaultIdentity identity) {
  return identity == DefaultIdentity::New
             ? "identity (default: a new one at every start, so that it meets a node of this machine)"
             : "identity (default: derived from the machine); two nodes on one machine need two";
}

void declareIdentity(CLI::App& subcommand, NodeOptions& options) {
  subcommand
      .add_option_function<std::string>(
          "--computer-name", [&options](const std::string& text) { options.computerName = text; },
          "the name that peers show (default: the machine's)")
      ->type_name("TEXT")
      ->check(CLI::Validator(checkComputerName, ""));
  subcommand
      .add_option_function<std::string>(
          "--device-uuid",
          [&options](const std::string& text) { options.deviceUUID = upperCasedAscii(text); },
          identityDescription(options.defaultIdentity))
      ->type_name("UUID")
      ->check(CLI::Validator(checkUUID, ""));
  subcommand
      .add_option_function<std::string>(
          "--host-name", [&options](const std::string& text) { options.hostName = text; },
          "the label published as NAME.local (embedded discovery only; default: the machine's host name)")
      ->type_name("NAME")
      ->check(CLI::Validator(checkHostName, ""));
}

void declareDiscovery(CLI::App& subcommand, NodeOptions& options) {
  static const std::map<std::string, BackEnd> backEnds{{"auto", BackEnd::Auto},
                                                       {"embedded", BackEnd::Embedded},
                                                       {"avahi", BackEnd::Daemon},
                                                       {"off", BackEnd::Off}};
  subcommand
      .add_option("--interface", options.interfaces, "limit discovery to it; repeatable (default: all)")
      ->type_name("NAME")
      ->allow_extra_args(false)
      ->check(CLI::Validator(checkInterface, ""));
  subcommand
      .add_option_function<std::string>(
          "--discovery", [&options](const std::string& text) { options.discovery = backEnds.at(text); },
          "auto: the system's daemon when one runs, else embedded (default: auto)")
      ->type_name("auto|embedded|avahi|off")
      ->check(CLI::IsMember(backEnds).description(""));
  subcommand
      .add_option_function<std::vector<std::string>>(
          "--peer",
          [&options](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) options.peers.push_back(*FRXPeerAddress::fromText(text));
          },
          "a peer to look up by address, where multicast does not reach; repeatable, retried")
      ->type_name("HOST[:PORT]")
      ->allow_extra_args(false)
      ->check(CLI::Validator(checkPeer, ""));
}

void checkTogether(const NodeOptions& options) {
  if (options.hostName && options.discovery == BackEnd::Daemon) {
    throw CLI::ValidationError("--host-name", "works with embedded discovery only; the daemon has its own");
  }
}

}  // namespace

void declareOutputOptions(CLI::App& subcommand, NodeOptions& options) {
  static const std::map<std::string, LogLevel> levels{{"verbose", LogLevel::Verbose},
                                                      {"debug", LogLevel::Debug},
                                                      {"warn", LogLevel::Warn},
                                                      {"error", LogLevel::Error}};
  subcommand.add_flag("--json", options.json, "newline-delimited JSON on stdout");
  subcommand
      .add_option_function<std::string>(
          "--log-level", [&options](const std::string& text) { options.logLevel = levels.at(text); },
          "of the lines on stderr (default: warn)")
      ->type_name("verbose|debug|warn|error")
      ->check(CLI::IsMember(levels).description(""));
}

void declareNodeOptions(CLI::App& subcommand, NodeOptions& options, std::uint16_t defaultPort,
                        DefaultIdentity defaultIdentity) {
  options.port = defaultPort;
  options.defaultIdentity = defaultIdentity;
  subcommand
      .add_option("--port", options.port,
                  fmt::format("HTTP port; 0 means any free one (default: {})", defaultPort))
      ->type_name("N")
      ->check(CLI::Range(0, 65535).description(""));
  declareIdentity(subcommand, options);
  declareDiscovery(subcommand, options);
  declareOutputOptions(subcommand, options);
  subcommand.parse_complete_callback([&options] { checkTogether(options); });
}

std::optional<std::string> deviceIdentity(const NodeOptions& options) {
  if (options.deviceUUID || options.defaultIdentity == DefaultIdentity::Machine) return options.deviceUUID;
  return text::randomUUID();
}

DNSSDConfiguration discoveryConfiguration(const NodeOptions& options) {
  DNSSDConfiguration configuration;
  configuration.backEnd = options.discovery;
  // Naming a host is only possible where the stack is our own.
  if (options.hostName && options.discovery == BackEnd::Auto) configuration.backEnd = BackEnd::Embedded;
  configuration.allowedInterfaces = options.interfaces;
  configuration.hostName = options.hostName;
  return configuration;
}

void applyNodeOptions(const NodeOptions& options) {
  setLogOutput(options.logLevel);
  const std::optional<std::string> deviceUUID = deviceIdentity(options);
  if (options.computerName || deviceUUID || options.hostName) {
    HostIdentity::setCurrent(std::make_shared<const CommandIdentity>(HostIdentity::ofMachine(), deviceUUID,
                                                                     options.computerName, options.hostName));
  }
  PlatformServices::configureDiscovery(discoveryConfiguration(options));
}

}  // namespace ferrox::command
