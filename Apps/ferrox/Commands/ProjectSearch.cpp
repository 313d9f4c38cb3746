#include "Apps/ferrox/Commands/ProjectSearch.h"

#include <fmt/format.h>

#include <chrono>
#include <utility>

#include "Apps/ferrox/Commands/Report.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Utilities/PercentCoding.h"
#include "Platform/Host/Text.h"

namespace ferrox::command {
namespace {

constexpr std::chrono::seconds closingTime{2};
constexpr std::chrono::seconds patienceWithPeers{5};

bool isProject(const FRXClientAccessor& project, const std::string& id) {
  const std::string_view url = project.accessURL();
  const std::size_t slash = url.rfind('/');
  return slash != std::string_view::npos && percentDecoded(url.substr(slash + 1)) == id;
}

/// Published names have lost blanks and punctuation, which people still type.
std::string comparable(const std::string& name) { return text::upperCased(text::alphanumericOnly(name)); }

std::string listed(const std::vector<SharedProject>& projects) {
  std::string text;
  for (const SharedProject& project : projects) text += (text.empty() ? "" : ", ") + project.peerName;
  return text;
}

}  // namespace

std::optional<ProjectName> ProjectName::fromText(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == 0 || slash == std::string_view::npos || slash + 1 == text.size()) return std::nullopt;
  ProjectName name{std::string(text.substr(0, slash)), std::string(text.substr(slash + 1))};
  if (comparable(name.peer).empty()) return std::nullopt;
  return name;
}

std::optional<SharedProject> findProject(const ProjectName& name, const std::vector<Peer>& peers,
                                         const FRXCapabilitiesListing::Result& listing,
                                         std::string& problem) {
  std::vector<SharedProject> exact, similar;
  const auto projects = listing.find(FRXCapabilityNameProjectSharing);
  const std::string wanted = comparable(name.peer);
  for (const Peer& peer : peers) {
    if (projects == listing.end()) break;
    const auto offers = projects->second.find(peer.service->serviceId());
    if (offers == projects->second.end()) continue;
    const std::string peerName = displayName(*peer.service);
    const std::string candidate = comparable(peerName);
    if (candidate.find(wanted) == std::string::npos) continue;
    for (const FRXClientAccessor& offer : offers->second) {
      if (!isProject(offer, name.id)) continue;
      (candidate == wanted ? exact : similar).push_back({peerName, offer.accessURL()});
      break;
    }
  }
  const std::vector<SharedProject>& found = exact.empty() ? similar : exact;
  if (found.size() == 1) return found.front();
  problem =
      found.empty()
          ? fmt::format("no peer whose name has \"{}\" in it shares \"{}\"; ferrox list shows what there is",
                        name.peer, name.id)
          : fmt::format(
                "several peers share \"{}\": {}; say more of the name, or give the URL that ferrox list "
                "shows",
                name.id, listed(found));
  return std::nullopt;
}

ProjectSearch::ProjectSearch() : GatheringCommand(closingTime) {}

CommandLine& ProjectSearch::declare(CommandLine& subcommand) {
  declareGatheringOptions(subcommand);
  return subcommand;
}

int ProjectSearch::find(const ProjectName& name) {
  name_ = name;
  return run();
}

void ProjectSearch::gathered() {
  node().list(patienceWithPeers, [this](const FRXCapabilitiesListing::Result& listing) {
    found_ = findProject(name_, node().peers(), listing, problem_);
    finish();
  });
}

int ProjectSearch::report() const { return found_ ? ExitDone : reportFailure(writesJson(), problem_); }

}  // namespace ferrox::command
