// Peers and what happened to them, as lines for people.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Apps/ferrox/Node/NodeListener.h"
#include "Apps/ferrox/Terminal/Terminal.h"

namespace ferrox::command {

/// "14:05:09", local time.
std::string clockText(std::chrono::system_clock::time_point time);

/// "14:05:09.042", local time.
std::string preciseClockText(std::chrono::system_clock::time_point time);

/// "NAME [FILTER] from EDIT SUITE 3: {...}", raw text of any length.
std::string notificationText(const SeenNotification& notification);
/// "connected to EDIT SUITE 3 (suite-3.local:16654)", or how it ended; raw text.
std::string connectionText(const ConnectionEvent& event);
/// "EDIT SUITE 3 (suite-3.local:16654)", raw text.
std::string nameAndAddress(const Peer& peer);

/// Heading and one line a peer, none wider than `width`.
std::vector<std::string> peerLines(const std::vector<Peer>& peers, std::size_t width, const Style& style);

}  // namespace ferrox::command
