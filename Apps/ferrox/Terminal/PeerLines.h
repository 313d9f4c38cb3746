// Peers and what happened to them, as lines for people.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Apps/ferrox/Node/Peer.h"
#include "Apps/ferrox/Terminal/Terminal.h"

namespace ferrox::command {

/// "14:05:09", local time.
std::string clockText(std::chrono::system_clock::time_point time);

/// Heading and one line a peer, none wider than `width`.
std::vector<std::string> peerLines(const std::vector<Peer>& peers, std::size_t width, const Style& style);

}  // namespace ferrox::command
