// `ferrox list`: every peer's streams and projects, with their URLs.
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Apps/ferrox/Commands/Gathering.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/Node/Node.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Apps/ferrox/Terminal/TextTable.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Platform/PlatformServices.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

using Result = FRXCapabilitiesListing::Result;

constexpr std::chrono::seconds closingTime{2};
/// Peers that could not be connected to by now will not answer either.
constexpr std::chrono::seconds patienceWithAbsent{2};
constexpr std::size_t widestName = 48;
/// URLs are there to be copied: a table of them is never cut.
constexpr std::size_t anyWidth = std::size_t{1} << 20;

class ListCommand final : public Subcommand, public NodeListener {
 public:
  CLI::App* declare(CLI::App& parent) override {
    CLI::App* app = parent.add_subcommand("list", "every peer's streams and projects, with their URLs");
    app->add_option("--wait", wait_, "how many seconds to look for peers at most (default: 3)")
        ->type_name("S")
        ->check(CLI::Range(0.0, 3600.0).description(""));
    app->add_flag("--addresses", wantsAddresses_,
                  "URLs with addresses, for programs that cannot look names under .local up");
    declareNodeOptions(*app, setup_.options, 0, DefaultIdentity::New);
    app->footer(
        "It asks once it is connected to all peers that it found and nobody new has shown up for 1.5 "
        "seconds.\n"
        "Exit status 1 when peers are there and none of them answers.\n\n"
        "Example:\n  ferrox list\n  ffplay $(ferrox list --addresses | awk '/stream/ {print $NF; exit}')");
    return app;
  }

  int run() override {
    applyNodeOptions(setup_.options);
    RunLoop& loop = RunLoop::main();
    node_ = Node::make(setup_, *this);
    gathering_ = std::make_unique<Gathering>(std::chrono::duration<double>(wait_), [this] { list(); });
    const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP}, [this](int) {
      interrupted_ = true;
      finish();
    });
    gathering_->begin(*node_);
    node_->start();
    loop.run();
    node_->stop();
    if (failure_) return reportFailure(setup_.options.json, "cannot start: " + *failure_);
    return interrupted_ ? static_cast<int>(ExitInterrupted) : report();
  }

  void nodeFailed(const std::string& reason) override {
    failure_ = reason;
    RunLoop::main().stop();
  }
  void localServiceStarted(const std::string&) override { gathering_->becameVisible(); }
  void peerDiscovered(const Peer&) override { gathering_->peersChanged(); }
  void peerRemoved(const Peer&) override { gathering_->peersChanged(); }
  void peerChangedState(const Peer&) override { gathering_->peersChanged(); }
  void connectionChanged(const ConnectionEvent&) override { gathering_->peersChanged(); }

 private:
  void list() {
    peers_ = node_->peers();
    const auto patience = gathering_->everybodyIsConnected() ? FRXCapabilitiesListing::defaultResponseTimeout
                                                             : patienceWithAbsent;
    node_->list(patience, [this](const Result& result) {
      if (!wantsAddresses_) return take(result);
      replaceHostNames(*PlatformServices::shared().resolver, RunLoop::main(), result,
                       [this](const Result& replaced) { take(replaced); });
    });
  }

  void take(const Result& result) {
    result_ = result;
    finish();
  }

  void finish() {
    gathering_->cancel();
    node_->finish(closingTime, [] { RunLoop::main().stop(); });
  }

  bool hasAnswered(const Peer& peer) const {
    const auto streams = result_.find(FRXCapabilityNameStreaming);
    return streams != result_.end() && streams->second.contains(peer.service->serviceId());
  }

  int report() const {
    std::string silent;
    bool somebodyAnswered = false;
    for (const Peer& peer : peers_) {
      if (hasAnswered(peer)) {
        somebodyAnswered = true;
      } else {
        silent += (silent.empty() ? "" : ", ") + escapedForTerminal(displayName(*peer.service));
      }
    }
    if (!peers_.empty() && !somebodyAnswered) {
      return reportFailure(setup_.options.json, "no answer from " + silent);
    }
    if (!silent.empty()) fmt::print(stderr, "ferrox: no answer from {}\n", silent);
    if (setup_.options.json) return reportEvent("capabilities", {{"result", describe(result_)}});
    return reportText(peers_.empty() ? "nobody is here\n" : table());
  }

  std::string table() const {
    TextTable table({{"PEER", Align::Left, 4}, {"KIND", Align::Left, 7}, {"NAME", Align::Left, 4}, {"URL"}});
    bool isEmpty = true;
    for (const Peer& peer : peers_) {
      for (const auto& [capability, kind] : {std::pair{FRXCapabilityNameStreaming, "stream"},
                                             std::pair{FRXCapabilityNameProjectSharing, "project"}}) {
        const auto byService = result_.find(capability);
        if (byService == result_.end()) continue;
        const auto offers = byService->second.find(peer.service->serviceId());
        if (offers == byService->second.end()) continue;
        for (const FRXClientAccessor& offer : offers->second) {
          isEmpty = false;
          table.addRow({{displayName(*peer.service), Tone::Strong},
                        {kind},
                        {shortened(escapedForTerminal(offer.name()), widestName)},
                        {offer.accessURL()}});
        }
      }
    }
    if (isEmpty) return "nobody offers anything\n";
    std::string text;
    for (const std::string& line : table.lines(anyWidth, Style::forDescriptor(STDOUT_FILENO)))
      text += line + "\n";
    return text;
  }

  NodeSetup setup_;
  double wait_ = 3.0;
  bool wantsAddresses_ = false;
  std::shared_ptr<Node> node_;
  std::unique_ptr<Gathering> gathering_;
  std::vector<Peer> peers_;
  Result result_;
  bool interrupted_ = false;
  std::optional<std::string> failure_;
};

}  // namespace

std::unique_ptr<Subcommand> makeListCommand() { return std::make_unique<ListCommand>(); }

}  // namespace ferrox::command
