// Where the pieces of a file that is split stand until they are joined.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "Classes/Copy/ProjectStructureDocument.h"

namespace ferrox {

/// A piece is called like its file, with "." and the offset of its first byte behind. Where the project
/// itself has an entry of that name, or the name would be too long, another one is made up beside it, the
/// same one at every copy of that project. Thread: any
class PieceNames {
 public:
  explicit PieceNames(const ProjectStructureDocument& document);

  /// What stands behind the file's name: ".0", ".1000".
  static std::string extension(std::uint64_t offset);
  /// The relative path of the piece of `path` that begins at `offset`.
  std::string nameOf(std::string_view path, std::uint64_t offset) const;

 private:
  void take(const PathList& paths);

  // Only entries that look like pieces are worth remembering.
  std::set<std::string, std::less<>> taken_;
};

}  // namespace ferrox
