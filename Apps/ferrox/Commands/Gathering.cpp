#include "Apps/ferrox/Commands/Gathering.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox::command {
namespace {

/// The second question of a discovery goes out a second after the first: who has not been heard of by then
/// lost both, or is not there.
constexpr std::chrono::milliseconds settlingTime{1500};

}  // namespace

Gathering::Gathering(std::chrono::duration<double> atMost, std::function<void()> onOver)
    : atMost_(atMost), onOver_(std::move(onOver)) {}

Gathering::~Gathering() = default;

void Gathering::begin(const Node& node) {
  node_ = &node;
  visible_ = !node.isAnnounced();
  deadline_ = Timer::scheduleOnce(RunLoop::main(), std::chrono::duration_cast<Clock::Duration>(atMost_),
                                  [this] { finish(); });
  peersChanged();
}

void Gathering::peersChanged() {
  if (over_) return;
  settled_ = false;
  settling_ = Timer::scheduleOnce(RunLoop::main(), settlingTime, [this] {
    settled_ = true;
    finishIfComplete();
  });
}

void Gathering::becameVisible() {
  visible_ = true;
  finishIfComplete();
}

void Gathering::cancel() {
  over_ = true;
  settling_.reset();
  deadline_.reset();
}

bool Gathering::everybodyIsConnected() const {
  const std::vector<Peer> peers = node_->peers();
  return !peers.empty() && !node_->isSearching() &&
         std::all_of(peers.begin(), peers.end(),
                     [](const Peer& peer) { return peer.connectedSince.has_value(); });
}

void Gathering::finishIfComplete() {
  if (settled_ && visible_ && everybodyIsConnected()) finish();
}

void Gathering::finish() {
  if (over_) return;
  cancel();
  onOver_();
}

}  // namespace ferrox::command
