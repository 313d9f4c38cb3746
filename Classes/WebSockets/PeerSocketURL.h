// Where a peer accepts sockets.
#pragma once

#include <optional>
#include <string>

namespace ferrox {

class FRXNetService;

/// "ws://ADDRESS/frxsocket?id=..." with this instance's own name and, when it is known, where it can be
/// reached. Nothing when `address` (from the network) is no "HOST:port". Thread: any
std::optional<std::string> peerSocketURL(const std::string& address, const std::string& frxServerId,
                                         const FRXNetService* localService);

}  // namespace ferrox
