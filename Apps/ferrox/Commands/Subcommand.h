// One thing the command can do.
#pragma once

#include <memory>

namespace ferrox::command {

class CommandLine;

class Subcommand {
 public:
  virtual ~Subcommand() = default;
  /// Adds itself, with its options, to the command; lives at least as long as `parent`. The added subcommand.
  virtual CommandLine& declare(CommandLine& parent) = 0;
  /// Does its work and answers with the exit code.
  virtual int run() = 0;
};

std::unique_ptr<Subcommand> makeRunCommand();
std::unique_ptr<Subcommand> makePeersCommand();
std::unique_ptr<Subcommand> makeListCommand();
std::unique_ptr<Subcommand> makeCopyCommand();
std::unique_ptr<Subcommand> makePostCommand();
std::unique_ptr<Subcommand> makeWatchCommand();
std::unique_ptr<Subcommand> makeSearchCommand();
std::unique_ptr<Subcommand> makeCheckCommand();
std::unique_ptr<Subcommand> makeObjectIdCommand();
std::unique_ptr<Subcommand> makeFetchCommand();
std::unique_ptr<Subcommand> makeFollowCommand();
std::unique_ptr<Subcommand> makeDoctorCommand();
std::unique_ptr<Subcommand> makeDemoCommand();

}  // namespace ferrox::command
