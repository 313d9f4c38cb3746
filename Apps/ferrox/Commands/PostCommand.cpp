// `ferrox post NAME`: one notification to the peers that are there.
#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/GatheringCommand.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Platform/Base/Json.h"
#include "Platform/Host/Text.h"

namespace ferrox::command {
namespace {

constexpr std::chrono::seconds closingTime{10};

using Recipients = std::vector<std::shared_ptr<FRXNetService>>;

class PostCommand final : public GatheringCommand {
 public:
  PostCommand() : GatheringCommand(closingTime) {}

  CommandLine& declare(CommandLine& parent) override;

  void connectionChanged(const ConnectionEvent& event) override {
    GatheringCommand::connectionChanged(event);
    // Once it was posted, connections end because this side closes them. A clean end is the peer's word that
    // it has read all that came before.
    const auto clean = event.userInfo.find("wasClean");
    const auto id = event.userInfo.find("frxId");
    if (clean == event.userInfo.end() || clean->second != FRXValue("YES") || id == event.userInfo.end())
      return;
    if (const std::string* serviceId = id->second.asText()) confirmed_.insert(*serviceId);
  }

 protected:
  void gathered() override {
    found_ = node().peers().size();
    confirmed_.clear();
    recipients_ = node().messaging().post(post_);
    finish();
  }
  bool hasOutcome() const override { return !recipients_.empty(); }
  int report() const override;

 private:
  std::string takeUserInfo(const std::string& text);
  int reportReached(const Recipients& reached) const;
  static std::string names(const Recipients& services);

  Post post_;
  std::size_t found_ = 0;
  Recipients recipients_;
  std::set<std::string> confirmed_;
};

std::string checkNotBlank(const std::string& text) {
  if (isBlank(text)) return "must not be blank";
  return ferrox::text::isValidUtf8(text) ? "" : "must be UTF-8 text";
}

CommandLine& PostCommand::declare(CommandLine& parent) {
  CommandLine& line = parent.subcommand("post", "posts one notification to the peers that are there");
  line.argument("NAME", post_.name, "the notification's name").required().check(checkNotBlank);
  line.argument("--filter", post_.filter, "reaches those who observe the name with this filter, or with none")
      .typeName("TEXT")
      .check(checkNotBlank);
  line.argument(
          "--user-info", [this](const std::string& text) { return takeUserInfo(text); },
          "what goes along, a JSON object")
      .typeName("JSON");
  declareGatheringOptions(line);
  line.footer(
      "It posts once it is connected to all peers that it found and nobody new has shown up for 1.5 "
      "seconds,\n"
      "and ends when they have confirmed it: exit status 0, or 1 when nobody was reached.\n\n"
      "Example:\n  ferrox post TakeFinished --filter \"edit suite 3\" --user-info '{\"take\": 7}'");
  return line;
}

std::string PostCommand::takeUserInfo(const std::string& text) {
  FRXError error;
  const std::optional<FRXValue> value = parseJson(text, &error);
  if (!value) return "is no JSON: " + error.localizedDescription;
  if (value->asObject() == nullptr) return "is no JSON object";
  post_.userInfo = *value->asObject();
  return "";
}

int PostCommand::report() const {
  Recipients reached;
  Recipients doubtful;
  for (const auto& service : recipients_) {
    (confirmed_.contains(service->serviceId()) ? reached : doubtful).push_back(service);
  }
  if (!doubtful.empty() && !reached.empty()) {
    fmt::print(stderr, "ferrox: the connection broke before this was confirmed by {}\n", names(doubtful));
  }
  if (!reached.empty()) return reportReached(reached);
  const bool json = writesJson();
  if (!doubtful.empty()) {
    return reportFailure(json, "the connection broke before anybody confirmed it: " + names(doubtful));
  }
  if (found_ == 0) return reportFailure(json, fmt::format("nobody was found within {} s", waitSeconds()));
  return reportFailure(
      json, fmt::format("{} found, but none could be connected to within {} s",
                        found_ == 1 ? "one peer was" : fmt::format("{} peers were", found_), waitSeconds()));
}

int PostCommand::reportReached(const Recipients& reached) const {
  if (writesJson()) {
    FRXArray services;
    for (const auto& service : reached) services.emplace_back(recordOf(*service));
    return reportEvent(
        "result",
        {{"cmd", "post"}, {"ok", true}, {"sentTo", reached.size()}, {"services", std::move(services)}});
  }
  return reportText(fmt::format("sent to {}: {}\n",
                                reached.size() == 1 ? "1 peer" : fmt::format("{} peers", reached.size()),
                                names(reached)));
}

std::string PostCommand::names(const Recipients& services) {
  std::string out;
  for (const auto& service : services) {
    out += (out.empty() ? "" : ", ") + escapedForTerminal(displayName(*service));
  }
  return out;
}

}  // namespace

std::unique_ptr<Subcommand> makePostCommand() { return std::make_unique<PostCommand>(); }

}  // namespace ferrox::command
