// Which addresses are tried: those that were named, and those that nodes announce.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "Classes/Discovery/FRXPeerAddress.h"

namespace ferrox::command {

class Announcements;

struct PeerPlace {
  FRXPeerAddress address;
  /// Whose address it is: as it was named, or the announced service name. A peer may have several.
  std::string peer;
  /// Named with --peer.
  bool given = false;
  /// Told by multicast.
  bool announced = false;
  bool onThisMachine = false;
};

struct PeerPlaces {
  static constexpr std::size_t most = 64;

  /// Each address once; those that were named come first.
  std::vector<PeerPlace> places;
  /// Beyond the limit.
  std::size_t leftOut = 0;
};

/// A named host under .local stands for the addresses that are known of it, if there are any.
PeerPlaces placesToTry(const std::vector<FRXPeerAddress>& given, const Announcements& announcements,
                       const std::set<std::string>& ownAddresses);

/// "edit-3.local:16654 at 10.77.0.2:16654", or the address alone when the peer is not named otherwise.
std::string displayName(const PeerPlace& place);

}  // namespace ferrox::command
