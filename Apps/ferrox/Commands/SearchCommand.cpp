// `ferrox search ADDRESS`: asks one address for its service record.
#include <fmt/format.h>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/Node/NodeOptions.h"
#include "Apps/ferrox/Node/Peer.h"
#include "Apps/ferrox/Node/ServiceFetch.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Platform/PlatformServices.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

class SearchCommand final : public Subcommand {
 public:
  CommandLine& declare(CommandLine& parent) override {
    CommandLine& line = parent.subcommand("search", "asks one address for its service record");
    line.argument("ADDRESS", address_, "HOST, HOST:PORT or an IP address (default port: 16654)")
        .required()
        .check([](const std::string& text) {
          return FRXPeerAddress::fromText(text) ? "" : "neither a host name nor an IP address";
        });
    declareNodeOptions(line, options_, 0);
    line.footer("Example:\n  ferrox search edit-suite-3.local");
    return line;
  }

  int run() override {
    applyNodeOptions(options_);
    RunLoop& loop = RunLoop::main();
    std::optional<FetchedService> fetched;
    const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP}, [&loop](int) { loop.stop(); });
    const FRXPeerAddress address = *FRXPeerAddress::fromText(address_);
    fetchService(*PlatformServices::shared().httpClient, address, [&](const FetchedService& answer) {
      loop.post([&loop, &fetched, answer] {
        fetched = answer;
        loop.stop();
      });
    });
    loop.run();
    if (!fetched) return ExitInterrupted;
    if (!fetched->service) {
      return reportFailure(options_.json,
                           displayAddress(address) + ": " + fetched->error->localizedDescription);
    }
    return report(*fetched);
  }

 private:
  int report(const FetchedService& fetched) const {
    const FRXNetService& service = *fetched.service;
    if (options_.json) {
      return reportEvent("result", {{"cmd", "search"},
                                    {"ok", true},
                                    {"service", recordOf(service)},
                                    {"milliseconds", fetched.elapsed.count()}});
    }
    return reportText(fmt::format("{}\n  service   {}\n  address   {}\n  answered  in {} ms\n",
                                  escapedForTerminal(displayName(service)),
                                  escapedForTerminal(service.name().value_or("")),
                                  escapedForTerminal(displayAddress(service)), fetched.elapsed.count()));
  }

  std::string address_;
  NodeOptions options_;
};

}  // namespace

std::unique_ptr<Subcommand> makeSearchCommand() { return std::make_unique<SearchCommand>(); }

}  // namespace ferrox::command
