// The examinations that `doctor` makes. Each takes its time on the calling thread and changes nothing.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Apps/ferrox/Doctor/DoctorReport.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/DNSSD/NetworkInterface.h"

namespace ferrox::command {

class Announcements;
class NetworkSurvey;
struct PeerPlaces;

/// Which interfaces there are, and which discovery uses, and why or why not.
Examination examineInterfaces(const DNSSDConfiguration& configuration,
                              const std::vector<dnssd::NetworkInterface>& present);

/// Whether the survey's questions went out on each used interface, came back to this machine, and were
/// answered by others.
Examination examineMulticast(const NetworkSurvey& survey);

/// Which nodes are announced, and whether peers can make something of it.
Examination examineAnnouncements(const Announcements& announcements,
                                 const std::set<std::string>& ownAddresses);

/// Which other programs of this machine speak multicast DNS.
Examination examineResponders();

/// Whether a node could listen on the port.
Examination examinePort(std::uint16_t port);

/// Whether what a node announces about itself fits one packet, and identity is known.
Examination examineRecord();

/// Whether each address answers by TCP, HTTP and WebSocket, all at the same time; within
/// `AddressTrial::longest`. `announcements` is what multicast told; nothing when it was not asked.
/// Thread: main
Examination examinePeers(const PeerPlaces& peers, const Announcements* announcements);

}  // namespace ferrox::command
