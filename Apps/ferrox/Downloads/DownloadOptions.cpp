#include "Apps/ferrox/Downloads/DownloadOptions.h"

#include <CLI/CLI.hpp>

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

void declareSeconds(CLI::App& subcommand, const std::string& name, double& seconds, double least,
                    const std::string& description) {
  subcommand.add_option(name, seconds, description)
      ->type_name("S")
      ->check(CLI::Range(least, longestTime).description(""));
}

void declareDownloadOptions(CLI::App& subcommand, DownloadOptions& options) {
  subcommand.add_option("URL", options.url, "what to fetch (http)")
      ->required()
      ->check(CLI::Validator(checkURL, ""));
  subcommand.add_option("FILE", options.file, "the local file")
      ->required()
      ->check(CLI::Validator(checkFile, ""));
  declareSeconds(subcommand, "--timeout", options.timeout, shortestTime,
                 "how long the server may be silent (default: 60)");
  declareNodeOptions(subcommand, options.node, 0);
}

void applyDownloadOptions(const CLI::App& subcommand, const DownloadOptions& options) {
  NodeOptions node = options.node;
  if (subcommand.count("--log-level") == 0) node.logLevel = LogLevel::Error;
  applyNodeOptions(node);
}

}  // namespace ferrox::command
