// Where a peer accepts sockets.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace ferrox {

class FRXNetService;
class HostIdentity;

/// The record under which a peer that is connected to may find this instance. Until the own announcement was
/// seen, `local` is named after the computer, which is neither a host name nor the one that discovery will
/// tell: the peer would take this instance for two, and send everything twice. The host's name stands in for
/// it then. Thread: any
std::shared_ptr<FRXNetService> reachableRecord(std::shared_ptr<FRXNetService> local,
                                               const HostIdentity& host);

/// "ws://ADDRESS/frxsocket?id=..." with this instance's own name and, when it is known, where it can be
/// reached. Nothing when `address` (from the network) is no "HOST:port". Thread: any
std::optional<std::string> peerSocketURL(const std::string& address, const std::string& frxServerId,
                                         const FRXNetService* localService);

}  // namespace ferrox
