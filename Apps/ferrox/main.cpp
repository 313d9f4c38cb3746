// The `ferrox` command: picks the subcommand and runs it.
#include <algorithm>
#include <clocale>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/ExitCode.h"
#include "Apps/ferrox/Version.h"

namespace ferrox::command {
namespace {

using Declared = std::pair<std::unique_ptr<Subcommand>, CommandLine*>;

std::vector<Declared> declareAll(CommandLine& line) {
  std::vector<Declared> all;
  for (const auto make : {makeRunCommand, makePeersCommand, makeListCommand, makeCopyCommand, makePostCommand,
                          makeWatchCommand, makeSearchCommand, makeCheckCommand, makeFetchCommand,
                          makeFollowCommand, makeObjectIdCommand, makeDoctorCommand, makeDemoCommand}) {
    auto subcommand = make();
    CommandLine& declared = subcommand->declare(line);
    all.emplace_back(std::move(subcommand), &declared);
  }
  return all;
}

int runCommandLine(std::vector<std::string> arguments) {
  CommandLine line("ferrox",
                   "Applications on one network find each other and work together, without a server.");
  line.version(std::string("ferrox ") + version);
  line.footer(
      "Example:\n  ferrox demo          watch nodes on this machine find each other\n"
      "  ferrox run           a node with a live table of its peers\n"
      "  ferrox run --help    what a node can be told");
  const std::vector<Declared> subcommands = declareAll(line);
  if (const auto ended = line.parse(std::move(arguments), std::cout, std::cerr)) return *ended;
  for (const auto& [subcommand, declared] : subcommands) {
    if (declared->isChosen()) return subcommand->run();
  }
  return ExitUsage;
}

}  // namespace
}  // namespace ferrox::command

int main(int argc, char** argv) {
  // Dates as text follow the user's locale; numbers in what programs read must not.
  std::setlocale(LC_TIME, "");
  ferrox::command::blockSignals();
  try {
    return ferrox::command::runCommandLine({argv + std::min(argc, 1), argv + argc});
  } catch (const std::exception& error) {
    std::cerr << "ferrox: " << error.what() << '\n';
    return ferrox::command::ExitFailed;
  }
}
