// The projects that this instance lets peers copy.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Classes/Capabilities/FRXCapability.h"
#include "Classes/Capabilities/FRXProject.h"
#include "Classes/Capabilities/OfferTable.h"

namespace ferrox {

inline constexpr std::string_view FRXProjectSharingCapabilityNotification =
    "FRXProjectSharingCapabilityNotif";
/// For the host application's own use; the library posts neither.
inline constexpr std::string_view FRXProjectAddedNotification = "FRXProjectAddedNotif";
inline constexpr std::string_view FRXProjectRemovedNotification = "FRXProjectRemovedNotif";

/// Projects by id.
/// Thread: main; reading: any
class FRXProjectSharingCapability : public FRXCapability {
 public:
  using Projects = OfferTable<FRXProject>::Offers;

  /// False, changing nothing, when the id is empty or taken, or the name is missing. A port of 0 becomes the
  /// server's.
  bool addProject(const std::shared_ptr<FRXProject>& project, bool broadcastChange = false);
  /// The id has to match exactly. False when there is no such project.
  bool removeProjectWithId(std::string_view id, bool broadcastChange = false);

  /// A snapshot. Thread: any
  Projects availableProjects() const { return projects_.snapshot(); }
  /// The project of that id, or an empty pointer. Thread: any
  std::shared_ptr<FRXProject> projectWithId(std::string_view id) const { return projects_.find(id); }

  FRXValue jsonSerializableObject() const override { return projects_.jsonArray(); }
  void broadcastCapability() override;
  std::string name() const override { return std::string(FRXCapabilityNameProjectSharing); }

 private:
  OfferTable<FRXProject> projects_;
};

}  // namespace ferrox
