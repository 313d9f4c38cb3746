// The document that tells a copying peer what a shared project consists of.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace ferrox {

/// How large a document may become; a project beyond it cannot be listed.
struct ProjectStructureLimits {
  std::size_t entries = 4'000'000;
  std::size_t bytes = std::size_t{256} << 20;
};

/// {"files":[...],"directories":[...]} of everything beneath `root`, hidden entries included, as compact
/// JSON; both lists are empty when there is no such directory. Entries whose names are not UTF-8 cannot be
/// named over HTTP and are left out, which is logged at WARN. Nothing when the project is beyond the limits.
/// Thread: any; blocks on the disk
[[nodiscard]] std::optional<std::string> projectStructureJson(const std::string& root,
                                                              const ProjectStructureLimits& limits = {});

}  // namespace ferrox
