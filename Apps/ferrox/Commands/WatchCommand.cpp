// `ferrox watch NAME...`: incoming notifications as they come.
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/DeclareObservations.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Events/EventWriter.h"
#include "Apps/ferrox/Events/JsonPresenter.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/Node/Node.h"
#include "Apps/ferrox/Terminal/PeerLines.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

constexpr std::chrono::seconds closingTime{2};

class WatchCommand final : public Subcommand, public NodeListener {
 public:
  CommandLine& declare(CommandLine& parent) override {
    CommandLine& line = parent.subcommand("watch", "incoming notifications of these names, as they come");
    declareObservations(line, "NAME", setup_.observations,
                        "what to watch, with this filter only; one or more")
        .required();
    declareNodeOptions(line, setup_.options, 0, DefaultIdentity::New);
    line.footer(
        "It is a node that others see, until it is stopped. Each line tells the sender's time, the name, "
        "the\n"
        "filter, the sender, and what it sent; with --json each is a notification event.\n\n"
        "Example:\n  ferrox watch TakeFinished Playhead=\"edit suite 3\"");
    return line;
  }

  int run() override {
    applyNodeOptions(setup_.options);
    RunLoop& loop = RunLoop::main();
    EventWriter writer(STDOUT_FILENO, [this, &loop](const std::string&) { loop.post([this] { end(); }); });
    writer_ = &writer;
    node_ = Node::make(setup_, *this);
    const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP}, [this](int) { end(); });
    node_->start();
    loop.run();
    node_->stop();
    if (!failure_) return ExitDone;
    fmt::print(stderr, "ferrox: {}\n", escapedForTerminal(*failure_));
    return ExitFailed;
  }

  void nodeStarted(const NodeIdentity& node) override {
    if (setup_.options.json || !isTerminal(STDERR_FILENO)) return;
    fmt::print(stderr, "watching as {} on port {}; Ctrl-C ends\n", escapedForTerminal(node.computerName),
               node.port);
  }

  void nodeFailed(const std::string& reason) override {
    failure_ = "cannot start: " + reason;
    if (setup_.options.json) writer_->write("error", {{"message", *failure_}});
    end();
  }

  void notificationSeen(const SeenNotification& notification) override {
    // The node's own connection events can have any name that is watched.
    if (notification.local) return;
    if (setup_.options.json) return JsonPresenter(*writer_).notificationSeen(notification);
    const Style style = Style::forDescriptor(STDOUT_FILENO);
    writer_->writeText(style(Tone::Dim, preciseClockText(notification.timestamp)) + "  " +
                       escapedForTerminal(notificationText(notification)) + "\n");
  }

 private:
  void end() {
    if (std::exchange(ending_, true)) return;
    node_->finish(closingTime, [] { RunLoop::main().stop(); });
  }

  NodeSetup setup_;
  std::shared_ptr<Node> node_;
  EventWriter* writer_ = nullptr;
  std::optional<std::string> failure_;
  bool ending_ = false;
};

}  // namespace

std::unique_ptr<Subcommand> makeWatchCommand() { return std::make_unique<WatchCommand>(); }

}  // namespace ferrox::command
