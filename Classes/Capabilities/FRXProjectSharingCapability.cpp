#include "Classes/Capabilities/FRXProjectSharingCapability.h"

namespace ferrox {

bool FRXProjectSharingCapability::addProject(const std::shared_ptr<FRXProject>& project,
                                             bool broadcastChange) {
  if (!projects_.add(project)) return false;
  if (broadcastChange) broadcastCapability();
  return true;
}

bool FRXProjectSharingCapability::removeProjectWithId(std::string_view id, bool broadcastChange) {
  if (!projects_.remove(id)) return false;
  if (broadcastChange) broadcastCapability();
  return true;
}

// Peers learn of the projects when they ask for the capabilities; there is no channel to announce them on
// yet.
void FRXProjectSharingCapability::broadcastCapability() {}

}  // namespace ferrox
