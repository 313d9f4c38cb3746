// The examinations that `doctor` makes. Each takes its time on the calling thread and changes nothing.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Apps/ferrox/Doctor/DoctorReport.h"
#include "Apps/ferrox/Node/NodeOptions.h"
#include "Platform/DNSSD/NetworkInterface.h"

namespace ferrox::command {

/// Which interfaces there are, and which discovery uses, and why or why not.
Examination examineInterfaces(const DNSSDConfiguration& configuration,
                              const std::vector<dnssd::NetworkInterface>& present);

/// Sends a question by multicast on each used interface, and tells whether it went out, came back to this
/// machine, and was answered by others.
Examination examineMulticast(const std::vector<dnssd::NetworkInterface>& used,
                             std::chrono::milliseconds wait);

/// Which other programs of this machine speak multicast DNS.
Examination examineResponders();

/// Whether a node could listen on the port.
Examination examinePort(std::uint16_t port);

/// Whether what a node announces about itself fits one packet, and identity is known.
Examination examineRecord();

/// Whether each peer that was named answers, by TCP and by HTTP.
Examination examinePeers(const std::vector<FRXPeerAddress>& peers);

}  // namespace ferrox::command
