// `ferrox list`: every peer's streams and projects, with their URLs.
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/GatheringCommand.h"
#include "Apps/ferrox/Commands/Report.h"
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

class ListCommand final : public GatheringCommand {
 public:
  ListCommand() : GatheringCommand(closingTime) {}

  CommandLine& declare(CommandLine& parent) override {
    CommandLine& line = parent.subcommand("list", "every peer's streams and projects, with their URLs");
    line.flag("--addresses", wantsAddresses_,
              "URLs with addresses, for programs that cannot look names under .local up");
    declareGatheringOptions(line);
    line.footer(
        "It asks once it is connected to all peers that it found and nobody new has shown up for 1.5 "
        "seconds.\n"
        "Exit status 1 when peers are there and none of them answers.\n\n"
        "Example:\n  ferrox list --addresses\n  ffplay http://10.0.0.7:16654/streams/cam/index.m3u8");
    return line;
  }

 protected:
  void gathered() override {
    peers_ = node().peers();
    const auto patience =
        everybodyIsConnected() ? FRXCapabilitiesListing::defaultResponseTimeout : patienceWithAbsent;
    node().list(patience, [this](const Result& result) {
      if (!wantsAddresses_) return take(result);
      replaceHostNames(*PlatformServices::shared().resolver, RunLoop::main(), result,
                       [this](const Result& replaced) { take(replaced); });
    });
  }
  bool hasOutcome() const override { return hasResult_; }
  int report() const override;

 private:
  void take(const Result& result) {
    result_ = result;
    hasResult_ = true;
    finish();
  }

  bool hasAnswered(const Peer& peer) const {
    const auto streams = result_.find(FRXCapabilityNameStreaming);
    return streams != result_.end() && streams->second.contains(peer.service->serviceId());
  }

  std::string table() const;

  bool wantsAddresses_ = false;
  std::vector<Peer> peers_;
  Result result_;
  bool hasResult_ = false;
};

int ListCommand::report() const {
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
    return reportFailure(writesJson(), "no answer from " + silent);
  }
  if (!silent.empty()) fmt::print(stderr, "ferrox: no answer from {}\n", silent);
  if (writesJson()) return reportEvent("capabilities", {{"result", describe(result_)}});
  return reportText(peers_.empty() ? "nobody is here\n" : table());
}

std::string ListCommand::table() const {
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

}  // namespace

std::unique_ptr<Subcommand> makeListCommand() { return std::make_unique<ListCommand>(); }

}  // namespace ferrox::command
