// `ferrox check HOST PORT`: one reachability check.
#include <fmt/format.h>

#include <chrono>
#include <memory>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/Node/NodeOptions.h"
#include "Apps/ferrox/Node/Peer.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Monitor/FRXHTTPServiceChecker.h"
#include "Classes/Monitor/FRXTCPServiceChecker.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

class CheckCommand final : public Subcommand {
 public:
  CommandLine& declare(CommandLine& parent) override {
    CommandLine& line = parent.subcommand("check", "one reachability check; exit 0 responded, 1 no response");
    line.argument("HOST", host_, "a host name or an IP address")
        .required()
        .check([](const std::string& text) {
          return FRXPeerAddress::make(text) ? "" : "neither a host name nor an IP address";
        });
    line.argument("PORT", port_, "a TCP port").required().range(1, 65535);
    line.flag("--http", http_, "by an HTTP HEAD request instead of opening a TCP connection");
    declareNodeOptions(line, options_, 0);
    line.footer("Example:\n  ferrox check edit-suite-3.local 16654 --http");
    return line;
  }

  int run() override {
    applyNodeOptions(options_);
    RunLoop& loop = RunLoop::main();
    std::optional<FRXServiceCheckResult> result;
    const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP}, [&loop](int) { loop.stop(); });
    const auto checker = makeChecker();
    const auto begun = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point answered;
    loop.post([&] {
      checker->checkServiceForResponse(std::make_shared<FRXNetService>(host_, port_, "CHECKED"),
                                       [&](FRXServiceCheckResult outcome) {
                                         const auto time = std::chrono::steady_clock::now();
                                         loop.post([&, outcome, time] {
                                           result = outcome;
                                           answered = time;
                                           loop.stop();
                                         });
                                       });
    });
    loop.run();
    if (!result) return ExitInterrupted;
    return report(*result == FRXServiceCheckResult::Responded,
                  std::chrono::duration_cast<std::chrono::milliseconds>(answered - begun));
  }

 private:
  std::shared_ptr<FRXServiceChecker> makeChecker() const {
    if (http_) return std::make_shared<FRXHTTPServiceChecker>();
    return std::make_shared<FRXTCPServiceChecker>();
  }

  int report(bool responded, std::chrono::milliseconds elapsed) const {
    const std::string method = http_ ? "HTTP" : "TCP";
    const std::string target =
        displayAddress(*FRXPeerAddress::make(host_, static_cast<std::uint16_t>(port_)));
    if (!responded) {
      return reportFailure(options_.json,
                           fmt::format("no response from {} ({}, {} ms)", target, method, elapsed.count()));
    }
    if (options_.json) {
      return reportEvent("result", {{"cmd", "check"},
                                    {"ok", true},
                                    {"responded", true},
                                    {"method", http_ ? "http" : "tcp"},
                                    {"milliseconds", elapsed.count()}});
    }
    return reportText(
        fmt::format("{} responded ({}, {} ms)\n", escapedForTerminal(target), method, elapsed.count()));
  }

  std::string host_;
  std::int64_t port_ = 0;
  bool http_ = false;
  NodeOptions options_;
};

}  // namespace

std::unique_ptr<Subcommand> makeCheckCommand() { return std::make_unique<CheckCommand>(); }

}  // namespace ferrox::command
