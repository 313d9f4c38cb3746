// `ferrox copy PROJECT DEST`: a peer's project, to disk.
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <limits>
#include <memory>
#include <system_error>
#include <thread>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/ProjectSearch.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Copy/CopyJob.h"
#include "Apps/ferrox/Copy/ProgressDisplay.h"
#include "Apps/ferrox/Events/CopyEvents.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/Terminal/Quantities.h"
#include "Apps/ferrox/Terminal/Terminal.h"
#include "Apps/ferrox/Terminal/TerminalQuestion.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

bool isURL(const std::string& text) { return text.starts_with("http://") || text.starts_with("https://"); }

bool hasContents(const std::string& path) {
  std::error_code error;
  const bool isFolder = std::filesystem::is_directory(path, error);
  return isFolder ? !std::filesystem::is_empty(path, error) : std::filesystem::exists(path, error);
}

class CopyCommand final : public Subcommand, public CopyListener {
 public:
  CommandLine& declare(CommandLine& parent) override;
  int run() override;

  void copyProgressed(const CopyJob& job, std::uint64_t bytes, std::uint64_t totalBytes) override {
    if (search_.isJson()) reportEvent("copyProgress", copyProgressMembers(job, bytes, totalBytes));
  }
  void copyMetLowStorage(const CopyJob& job, bool) override {
    if (search_.isJson()) reportEvent("copyLowStorage", copyMembers(job));
  }
  void copyCancelled(const CopyJob& job) override {
    if (search_.isJson()) reportEvent("copyCancelled", copyMembers(job));
  }
  void copyEnded(const CopyJob& job, const std::optional<FRXError>& error) override {
    error_ = error;
    if (search_.isJson()) reportEvent("copyCompleted", copyCompletedMembers(job, error));
    RunLoop::main().stop();
  }

 private:
  bool mayReplace();
  int copy();
  int report(const CopyJob& job, std::chrono::steady_clock::duration elapsed) const;
  bool goesOnWithLittleSpace(const CopyR24ProjectOperation& copy) const;

  std::string project_;
  CopyRequest request_;
  std::optional<OnLowStorage> onLowStorage_;
  bool replaces_ = false;
  bool interrupted_ = false;
  ProjectSearch search_;
  TerminalQuestion question_;
  std::optional<FRXError> error_;
};

CommandLine& CopyCommand::declare(CommandLine& parent) {
  CommandLine& line = parent.subcommand("copy", "a peer's project, to disk");
  line.argument("PROJECT", project_, "the project's URL, or PEER/ID with PEER a part of the peer's name")
      .required()
      .check([](const std::string& text) {
        return isURL(text) || ProjectName::fromText(text) ? "" : "neither an http URL nor PEER/ID";
      });
  line.argument("DEST", request_.destination, "the folder to copy into, which is replaced as a whole")
      .required();
  line.argument("--max-content-length", request_.maxContentLength,
                "fetch files of at least N bytes in pieces of that size (default: never)")
      .typeName("N")
      .range(std::int64_t{1}, std::numeric_limits<std::int64_t>::max());
  line.argument("--jobs", request_.maxConcurrentDownloads, "how many downloads run at once (default: 8)")
      .typeName("N")
      .range(1, 64);
  line.argument("--timeout", request_.fileDownloadTimeout,
                "seconds without a byte after which a download is given up; 0 is never (default: 60)")
      .typeName("S")
      .range(0.0, 86400.0);
  line.argument(
          "--on-low-storage",
          [this](const std::string& text) {
            onLowStorage_ = onLowStorageFromText(text);
            return "";
          },
          "abort or continue when space is short (default: ask on a terminal, else abort)")
      .typeName("abort|continue")
      .oneOf({"abort", "continue"});
  line.flag("--resume", request_.resumes, "keep what is there and fetch only the rest");
  line.flag("--replace", replaces_, "do not ask on a terminal whether DEST may be replaced");
  line.flag("--allow-empty-files", request_.allowsEmptyFiles,
            "make empty files too; without it a project that has one is not copied");
  line.flag("--verify-sizes", request_.verifiesSizes, "fail when a file does not have the announced size");
  line.flag("--preserve-times", request_.preservesModificationTimes, "keep times of modification");
  search_.declare(line);
  line.footer(
      "Example:\n  ferrox copy \"edit suite 3/film\" /media/film\n"
      "  ferrox copy http://edit-suite-3.local:16654/projects/film /media/film --resume --verify-sizes");
  return line;
}

