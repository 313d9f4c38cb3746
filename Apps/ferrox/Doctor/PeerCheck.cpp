#include <algorithm>

#include "Apps/ferrox/Doctor/AddressTrial.h"
#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Doctor/PeerFindings.h"
#include "Apps/ferrox/Doctor/PeerPlaces.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/Net/HostNameResolver.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

using Trials = std::vector<std::shared_ptr<AddressTrial>>;

DNSSDConfiguration withoutDiscovery() {
  DNSSDConfiguration configuration;
  configuration.backEnd = DNSSDConfiguration::BackEnd::Off;
  return configuration;
}

// The shared services would announce this machine's host name.
struct SilentServices {
  std::unique_ptr<DNSSD> discovery = DNSSD::make(RunLoop::main(), withoutDiscovery());
  std::unique_ptr<HostNameResolver> resolver = HostNameResolver::make(*discovery);
  std::unique_ptr<HTTPClient> http = HTTPClient::make(*resolver);
};

Trials tryAll(const std::vector<PeerPlace>& places, SilentServices& services) {
  RunLoop& loop = RunLoop::main();
  Trials trials;
  for (const PeerPlace& place : places) {
    trials.push_back(std::make_shared<AddressTrial>(TrialServices{loop, *services.resolver, *services.http},
                                                    place.address));
  }
  for (const auto& trial : trials) trial->begin();
  const auto allAreOver = [&trials] {
    return std::all_of(trials.begin(), trials.end(), [](const auto& trial) { return trial->isOver(); });
  };
  loop.runUntil(allAreOver, AddressTrial::longest);
  return trials;
}

bool isWhole(const AddressTrial& trial) {
  return trial.http().succeeded() && trial.socket().opening().succeeded();
}

}  // namespace

Examination examinePeers(const PeerPlaces& peers, const Announcements* announcements) {
  SilentServices services;
  const std::vector<PeerPlace>& places = peers.places;
  const Trials trials = tryAll(places, services);
  // One address is enough to meet.
  const auto isReachedOtherwise = [&](std::size_t failed) {
    for (std::size_t i = 0; i < places.size(); ++i) {
      if (i != failed && places[i].peer == places[failed].peer && isWhole(*trials[i])) return true;
    }
    return false;
  };
  Examination out{"peers", "Peers tried by address", {}};
  for (std::size_t i = 0; i < places.size(); ++i) {
    for (Finding& finding : findingsAbout(places[i], *trials[i], announcements)) {
      if (finding.verdict == Verdict::Bad && isReachedOtherwise(i)) finding.verdict = Verdict::Note;
      out.findings.push_back(std::move(finding));
    }
  }
  if (peers.leftOut > 0) {
    out.findings.push_back(
        {Verdict::Note,
         "addresses beyond the first " + std::to_string(PeerPlaces::most) + " were not tried",
         {{"leftOut", peers.leftOut}}});
  }
  return out;
}

}  // namespace ferrox::command
