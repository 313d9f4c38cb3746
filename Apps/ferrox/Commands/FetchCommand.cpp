// `ferrox fetch URL FILE --segment START:LENGTH`: chosen segments of a remote file.
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Downloads/DownloadOptions.h"
#include "Apps/ferrox/Downloads/FetchSession.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/Terminal/ProgressLine.h"
#include "Apps/ferrox/Terminal/Quantities.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds progressInterval{200};

class FetchCommand final : public Subcommand {
 public:
  CommandLine& declare(CommandLine& parent) override {
    commandLine_ =
        &parent.subcommand("fetch", "segments of a remote file, into the same places of a local one");
    declareDownloadOptions(*commandLine_, options_);
    commandLine_->repeated("--segment", segmentTexts_, "first byte, from 0, and number of bytes; repeatable")
        .required()
        .typeName("START:LENGTH")
        .check([](const std::string& text) {
          return fetchSegmentFrom(text) ? "" : "a segment is START:LENGTH in bytes, LENGTH at least 1";
        });
    commandLine_->footer(
        "The local file is made when it is missing, and changed only where the segments are.\n\n"
        "Example:\n  ferrox fetch http://10.0.0.7:16654/streams/cam/take.mov take.mov --segment 0:4096");
    return *commandLine_;
  }

  int run() override {
    applyDownloadOptions(*commandLine_, options_);
    RunLoop& loop = RunLoop::main();
    const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP}, [&loop](int) { loop.stop(); });
    std::vector<FetchSegment> segments;
    for (const std::string& text : segmentTexts_) segments.push_back(*fetchSegmentFrom(text));
    const auto session =
        std::make_shared<FetchSession>(options_.url, options_.file, options_.timeout, segments, events(loop));
    total_ = session->totalBytes();
    loop.post([session] { session->start(); });
    loop.run();
    line_.clear();
    if (!hasEnded_) return ExitInterrupted;
    if (failure_) return reportFailure(options_.node.json, options_.url + ": " + *failure_);
    return reportSuccess();
  }

 private:
  FetchSession::Events events(RunLoop& loop) {
    FetchSession::Events events;
    events.progress = [this](std::uint64_t bytes) { progress(bytes); };
    events.segmentDone = [this](const FetchSegment& segment) {
      if (!options_.node.json) return;
      reportEvent("segment", {{"start", static_cast<std::int64_t>(segment.start)},
                              {"length", static_cast<std::int64_t>(segment.length)}});
    };
    events.ended = [this, &loop](std::optional<std::string> failure, std::uint64_t size) {
      failure_ = std::move(failure);
      size_ = size;
      hasEnded_ = true;
      loop.stop();
    };
    return events;
  }

  void progress(std::uint64_t bytes) {
    if (!options_.node.json) return line_.show(bytes, total_);
    const auto now = SteadyClock::now();
    if (now < nextProgress_) return;
    nextProgress_ = now + progressInterval;
    reportEvent("fetchProgress", {{"bytes", static_cast<std::int64_t>(bytes)},
                                  {"totalBytes", static_cast<std::int64_t>(total_)}});
  }

  int reportSuccess() const {
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - begun_).count();
    if (options_.node.json) {
      return reportEvent("result", {{"cmd", "fetch"},
                                    {"ok", true},
                                    {"bytes", static_cast<std::int64_t>(total_)},
                                    {"sizeInBytes", static_cast<std::int64_t>(size_)},
                                    {"milliseconds", elapsed}});
    }
    return reportText(fmt::format("{} fetched in {} ms; {} has {} bytes now\n", formattedBytes(total_),
                                  elapsed, escapedForTerminal(options_.file), size_));
  }

  CommandLine* commandLine_ = nullptr;
  DownloadOptions options_;
  std::vector<std::string> segmentTexts_;
  ProgressLine line_{STDERR_FILENO};
  const SteadyClock::time_point begun_ = SteadyClock::now();
  SteadyClock::time_point nextProgress_ = begun_;
  std::uint64_t total_ = 0;
  std::uint64_t size_ = 0;
  std::optional<std::string> failure_;
  bool hasEnded_ = false;
};

}  // namespace

std::unique_ptr<Subcommand> makeFetchCommand() { return std::make_unique<FetchCommand>(); }

}  // namespace ferrox::command