int CopyCommand::run() {
  std::string problem;
  if (!settleDestination(request_, problem)) return reportFailure(search_.isJson(), problem);
  if (!mayReplace()) {
    return interrupted_ ? ExitInterrupted : reportFailure(search_.isJson(), "nothing was copied");
  }
  if (isURL(project_)) {
    applyNodeOptions(search_.options());
    request_.url = project_;
    return copy();
  }
  const int code = search_.find(*ProjectName::fromText(project_));
  if (code != ExitDone) return code;
  request_.url = search_.found().url;
  return copy();
}

/// Scripts have said so by calling it; a person may have mistaken the folder.
bool CopyCommand::mayReplace() {
  if (replaces_ || request_.resumes || search_.isJson() || !isTerminal(STDIN_FILENO) ||
      !isTerminal(STDERR_FILENO)) {
    return true;
  }
  if (!hasContents(request_.destination)) return true;
  RunLoop& loop = RunLoop::main();
  const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP}, [this](int) {
    interrupted_ = true;
    question_.withdraw();
  });
  bool agreed = false;
  std::thread asking([&] {
    agreed = question_.ask(escapedForTerminal(request_.destination) +
                           " is not empty and will be replaced. Go on?");
    loop.post([&loop] { loop.stop(); });
  });
  loop.run();
  asking.join();
  return agreed;
}

int CopyCommand::copy() {
  RunLoop& loop = RunLoop::main();
  if (onLowStorage_) request_.onLowStorage = *onLowStorage_;
  const auto job = CopyJob::make(request_, *this);
  const bool asks =
      !onLowStorage_ && !search_.isJson() && isTerminal(STDIN_FILENO) && isTerminal(STDERR_FILENO);
  std::unique_ptr<ProgressDisplay> display;
  if (!search_.isJson()) display = std::make_unique<ProgressDisplay>(loop, job->operation());
  if (asks) {
    job->setDecision([this, &display](const CopyR24ProjectOperation& copy) {
      const ProgressDisplay::Pause pause(display.get());
      return goesOnWithLittleSpace(copy);
    });
  }
  const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP}, [&](int) {
    interrupted_ = true;
    question_.withdraw();
    job->cancel();
  });
  const auto begun = std::chrono::steady_clock::now();
  job->start();
  loop.run();
  display.reset();
  if (interrupted_) return ExitInterrupted;
  return report(*job, std::chrono::steady_clock::now() - begun);
}

bool CopyCommand::goesOnWithLittleSpace(const CopyR24ProjectOperation& copy) const {
  return question_.ask(fmt::format("The project has {}, and {} are free on the system's disk. Copy it?",
                                   formattedBytes(copy.projectSize()), formattedBytes(copy.freeDiskSpace())));
}

int CopyCommand::report(const CopyJob& job, std::chrono::steady_clock::duration elapsed) const {
  if (error_) return reportFailure(search_.isJson(), error_->localizedDescription);
  if (search_.isJson()) return ExitDone;
  const CopyR24ProjectOperation& copy = job.operation();
  // A peer lists nothing both for an empty folder and for an id that it does not know.
  if (copy.fileCount() == 0) {
    fmt::print(stderr, "ferrox: the project is empty, or there is none of that name\n");
  }
  const double seconds = std::chrono::duration<double>(elapsed).count();
  const double rate = seconds > 0 ? static_cast<double>(copy.currentProgress()) / seconds : 0;
  return reportText(fmt::format("{} files, {} in {:.1f} s ({}/s), to {}\n", copy.finishedFileCount(),
                                formattedBytes(copy.currentProgress()), seconds,
                                formattedBytes(static_cast<std::uint64_t>(rate)),
                                escapedForTerminal(job.destination())));
}

}  // namespace

std::unique_ptr<Subcommand> makeCopyCommand() { return std::make_unique<CopyCommand>(); }

}  // namespace ferrox::command
