// What the command tells the shell.
#pragma once

namespace ferrox::command {

enum ExitCode : int {
  ExitDone = 0,
  ExitFailed = 1,        ///< the work failed; the reason is on stderr
  ExitUsage = 2,         ///< the command line made no sense
  ExitInterrupted = 130  ///< ended by a signal before the work was done
};

}  // namespace ferrox::command
