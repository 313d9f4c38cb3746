#include "Apps/ferrox/Node/NodeOptions.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <map>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Node/CommandIdentity.h"
#include "Apps/ferrox/Node/LogOutput.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Platform/Host/Text.h"
#include "Platform/PlatformServices.h"

namespace ferrox::command {
namespace {

using BackEnd = DNSSDConfiguration::BackEnd;

bool isAlnum(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 && (c & 0x80) == 0; }

// A check answers with what is wrong, or with nothing.
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

/// An option that takes one of the words in `choices`, which lives as long as the process.
template <typename Choice>
Argument declareChoice(CommandLine& subcommand, const std::string& name, Choice& chosen,
                       const std::map<std::string, Choice>& choices, const std::string& description) {
  std::vector<std::string> words;
  words.reserve(choices.size());
  for (const auto& [word, choice] : choices) words.push_back(word);
  const auto take = [&chosen, &choices](const std::string& word) {
    chosen = choices.at(word);
    return "";
  };
  return subcommand.argument(name, take, description).oneOf(words);
}

void declareIdentity(CommandLine& subcommand, NodeOptions& options) {
  subcommand
      .argument("--computer-name", options.computerName, "the name that peers show (default: the machine's)")
      .typeName("TEXT")
      .check(checkComputerName);
  subcommand
      .argument(
          "--device-uuid",
          [&options](const std::string& text) {
            options.deviceUUID = upperCasedAscii(text);
            return "";
          },
          identityDescription(options.defaultIdentity))
      .typeName("UUID")
      .check(checkUUID);
  subcommand
      .argument(
          "--host-name", options.hostName,
          "the label published as NAME.local (embedded discovery only; default: the machine's host name)")
      .typeName("NAME")
      .check(checkHostName);
}

void declareDiscovery(CommandLine& subcommand, NodeOptions& options) {
  static const std::map<std::string, BackEnd> backEnds{{"auto", BackEnd::Auto},
                                                       {"embedded", BackEnd::Embedded},
                                                       {"avahi", BackEnd::Daemon},
                                                       {"off", BackEnd::Off}};
  subcommand.repeated("--interface", options.interfaces, "limit discovery to it; repeatable (default: all)")
      .typeName("NAME")
      .check(checkInterface);
  declareChoice(subcommand, "--discovery", options.discovery, backEnds,
                "auto: the system's daemon when one runs, else embedded (default: auto)")
      .typeName("auto|embedded|avahi|off");
  subcommand
      .repeated(
          "--peer",
          [&options](const std::string& text) {
            options.peers.push_back(*FRXPeerAddress::fromText(text));
            return "";
          },
          "a peer to look up by address, where multicast does not reach; repeatable, retried")
      .typeName("HOST[:PORT]")
      .check(checkPeer);
}

std::string checkTogether(const NodeOptions& options) {
  const bool good = !options.hostName || options.discovery != BackEnd::Daemon;
  return good ? "" : "--host-name: works with embedded discovery only; the daemon has its own";
}

}  // namespace

void declareOutputOptions(CommandLine& subcommand, NodeOptions& options) {
  static const std::map<std::string, LogLevel> levels{{"verbose", LogLevel::Verbose},
                                                      {"debug", LogLevel::Debug},
                                                      {"warn", LogLevel::Warn},
                                                      {"error", LogLevel::Error}};
  subcommand.flag("--json", options.json, "newline-delimited JSON on stdout");
  declareChoice(subcommand, "--log-level", options.logLevel, levels, "of the lines on stderr (default: warn)")
      .typeName("verbose|debug|warn|error");
}

void declareNodeOptions(CommandLine& subcommand, NodeOptions& options, std::uint16_t defaultPort,
                        DefaultIdentity defaultIdentity) {
  options.port = defaultPort;
  options.defaultIdentity = defaultIdentity;
  subcommand
      .argument("--port", options.port,
                fmt::format("HTTP port; 0 means any free one (default: {})", defaultPort))
      .typeName("N")
      .range(0, 65535);
  declareIdentity(subcommand, options);
  declareDiscovery(subcommand, options);
  declareOutputOptions(subcommand, options);
  subcommand.checkTogether([&options] { return checkTogether(options); });
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
