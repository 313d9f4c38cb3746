// The screen that `run` shows on a terminal: this node, its peers, and what happened lately.
#pragma once

#include <chrono>
#include <deque>
#include <string>
#include <vector>

#include "Apps/ferrox/Node/NodeListener.h"
#include "Apps/ferrox/Terminal/Terminal.h"

namespace ferrox::command {

struct LiveView {
  NodeIdentity node;
  bool visible = false;  ///< the own announcement was seen on the network
  std::vector<Peer> peers;
  struct Event {
    std::chrono::system_clock::time_point time;
    Tone tone = Tone::Plain;
    std::string text;
  };
  /// Oldest first; raw text.
  std::deque<Event> events;
};

/// Lines that fill at most the given screen, none wider than it: a headline, the peers (as many as fit), and
/// the latest events in the room that is left.
std::vector<std::string> renderLiveView(const LiveView& view, TerminalSize size, const Style& style);

}  // namespace ferrox::command
