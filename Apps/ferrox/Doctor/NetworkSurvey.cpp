#include "Apps/ferrox/Doctor/NetworkSurvey.h"

#include <poll.h>

#include "Apps/ferrox/Doctor/ThisMachine.h"

namespace ferrox::command {
namespace {

// On loopback, discovery speaks IPv4 only.
bool isExamined(const dnssd::NetworkInterface& interface, bool overIPv6) {
  if (overIPv6) return interface.hasIPv6 && !interface.loopback;
  return interface.hasIPv4;
}

}  // namespace

NetworkSurvey::NetworkSurvey(const std::vector<dnssd::NetworkInterface>& used) {
  const std::set<std::string> own = addressesOfThisMachine();
  for (const dnssd::NetworkInterface& interface : used) {
    for (const bool overIPv6 : {false, true}) {
      if (!isExamined(interface, overIPv6)) continue;
      probes_.push_back(std::make_unique<MulticastProbe>(interface, overIPv6, own, announcements_));
    }
  }
}

void NetworkSurvey::want(const std::string& hostName) {
  const auto name = dnssd::dnsNameFromText(hostName);
  if (name && name->size() == 2 && dnssd::sameDNSName({name->back()}, {"local"}))
    announcements_.want(hostName);
}

void NetworkSurvey::run(std::chrono::milliseconds wait) {
  const auto begun = std::chrono::steady_clock::now();
  for (const auto share : {wait / 2, wait}) {
    const std::vector<dnssd::DNSQuestion> questions = announcements_.questions();
    for (const auto& probe : probes_) probe->ask(questions);
    listenUntil(begun + share);
  }
}

void NetworkSurvey::listenUntil(std::chrono::steady_clock::time_point end) const {
  std::vector<pollfd> watched;
  for (const auto& probe : probes_) watched.push_back({probe->descriptor(), POLLIN, 0});
  if (watched.empty()) return;
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return;
    if (poll(watched.data(), watched.size(), static_cast<int>(left.count())) <= 0) continue;
    for (std::size_t i = 0; i < probes_.size(); ++i) {
      if (watched[i].revents != 0) probes_[i]->readAvailable();
    }
  }
}

}  // namespace ferrox::command
