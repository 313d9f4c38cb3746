// The projects that this instance lets peers copy.
#pragma once

#include <memory>
#include <string_view>

#include "Classes/Capabilities/FRXProject.h"
#include "Classes/Capabilities/OfferingCapability.h"
#include "Platform/Base/Export.h"

namespace ferrox {

/// Outgoing; its user info holds "projects", the capability's JSON, and "frxId", this device's id.
inline constexpr std::string_view FRXProjectSharingCapabilityNotification =
    "FRXProjectSharingCapabilityNotif";
/// For the host application's own use; the library posts neither.
inline constexpr std::string_view FRXProjectAddedNotification = "FRXProjectAddedNotif";
/// The same of a project that is no longer shared.
inline constexpr std::string_view FRXProjectRemovedNotification = "FRXProjectRemovedNotif";

/// Projects by id.
/// Thread: main; reading: any
class FRX_EXPORT FRXProjectSharingCapability : public OfferingCapability<FRXProject> {
 public:
  using Projects = Offers;

  explicit FRXProjectSharingCapability(CapabilityParts parts = {});

  /// False, changing nothing, when the id is empty or taken, and, logged at WARN, when name or id is missing
  /// or not UTF-8. A port of 0 becomes the server's.
  bool addProject(const std::shared_ptr<FRXProject>& project, bool broadcastChange = false);
  /// The id has to match exactly. False when there is no such project.
  bool removeProjectWithId(std::string_view id, bool broadcastChange = false);

  /// A snapshot. Thread: any
  Projects availableProjects() const { return offers().snapshot(); }
  /// The project of that id, or an empty pointer. Thread: any
  std::shared_ptr<FRXProject> projectWithId(std::string_view id) const { return offers().find(id); }
};

}  // namespace ferrox
