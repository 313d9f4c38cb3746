#include "Classes/Capabilities/FRXProjectSharingCapability.h"

#include <utility>

namespace ferrox {

FRXProjectSharingCapability::FRXProjectSharingCapability(CapabilityParts parts)
    : OfferingCapability(FRXCapabilityNameProjectSharing, FRXProjectSharingCapabilityNotification, "projects",
                         std::move(parts)) {}

bool FRXProjectSharingCapability::addProject(const std::shared_ptr<FRXProject>& project,
                                             bool broadcastChange) {
  return add(project, broadcastChange);
}

bool FRXProjectSharingCapability::removeProjectWithId(std::string_view id, bool broadcastChange) {
  return remove(id, broadcastChange);
}

}  // namespace ferrox
