#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Doctor/NetworkSurvey.h"

namespace ferrox::command {
namespace {

std::string placeOf(const MulticastProbe& probe) {
  return fmt::format("{} over {}", probe.interface().name, probe.overIPv6() ? "IPv6" : "IPv4");
}

FRXDictionary factsOf(const MulticastProbe& probe) {
  return {{"interface", probe.interface().name},
          {"family", probe.overIPv6() ? "IPv6" : "IPv4"},
          {"sent", probe.problem() == 0},
          {"heardBack", probe.heardBack()},
          {"hostsHeard", probe.heard().size()},
          {"answers", probe.answering().size()},
          {"hostsWithNodes", probe.tellingOfNodes().size()},
          {"ownMachineAnswers", probe.ownMachineAnswers()}};
}

std::string adviceWhenNotSent(int problem, const std::string& interface) {
  if (problem == EADDRINUSE) {
    return "another program keeps UDP port 5353 to itself: stop it, or have it share the port";
  }
  if (problem == EPERM || problem == EACCES) {
    return fmt::format("a firewall on this machine forbids it: allow UDP port 5353 out and in on {}",
                       interface);
  }
  return fmt::format("look at address and routes of {}, or name another one with --interface", interface);
}

Finding findingWithoutAnswers(const MulticastProbe& probe) {
  if (probe.interface().loopback) {
    return {Verdict::Good, placeOf(probe) + ": sent and heard here; loopback reaches this machine only",
            factsOf(probe)};
  }
  if (!probe.heard().empty()) {
    return {Verdict::Note, placeOf(probe) + ": other hosts are heard, but none of them answered",
            factsOf(probe),
            fmt::format("what {} sends may get lost: look at IGMP snooping on the switch and at multicast "
                        "options of the access point",
                        probe.interface().name)};
  }
  return {Verdict::Note,
          placeOf(probe) +
              ": sent and heard here; no other host answered: none is there, or the network keeps "
              "multicast back",
          factsOf(probe),
          "if another machine is on this network: look for a firewall there, client isolation of the access "
          "point and IGMP snooping on the switch; --peer needs no multicast"};
}

Finding findingOf(const MulticastProbe& probe) {
  const std::string place = placeOf(probe);
  const std::string& interface = probe.interface().name;
  const std::size_t answers = probe.answering().size();
  if (probe.problem() != 0) {
    return {Verdict::Bad,
            fmt::format("{}: a multicast question cannot be sent: {}", place, std::strerror(probe.problem())),
            factsOf(probe), adviceWhenNotSent(probe.problem(), interface)};
  }
  if (!probe.heardBack()) {
    return {
        Verdict::Bad,
        fmt::format("{}: sent, but not heard back; a firewall on this machine may drop UDP port 5353", place),
        factsOf(probe), fmt::format("allow UDP port 5353 in and out on {}", interface)};
  }
  if (answers > 0) {
    return {Verdict::Good,
            fmt::format("{}: sent and heard; other hosts that answered: {}, with nodes: {}", place, answers,
                        probe.tellingOfNodes().size()),
            factsOf(probe)};
  }
  return findingWithoutAnswers(probe);
}

// One address family is enough to meet on an interface.
bool worksOtherwise(const NetworkSurvey& survey, const MulticastProbe& failed) {
  return std::any_of(survey.probes().begin(), survey.probes().end(), [&](const auto& probe) {
    return probe->interface().index == failed.interface().index && probe->works();
  });
}

}  // namespace

Examination examineMulticast(const NetworkSurvey& survey) {
  Examination out{"multicast", "Multicast on the interfaces used", {}};
  for (const auto& probe : survey.probes()) {
    Finding finding = findingOf(*probe);
    if (finding.verdict == Verdict::Bad && worksOtherwise(survey, *probe)) finding.verdict = Verdict::Note;
    out.findings.push_back(std::move(finding));
  }
  if (out.findings.empty()) {
    out.findings.push_back({Verdict::Bad,
                            "there is no interface to send on",
                            {},
                            "connect this machine to a network, or name an interface with --interface"});
  }
  return out;
}

}  // namespace ferrox::command
