#include "Platform/DNSSD/Requery.h"

#include <algorithm>
#include <array>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/NetworkQuery.h"

namespace ferrox::dnssd {

using namespace std::chrono_literals;

namespace {

constexpr std::array<std::chrono::seconds, 3> delays = {1s, 3s, 8s};
/// Networks that heal mostly do so within minutes, and people wait for it.
constexpr auto eagerSearch = 10min;
constexpr auto lazyDelay = 60s;
constexpr auto longestSearch = 60min;
// The stacks drop a buried record a second later; before that it only seems to be there.
constexpr auto burialTakes = 2s;

}  // namespace

Requery::Requery(DiscoveryContext& context, std::string type, std::string domain, IsVisible isVisible)
    : context_(context),
      type_(std::move(type)),
      domain_(std::move(domain)),
      isVisible_(std::move(isVisible)) {}

void Requery::lost(const std::string& instanceName) {
  lastLoss_ = lost_[instanceName] = std::chrono::steady_clock::now();
  step_ = 0;
  schedule();
}

void Requery::schedule() {
  const bool isEager = std::chrono::steady_clock::now() - lastLoss_ < eagerSearch;
  const auto delay = isEager ? delays.at(std::min(step_, delays.size() - 1)) : lazyDelay;
  ++step_;
  timer_ = context_.thread.after(delay, [this] { ask(); });
}

void Requery::forgetReturned() {
  const auto now = std::chrono::steady_clock::now();
  std::erase_if(lost_, [&](const auto& entry) {
    const auto age = now - entry.second;
    return age > longestSearch || (age > burialTakes && isVisible_(entry.first));
  });
}

void Requery::ask() {
  timer_.reset();
  forgetReturned();
  if (lost_.empty()) return;
  queryNetwork(context_, type_ + "." + domain_, {recordTypePTR});
  schedule();
}

}  // namespace ferrox::dnssd
