// `ferrox demo`: nodes on this machine that find each other and talk, told step by step.
#include <fmt/format.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Demo/DemoScript.h"
#include "Apps/ferrox/Demo/DemoStage.h"
#include "Apps/ferrox/Demo/DemoTalk.h"
#include "Apps/ferrox/Demo/Story.h"
#include "Apps/ferrox/Node/NodeOptions.h"
#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Platform/PlatformServices.h"

namespace ferrox::command {
namespace {

class DemoCommand final : public Subcommand {
 public:
  CommandLine& declare(CommandLine& parent) override {
    CommandLine& line = parent.subcommand(
        "demo", "nodes on this machine meet, talk, offer, lose one and find it again, with measured times");
    line.argument("--nodes", nodes_, "how many nodes take part, the last of them late (default: 4)")
        .typeName("N")
        .range(3, 8);
    line.repeated("--interface", interfaces_, "meet over this interface (default: lo, seen by nobody else)")
        .typeName("NAME");
    declareOutputOptions(line, options_);
    line.footer("Exit status 0 only if every step really happened.\n\nExample:\n  ferrox demo --nodes 6");
    return line;
  }

  int run() override {
    if (interfaces_.empty()) interfaces_.emplace_back("lo");
    // The nodes discover; this process only plays with them.
    DNSSDConfiguration discovery;
    discovery.backEnd = DNSSDConfiguration::BackEnd::Off;
    PlatformServices::configureDiscovery(discovery);
    DemoStage stage(nodes_, interfaces_, levelText(),
                    {DemoTalk::passing, DemoTalk::kept, std::string(FRXStreamingCapabilityNotification),
                     std::string(FRXProjectSharingCapabilityNotification)});
    Story story(options_.json, STDOUT_FILENO);
    return DemoScript(stage, story).play();
  }

 private:
  // Killing a node is part of the story; the survivors' remarks on it are not, unless asked for.
  std::string levelText() const {
    switch (options_.logLevel) {
      case LogLevel::Verbose:
        return "verbose";
      case LogLevel::Debug:
        return "debug";
      case LogLevel::Warn:
      case LogLevel::Error:
        break;
    }
    return "error";
  }

  std::size_t nodes_ = 4;
  std::vector<std::string> interfaces_;
  NodeOptions options_;
};

}  // namespace

std::unique_ptr<Subcommand> makeDemoCommand() { return std::make_unique<DemoCommand>(); }

}  // namespace ferrox::command
