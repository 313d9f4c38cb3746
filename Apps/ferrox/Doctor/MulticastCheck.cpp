#include <fmt/format.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <poll.h>

#include <algorithm>
#include <memory>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Doctor/MulticastProbe.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox::command {
namespace {

using Probes = std::vector<std::unique_ptr<MulticastProbe>>;
using Instant = std::chrono::steady_clock::time_point;

std::set<std::string> addressesOfThisMachine() {
  std::set<std::string> out;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return out;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr) continue;
    const int family = entry->ifa_addr->sa_family;
    if (family != AF_INET && family != AF_INET6) continue;
    const socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    const std::string text = SocketAddress::fromNative(entry->ifa_addr, length).hostText();
    out.insert(text.substr(0, text.find('%')));
  }
  freeifaddrs(list);
  return out;
}

void listen(const Probes& probes, Instant until) {
  std::vector<pollfd> watched;
  for (const auto& probe : probes) watched.push_back({probe->descriptor(), POLLIN, 0});
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
    if (left.count() <= 0) return;
    if (poll(watched.data(), watched.size(), static_cast<int>(left.count())) <= 0) continue;
    for (std::size_t i = 0; i < probes.size(); ++i) {
      if (watched[i].revents != 0) probes[i]->readAvailable();
    }
  }
}

Finding findingOf(const MulticastProbe& probe) {
  const std::string place =
      fmt::format("{} over {}", probe.interface().name, probe.overIPv6() ? "IPv6" : "IPv4");
  const bool sent = probe.problem().empty();
  const std::size_t answers = probe.answering().size();
  Finding out{Verdict::Good,
              "",
              {{"interface", probe.interface().name},
               {"family", probe.overIPv6() ? "IPv6" : "IPv4"},
               {"sent", sent},
               {"heardBack", probe.heardBack()},
               {"answers", answers},
               {"ownMachineAnswers", probe.ownMachineAnswers()}}};
  if (!sent) {
    out.verdict = Verdict::Bad;
    out.text = fmt::format("{}: a multicast question cannot be sent: {}", place, probe.problem());
  } else if (!probe.heardBack()) {
    out.verdict = Verdict::Bad;
    out.text =
        fmt::format("{}: sent, but not heard back; a firewall on this machine may drop UDP port 5353", place);
  } else if (answers > 0) {
    out.text =
        fmt::format("{}: sent and heard; {} other host{} answered", place, answers, answers == 1 ? "" : "s");
  } else {
    out.verdict = probe.interface().loopback ? Verdict::Good : Verdict::Note;
    out.text =
        fmt::format("{}: sent and heard here; {}", place,
                    probe.interface().loopback
                        ? "loopback reaches this machine only"
                        : "no other host answered: none is there, or the network keeps multicast back");
  }
  return out;
}

bool works(const MulticastProbe& probe) { return probe.problem().empty() && probe.heardBack(); }

// One address family is enough to meet on an interface.
bool worksOtherwise(const Probes& probes, const MulticastProbe& failed) {
  return std::any_of(probes.begin(), probes.end(), [&](const auto& probe) {
    return probe->interface().index == failed.interface().index && works(*probe);
  });
}

// On loopback, discovery speaks IPv4 only.
bool isExamined(const dnssd::NetworkInterface& interface, bool overIPv6) {
  if (overIPv6) return interface.hasIPv6 && !interface.loopback;
  return interface.hasIPv4;
}

}  // namespace

Examination examineMulticast(const std::vector<dnssd::NetworkInterface>& used,
                             std::chrono::milliseconds wait) {
  const std::set<std::string> own = addressesOfThisMachine();
  Probes probes;
  for (const dnssd::NetworkInterface& interface : used) {
    for (const bool overIPv6 : {false, true}) {
      if (isExamined(interface, overIPv6)) {
        probes.push_back(std::make_unique<MulticastProbe>(interface, overIPv6, own));
      }
    }
  }
  // Asked twice: one packet may get lost.
  const Instant begun = std::chrono::steady_clock::now();
  for (const auto share : {wait / 2, wait}) {
    for (const auto& probe : probes) probe->ask();
    listen(probes, begun + share);
  }
  Examination out{"multicast", "Multicast on the interfaces used", {}};
  for (const auto& probe : probes) {
    Finding finding = findingOf(*probe);
    if (finding.verdict == Verdict::Bad && worksOtherwise(probes, *probe)) finding.verdict = Verdict::Note;
    out.findings.push_back(std::move(finding));
  }
  if (out.findings.empty()) out.findings.push_back({Verdict::Bad, "there is no interface to send on", {}});
  return out;
}

}  // namespace ferrox::command
