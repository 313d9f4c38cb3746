#include "Apps/ferrox/Commands/GatheringCommand.h"

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {

void GatheringCommand::declareGatheringOptions(CommandLine& line) {
  line.argument("--wait", wait_, "how many seconds to look for peers at most (default: 3)")
      .typeName("S")
      .range(0.0, 3600.0);
  declareNodeOptions(line, setup_.options, 0, DefaultIdentity::New);
}

int GatheringCommand::run() {
  applyNodeOptions(setup_.options);
  RunLoop& loop = RunLoop::main();
  node_ = Node::make(setup_, *this);
  gathering_ = std::make_unique<Gathering>(std::chrono::duration<double>(wait_), [this] { gathered(); });
  const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP}, [this](int) {
    interrupted_ = true;
    finish();
  });
  gathering_->begin(*node_);
  node_->start();
  loop.run();
  node_->stop();
  if (failure_) return reportFailure(writesJson(), "cannot start: " + *failure_);
  if (interrupted_ && !hasOutcome()) return ExitInterrupted;
  return report();
}

void GatheringCommand::nodeFailed(const std::string& reason) {
  failure_ = reason;
  RunLoop::main().stop();
}

void GatheringCommand::finish() {
  gathering_->cancel();
  node_->finish(closingTime_, [] { RunLoop::main().stop(); });
}

}  // namespace ferrox::command
