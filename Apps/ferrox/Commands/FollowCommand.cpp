// `ferrox follow URL FILE`: a movie file that may still be growing.
#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Downloads/DownloadOptions.h"
#include "Apps/ferrox/Downloads/FollowSession.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

Clock::Duration seconds(double count) {
  return std::chrono::duration_cast<Clock::Duration>(std::chrono::duration<double>(count));
}

class FollowCommand final : public Subcommand {
 public:
  CommandLine& declare(CommandLine& parent) override {
    commandLine_ =
        &parent.subcommand("follow", "a movie file that may still be growing, until it no longer does");
    declareDownloadOptions(*commandLine_, options_);
    declareSeconds(*commandLine_, "--interval", interval_, shortestTime, "how often to ask (default: 1)");
    declareSeconds(*commandLine_, "--until-idle", untilIdle_, 0,
                   "end after so long without growth (default: 10); 0 asks once");
    commandLine_->footer(
        "Follows the atoms of a QuickTime or MP4 file. Media whose size is not known yet is waited for, so "
        "while\n"
        "a recorder leaves that size open until its end, give --until-idle longer than the recording. FILE "
        "must\n"
        "be new or empty.\n\n"
        "Example:\n  ferrox follow http://10.0.0.7:16654/streams/cam/take.mov take.mov --until-idle 30");
    return *commandLine_;
  }

  int run() override {
    applyDownloadOptions(*commandLine_, options_);
    if (holdsSomething()) {
      return reportFailure(options_.node.json, options_.file + " holds something already");
    }
    RunLoop& loop = RunLoop::main();
    const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP}, [&loop](int) { loop.stop(); });
    const auto session = std::make_shared<FollowSession>(loop, sessionOptions(), events(loop));
    loop.post([session] { session->start(); });
    loop.run();
    if (!hasEnded_) return reportInterruption(*session);
    if (failure_) return reportFailure(options_.node.json, options_.url + ": " + *failure_);
    return reportSuccess(*session);
  }

 private:
  bool holdsSomething() const {
    std::error_code error;
    const auto size = std::filesystem::file_size(options_.file, error);
    return !error && size > 0;
  }

  FollowSession::Options sessionOptions() const {
    return {.url = options_.url,
            .file = options_.file,
            .timeout = options_.timeout,
            .interval = seconds(interval_),
            .untilIdle = seconds(untilIdle_)};
  }

  FollowSession::Events events(RunLoop& loop) {
    FollowSession::Events events;
    events.grew = [this](std::uint64_t size, std::uint64_t growth) {
      if (options_.node.json) {
        reportEvent("followProgress", {{"bytes", static_cast<std::int64_t>(size)},
                                       {"growth", static_cast<std::int64_t>(growth)}});
      } else {
        reportText(fmt::format("{} bytes (+{})\n", size, growth));
      }
    };
    events.ended = [this, &loop](std::optional<std::string> failure) {
      failure_ = std::move(failure);
      hasEnded_ = true;
      loop.stop();
    };
    return events;
  }

  int reportInterruption(const FollowSession& session) const {
    reportFailure(options_.node.json,
                  fmt::format("interrupted; {} has {} bytes", options_.file, session.sizeInBytes()));
    return ExitInterrupted;
  }

  int reportSuccess(const FollowSession& session) const {
    const bool endsAtAtom = session.endsAtAtom();
    if (options_.node.json) {
      return reportEvent("result", {{"cmd", "follow"},
                                    {"ok", true},
                                    {"sizeInBytes", static_cast<std::int64_t>(session.sizeInBytes())},
                                    {"endsAtAtom", endsAtAtom}});
    }
    return reportText(fmt::format("{} has {} bytes and ends {} an atom\n", escapedForTerminal(options_.file),
                                  session.sizeInBytes(), endsAtAtom ? "with" : "within"));
  }

  CommandLine* commandLine_ = nullptr;
  DownloadOptions options_;
  double interval_ = 1;
  double untilIdle_ = 10;
  std::optional<std::string> failure_;
  bool hasEnded_ = false;
};

}  // namespace

std::unique_ptr<Subcommand> makeFollowCommand() { return std::make_unique<FollowCommand>(); }

}  // namespace ferrox::command
