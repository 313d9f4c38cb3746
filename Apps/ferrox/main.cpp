// The `ferrox` command: picks the subcommand and runs it.
#include <CLI/CLI.hpp>
#include <array>
#include <clocale>
#include <iostream>
#include <memory>
#include <utility>
#include <vector>

#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/ExitCode.h"
#include "Apps/ferrox/Version.h"

namespace ferrox::command {
namespace {

using Declared = std::pair<std::unique_ptr<Subcommand>, CLI::App*>;

std::vector<Declared> declareAll(CLI::App& app) {
  std::vector<Declared> all;
  for (const auto make : {makeRunCommand, makePeersCommand, makeListCommand, makeCopyCommand, makePostCommand,
                          makeWatchCommand, makeSearchCommand, makeCheckCommand, makeFetchCommand,
                          makeFollowCommand, makeObjectIdCommand, makeDoctorCommand, makeDemoCommand}) {
    auto subcommand = make();
    CLI::App* declared = subcommand->declare(app);
    all.emplace_back(std::move(subcommand), declared);
  }
  return all;
}

int runCommandLine(int argc, char** argv) {
  CLI::App app("Applications on one network find each other and work together, without a server.", "ferrox");
  app.set_version_flag("--version", std::string("ferrox ") + version);
  app.require_subcommand(1);
  app.footer(
      "Example:\n  ferrox demo          watch nodes on this machine find each other\n"
      "  ferrox run           a node with a live table of its peers\n"
      "  ferrox run --help    what a node can be told");
  app.get_formatter()->column_width(34);
  const std::vector<Declared> subcommands = declareAll(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? ExitDone : ExitUsage;
  }
  for (const auto& [subcommand, declared] : subcommands) {
    if (declared->parsed()) return subcommand->run();
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
    return ferrox::command::runCommandLine(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "ferrox: " << error.what() << '\n';
    return ferrox::command::ExitFailed;
  }
}
