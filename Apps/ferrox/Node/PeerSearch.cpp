#include "Apps/ferrox/Node/PeerSearch.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox::command {
namespace {

constexpr std::chrono::seconds firstPause{1};
constexpr std::chrono::seconds longestPause{15};

}  // namespace

// Kept alive by the search only, so that answers which arrive later find nobody.
struct PeerSearch::Entry : std::enable_shared_from_this<Entry> {
  Entry(RunLoop& mainLoop, PeerAddress peerAddress, Ask& asking)
      : loop(mainLoop), address(std::move(peerAddress)), ask(asking) {}

  void search() {
    if (searching) return;
    searching = true;
    attempt();
  }

  void attempt() {
    ask(address, [&mainLoop = loop, weak = weak_from_this()](bool found) {
      mainLoop.post([weak, found] {
        if (const auto self = weak.lock()) self->answered(found);
      });
    });
  }

  void answered(bool found) {
    if (found) {
      searching = false;
      pause = firstPause;
      return;
    }
    retry = Timer::scheduleOnce(loop, pause, [this] { attempt(); });
    pause = std::min(pause * 2, longestPause);
  }

  RunLoop& loop;
  const PeerAddress address;
  Ask& ask;
  bool searching = false;
  std::chrono::seconds pause = firstPause;
  std::unique_ptr<Timer> retry;
};

PeerSearch::PeerSearch(RunLoop& loop, std::vector<PeerAddress> addresses, Ask ask)
    : loop_(loop), ask_(std::move(ask)) {
  for (PeerAddress& address : addresses) {
    entries_.push_back(std::make_shared<Entry>(loop_, std::move(address), ask_));
  }
}

PeerSearch::~PeerSearch() = default;

void PeerSearch::start() { searchAgain(); }

void PeerSearch::searchAgain() {
  for (const auto& entry : entries_) entry->search();
}

}  // namespace ferrox::command
