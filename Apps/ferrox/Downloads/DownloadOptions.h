// What `fetch` and `follow` are told alike.
#pragma once

#include <string>

#include "Apps/ferrox/Node/NodeOptions.h"

namespace ferrox::command {

inline constexpr double shortestTime = 0.001;

struct DownloadOptions {
  std::string url;
  std::string file;
  /// Seconds without a byte of an answer.
  double timeout = 60;
  NodeOptions node;
};

/// Declares URL, FILE, --timeout and what a subcommand that looks host names up is told.
void declareDownloadOptions(CommandLine& subcommand, DownloadOptions& options);
/// Declares an option that takes from `least` seconds to a year.
void declareSeconds(CommandLine& subcommand, const std::string& name, double& seconds, double least,
                    const std::string& description);
/// Like `applyNodeOptions`, without the library's warnings unless they are asked for: the subcommands say
/// themselves, and more exactly, what is wrong with an answer.
void applyDownloadOptions(const CommandLine& subcommand, const DownloadOptions& options);

}  // namespace ferrox::command
