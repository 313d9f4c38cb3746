// Finds the URL of a project by a part of its peer's name and its id.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Apps/ferrox/Commands/GatheringCommand.h"

namespace ferrox::command {

/// What is looked for: "PEER/ID".
struct ProjectName {
  /// A part of the peer's name; only its letters and digits count, in whatever case.
  std::string peer;
  std::string id;

  /// Nothing when a part is missing, or no letter or digit is in the first.
  static std::optional<ProjectName> fromText(std::string_view text);
};

struct SharedProject {
  std::string peerName;
  std::string url;
};

/// The project of that name among what peers share. One whose peer has exactly that name goes before those
/// that only hold it. Nothing, with `problem` saying why, when there is none or more than one.
std::optional<SharedProject> findProject(const ProjectName& name, const std::vector<Peer>& peers,
                                         const FRXCapabilitiesListing::Result& listing, std::string& problem);

/// A step of another subcommand, which shows its options.
class ProjectSearch final : public GatheringCommand {
 public:
  ProjectSearch();

  /// Adds nothing but options.
  CommandLine& declare(CommandLine& subcommand) override;
  /// Looks for that project; an exit code. After ExitDone `found()` has it.
  int find(const ProjectName& name);
  const SharedProject& found() const { return *found_; }
  bool isJson() const { return writesJson(); }
  const NodeOptions& options() const { return nodeOptions(); }

 protected:
  void gathered() override;
  bool hasOutcome() const override { return false; }
  int report() const override;

 private:
  ProjectName name_;
  std::optional<SharedProject> found_;
  std::string problem_;
};

}  // namespace ferrox::command
