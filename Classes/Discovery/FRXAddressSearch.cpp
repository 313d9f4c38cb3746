#include "Classes/Discovery/FRXAddressSearch.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Platform/Log/Log.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox {

FRXAddressSearch::FRXAddressSearch(FRXBrowser& browser, RunLoop& mainLoop, FRXPeerAddress address)
    : browser_(browser), loop_(mainLoop), address_(std::move(address)) {}

FRXAddressSearch::~FRXAddressSearch() = default;

void FRXAddressSearch::start() {
  assert(loop_.isCurrentThread());
  if (started_) return;
  started_ = true;
  ++generation_;
  interval_ = shortestInterval;
  search();
}

void FRXAddressSearch::stop() {
  assert(loop_.isCurrentThread());
  started_ = false;
  timer_.reset();
}

void FRXAddressSearch::evaluate() {
  if (isPeerInOrder()) {
    evaluateIn(shortestInterval);
  } else {
    search();
  }
}

/// False also while nothing was found yet.
bool FRXAddressSearch::isPeerInOrder() {
  const auto peer = foundServiceId_ ? browser_.serviceWithId(*foundServiceId_) : nullptr;
  if (!peer) return false;
  // Peers of that kind are not monitored, so being known is all that can be said of them.
  if (peer->isAvailable() || FRXUtilities::isUWPService(peer.get())) {
    lastSign_ = loop_.clock().now();
    interval_ = shortestInterval;
    return true;
  }
  return loop_.clock().now() - lastSign_ < silenceLimit;
}

void FRXAddressSearch::search() {
  timer_.reset();
  browser_.lookUpServiceAtAddress(
      address_.host(), address_.port(),
      [weak = weak_from_this(), generation = generation_, loop = &loop_](
          const std::shared_ptr<FRXNetService>& service, const std::optional<FRXError>&) {
        loop->post([weak, generation, service] {
          const auto self = weak.lock();
          if (self && self->started_ && self->generation_ == generation) self->searchEnded(service);
        });
      });
}

void FRXAddressSearch::searchEnded(const std::shared_ptr<FRXNetService>& service) {
  if (!service) {
    evaluateIn(interval_);
    interval_ = std::min(interval_ * 2, longestInterval);
    return;
  }
  if (FRXUtilities::isLocalDeviceService(service->name())) {
    FRX_LOG_WARN("The peer address " + address_.host() + " is this device itself: not searched any more");
    stop();
    return;
  }
  foundServiceId_ = service->serviceId();
  lastSign_ = loop_.clock().now();
  evaluateIn(shortestInterval);
}

void FRXAddressSearch::evaluateIn(Clock::Duration delay) {
  timer_ = Timer::scheduleOnce(loop_, delay, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->evaluate();
  });
}

}  // namespace ferrox
