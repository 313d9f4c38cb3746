#include "Apps/ferrox/Downloads/DownloadOptions.h"

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Platform/HTTP/Client/HTTPClientTarget.h"

namespace ferrox::command {
namespace {

constexpr double longestTime = 365.0 * 24 * 3600;

std::string checkURL(const std::string& text) {
  FRXError error;
  return targetOfURL(text, &error) ? "" : "an absolute http URL is needed";
}

std::string checkFile(const std::string& text) { return text.empty() ? "a file needs a name" : ""; }

}  // namespace

void declareSeconds(CommandLine& subcommand, const std::string& name, double& seconds, double least,
                    const std::string& description) {
  subcommand.argument(name, seconds, description).typeName("S").range(least, longestTime);
}

void declareDownloadOptions(CommandLine& subcommand, DownloadOptions& options) {
  subcommand.argument("URL", options.url, "what to fetch (http)").required().check(checkURL);
  subcommand.argument("FILE", options.file, "the local file").required().check(checkFile);
  declareSeconds(subcommand, "--timeout", options.timeout, shortestTime,
                 "how long the server may be silent (default: 60)");
  declareNodeOptions(subcommand, options.node, 0);
}

void applyDownloadOptions(const CommandLine& subcommand, const DownloadOptions& options) {
  NodeOptions node = options.node;
  if (!subcommand.isGiven("--log-level")) node.logLevel = LogLevel::Error;
  applyNodeOptions(node);
}

}  // namespace ferrox::command
