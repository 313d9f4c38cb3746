// What a peer says a project consists of, judged before anything is done with it.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Classes/Copy/PathList.h"
#include "Platform/Base/FRXError.h"
#include "Platform/FileSystem/PathRules.h"

namespace ferrox {

/// How much a document may ask of the reader.
struct ProjectStructureDocumentLimits {
  std::size_t bytes = std::size_t{256} << 20;
  std::size_t entries = 4'000'000;
  std::size_t pathBytes = longestPath;  ///< of each relative path
};

/// Folders and files of a project, in the order of the document. Every path may be used beneath any folder
/// (`whyUnusable`), none comes twice, none is a folder and a file at once, and none leads through a file.
/// Thread: any
struct ProjectStructureDocument {
  PathList directories;
  PathList files;
};

/// Reads a document while it arrives: an object with the members "directories" and "files", both arrays of
/// texts; other members are passed over. Thread: one at a time
class ProjectStructureReader {
 public:
  explicit ProjectStructureReader(const ProjectStructureDocumentLimits& limits = {});
  ~ProjectStructureReader();
  ProjectStructureReader(const ProjectStructureReader&) = delete;
  ProjectStructureReader& operator=(const ProjectStructureReader&) = delete;

  /// The next piece of its text. False once it cannot become a sound document any more.
  bool write(std::string_view piece);
  /// The document, or nothing when its text was not whole or not sound; to be called once, after the last
  /// piece.
  [[nodiscard]] std::optional<ProjectStructureDocument> finish();

  /// Why there is no document. Of the domain of `CopyR24ProjectOperation` when what the text says is not
  /// sound, of `JsonErrorDomain` when it is no JSON.
  std::optional<FRXError> error() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// The first two paths that a disk would take for the same one if it tells neither letter case nor the
/// composition of accents apart. Takes a moment for a very large document. Thread: any
[[nodiscard]] std::optional<std::pair<std::string, std::string>> caseCollision(
    const ProjectStructureDocument& document);

}  // namespace ferrox
