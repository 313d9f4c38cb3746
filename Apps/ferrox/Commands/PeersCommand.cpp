// `ferrox peers`: who is there.
#include <unistd.h>

#include <chrono>
#include <utility>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/Node/Node.h"
#include "Apps/ferrox/Terminal/PeerLines.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox::command {
namespace {

class PeersCommand final : public Subcommand, public NodeListener {
 public:
  CommandLine& declare(CommandLine& parent) override {
    CommandLine& line =
        parent.subcommand("peers", "who is there: looks for some seconds, prints a table, ends");
    line.argument("--wait", wait_, "how many seconds to look (default: 3)").typeName("S").range(0.0, 3600.0);
    declareNodeOptions(line, setup_.options, 0);
    line.footer(
        "It only listens: nothing is announced, and nodes of this machine are listed too.\n\n"
        "Example:\n  ferrox peers --wait 5 --peer 192.168.7.20");
    return line;
  }

  int run() override {
    applyNodeOptions(setup_.options);
    setup_.publishes = false;
    RunLoop& loop = RunLoop::main();
    const auto node = Node::make(setup_, *this);
    const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP}, [this, &loop](int) {
      interrupted_ = true;
      loop.stop();
    });
    const auto wait = std::chrono::duration_cast<Clock::Duration>(std::chrono::duration<double>(wait_));
    const auto timer = Timer::scheduleOnce(loop, wait, [&loop] { loop.stop(); });
    node->start();
    loop.run();
    const int exitCode = interrupted_ ? static_cast<int>(ExitInterrupted) : report(*node);
    node->stop();
    return exitCode;
  }

 private:
  int report(const Node& node) const {
    const std::vector<Peer> peers = node.peers();
    if (setup_.options.json) return reportJson(node, peers);
    if (peers.empty()) return reportText("nobody is here\n");
    std::string text;
    const Style style = Style::forDescriptor(STDOUT_FILENO);
    const std::size_t width = isTerminal(STDOUT_FILENO) ? terminalSize(STDOUT_FILENO).columns : 200;
    for (const std::string& line : peerLines(peers, width, style)) text += line + "\n";
    return reportText(text);
  }

  static int reportJson(const Node& node, const std::vector<Peer>& peers) {
    FRXArray services;
    for (const Peer& peer : peers) services.emplace_back(node.describe(peer));
    return reportEvent("peers", {{"services", std::move(services)}});
  }

  NodeSetup setup_;
  double wait_ = 3.0;
  bool interrupted_ = false;
};

}  // namespace

std::unique_ptr<Subcommand> makePeersCommand() { return std::make_unique<PeersCommand>(); }

}  // namespace ferrox::command
