// One peer as the command shows it.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/Discovery/FRXPeerAddress.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {
class FRXNetService;
}

namespace ferrox::command {

enum class PeerState { Found, Responsive, Unresponsive };

/// "found", "responsive" or "unresponsive".
std::string_view toString(PeerState state);

struct Peer {
  std::shared_ptr<FRXNetService> service;
  PeerState state = PeerState::Found;
  std::chrono::system_clock::time_point since;
  /// When this node's connection to it opened; absent while there is none.
  std::optional<std::chrono::system_clock::time_point> connectedSince;
  /// How much it offers; absent while not known.
  std::optional<std::size_t> streams;
  std::optional<std::size_t> projects;
};

/// True while this node's connection to it is open and it answers.
bool isConnected(const Peer& peer);

/// The name that people gave the computer, from a published service name; "?" when there is none.
std::string displayName(const FRXNetService& service);
std::string displayName(const std::optional<std::string>& serviceName);
/// "host.local:16654", in lower case and without the root's dot.
std::string displayAddress(const FRXNetService& service);
/// "HOST:PORT", an IPv6 address in brackets.
std::string displayAddress(const FRXPeerAddress& address);
/// The record's four members.
FRXDictionary recordOf(const FRXNetService& service);

}  // namespace ferrox::command
