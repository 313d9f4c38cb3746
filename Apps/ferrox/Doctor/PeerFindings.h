// What the trial of an address tells, in words.
#pragma once

#include <vector>

#include "Apps/ferrox/Doctor/DoctorReport.h"

namespace ferrox::command {

class AddressTrial;
class Announcements;
struct PeerPlace;

/// `announcements` is what multicast told of nodes; nothing when it was not asked.
std::vector<Finding> findingsAbout(const PeerPlace& place, const AddressTrial& trial,
                                   const Announcements* announcements);

}  // namespace ferrox::command
