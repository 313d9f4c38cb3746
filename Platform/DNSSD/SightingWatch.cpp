#include "Platform/DNSSD/SightingWatch.h"

#include <chrono>

#include "Platform/Log/Log.h"

namespace ferrox::dnssd {

using namespace std::chrono_literals;

namespace {
// A second query goes out a second after the first, so one lost packet does not lose a living peer.
constexpr auto graceAfterAllForNow = 1500ms;
constexpr auto retryAfterFailure = 2s;
}  // namespace

SightingWatch::SightingWatch(DiscoveryContext& context, Opener opener, std::function<void()> changed)
    : context_(context), opener_(std::move(opener)), changed_(std::move(changed)) {}

void SightingWatch::open() {
  if (lookup_ || !context_.canLookUp) return;
  retry_.reset();
  lookup_ = opener_(context_.backEnd, [this](const LookupReport& report) { handle(report); });
  if (!lookup_) openLater();
}

void SightingWatch::suspend() {
  lookup_.reset();
  retry_.reset();
  staleDeadline_.reset();
  sightings_.markAllStale();
}

void SightingWatch::close() {
  suspend();
  sightings_.clear();
}

void SightingWatch::openLater() {
  retry_ = context_.thread.after(retryAfterFailure, [this] { open(); });
}

void SightingWatch::handle(const LookupReport& report) {
  switch (report.event) {
    case LookupEvent::Added:
      sightings_.add(report.place, report.what);
      break;
    case LookupEvent::Removed:
      sightings_.remove(report.place, report.what);
      break;
    case LookupEvent::AllForNow:
      staleDeadline_ = context_.thread.after(graceAfterAllForNow, [this] {
        sightings_.dropStale();
        changed_();
      });
      return;
    case LookupEvent::Failed:
      FRX_LOG_DEBUG(std::string("A discovery look-up failed and begins anew"));
      suspend();
      openLater();
      return;
  }
  changed_();
}

}  // namespace ferrox::dnssd
