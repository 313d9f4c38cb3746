// Keeps asking for the peers that were named by address until each has answered.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "Apps/ferrox/Node/PeerAddress.h"

namespace ferrox {
class RunLoop;
}

namespace ferrox::command {

/// Every address is asked at once, then again after growing pauses until it answers; after `searchAgain`
/// all are asked anew, because a lost peer may be back under another record. Thread: main
class PeerSearch {
 public:
  /// Asks one address; calls `done` with whether a peer answered, once, on any thread.
  using Ask = std::function<void(const PeerAddress& address, std::function<void(bool)> done)>;

  PeerSearch(RunLoop& loop, std::vector<PeerAddress> addresses, Ask ask);
  ~PeerSearch();
  PeerSearch(const PeerSearch&) = delete;
  PeerSearch& operator=(const PeerSearch&) = delete;

  void start();
  /// A peer was lost: the addresses that had answered are asked again.
  void searchAgain();

 private:
  struct Entry;
  RunLoop& loop_;
  Ask ask_;
  std::vector<std::shared_ptr<Entry>> entries_;
};

}  // namespace ferrox::command
